// mivo4 replay: a recorded driver session sent to the module again.
#pragma once

#include <string>

#include "exporter.h"

namespace mivo4::host {

// Replays the trace at tracePath into output with a setup made from the
// settings; answers the exit code.
int replayCommand(const std::string &modulePath, const ExportSettings &settings, const std::string &tracePath,
                  const std::string &output);

}  // namespace mivo4::host
