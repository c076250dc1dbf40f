#include "replay.h"

#include <cstdio>

#include "gdp_export.h"
#include "module.h"
#include "outfile.h"
#include "trace.h"

namespace mivo4::host {

int replayCommand(const std::string &modulePath, const ExportSettings &settings, const std::string &tracePath,
                  const std::string &output) {
    std::vector<TraceElement> trace;
    try {
        trace = readTrace(tracePath);
    } catch (const TraceError &e) {
        std::fprintf(stderr, "mivo4: %s\n", e.what());
        return 1;
    }
    Module module;
    if (!module.open(modulePath)) {
        std::fprintf(stderr, "mivo4: cannot load the module %s: %s\n", modulePath.c_str(), module.error().c_str());
        return 1;
    }
    AtomicOutput out;
    if (!out.open(output, tracePath)) {
        std::fprintf(stderr, "mivo4: %s\n", out.error().c_str());
        return 1;
    }
    int32_t reported = 0;
    try {
        // What the module writes is kept as it is: a trace may hold several
        // pictures, an empty one or none; the driver's answers are told.
        runExport(module, settings, out, [&](ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &x) {
            reported = replayThroughDriver(module, trace, setup, name, x);
            return 0;
        }, false);
        if (!out.commit()) {
            std::fprintf(stderr, "mivo4: %s\n", out.error().c_str());
            return 1;
        }
    } catch (const ExportError &e) {
        out.abandon();
        std::fprintf(stderr, "mivo4: %s\n", e.what());
        return e.exitCode;
    }
    if (reported != 0)
        std::fprintf(stderr, "mivo4: replayed %zu elements into %s; the driver reported error %d\n", trace.size(),
                     output.c_str(), reported);
    else if (output != "-" && !settings.quiet)
        std::fprintf(stderr, "mivo4: replayed %zu elements into %s\n", trace.size(), output.c_str());
    return 0;
}

}  // namespace mivo4::host
