// A picture sent to the module's raster driver the way a host framework
// draws a raster image: device and picture opened, the device window and its
// metric scale set, the colour table, then an image bracket of drawing
// primitives filled by cell arrays, bottom row first; then everything closed.
#pragma once

#include <mivo4/export.h>

#include <string>

#include "exporter.h"
#include "image.h"
#include "module.h"
#include "trace.h"

namespace mivo4::host {

// Sends image (at srcdpi dots per inch, 0 for none) through the driver with
// the setup; name is the file the driver writes ("" for the memory way).
// Answers the first error an element reported (300, 303, 901), 0 if none.
// Throws ExportError for what the host itself cannot do.
int32_t sendThroughDriver(const Module &module, const Image &image, int srcdpi, const ExportSettings &settings,
                          ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &options);

// Sends a recorded session through the driver with the setup: every element
// of the trace in order, with an element buffer as large as the largest (at
// least 4096 bytes). Answers like sendThroughDriver.
int32_t replayThroughDriver(const Module &module, const std::vector<TraceElement> &trace, ZHANDLE setup,
                            const std::string &name, EXPORT_OPTIONS &options);

}  // namespace mivo4::host
