#include "replay.h"

#include <cstdio>

#include "gdp_export.h"
#include "module.h"
#include "outfile.h"
#include "trace.h"
#include "progress.h"

namespace mivo4::host {

int replayCommand(const std::string &modulePath, const ExportSettings &settings, const std::string &tracePath,
                  const std::string &output) {
    std::vector<TraceElement> trace;
    try {
        trace = readTrace(tracePath);
    } catch (const TraceError &e) {
        return fail(e.what());
    }
    Module module;
    if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
    AtomicOutput out;
    if (!out.open(output, tracePath)) return fail(out.error());
    int32_t reported = 0;
    try {
        // What the module writes is kept as it is: a trace may hold several
        // pictures, an empty one or none; the driver's answers are told.
        runExport(module, settings, out, [&](ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &x) {
            reported = replayThroughDriver(module, trace, setup, name, x);
            return 0;
        }, false);
        if (!out.commit()) return fail(out.error());
    } catch (const ExportError &e) {
        out.abandon();
        return fail(e.what(), e.exitCode);
    }
    if (reported != 0)
        std::fprintf(stderr, "mivo4: replayed %zu elements into %s; the driver reported error %d\n", trace.size(),
                     output.c_str(), reported);
    else if (output != "-" && !settings.quiet)
        std::fprintf(stderr, "mivo4: replayed %zu elements into %s\n", trace.size(), output.c_str());
    return 0;
}

}  // namespace mivo4::host
