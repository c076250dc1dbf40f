// mivo4 export: one picture, the demo chart, or many pictures with -o DIR.
#pragma once

#include <string>
#include <vector>

#include "exporter.h"

namespace mivo4::host {

// Runs export with its arguments (after the command's name); answers the
// exit code. Throws UsageError, HelpRequest.
int exportCommand(const std::string &modulePath, const std::vector<std::string> &args);

// When the module wrote another resolution than the one asked for and the
// pixel size came out other than that resolution gives, what to tell the
// user ("" otherwise): a quiet export still says it.
std::string dpiOverride(const ExportSettings &settings, const ExportReport &report, const std::string &output);

}  // namespace mivo4::host
