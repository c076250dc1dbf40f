#include "export.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli_export_options.h"
#include "demo.h"
#include "image.h"
#include "module.h"
#include "outfile.h"
#include "progress.h"

namespace mivo4::host {

namespace {

int fail(const std::string &message, int code = 1) {
    breakProgressLine();
    std::fprintf(stderr, "mivo4: %s\n", message.c_str());
    return code;
}

int exportBatch(const std::string &modulePath, ExportArgs &a) {
    if (a.demo || !a.settings.tracePath.empty())
        throw UsageError{"-o DIR converts pictures; --demo and --trace take one OUTPUT"};
    if (a.files.empty()) throw UsageError{"-o DIR needs at least one INPUT (or --files-from LIST)"};
    // The bar counts pictures; each picture's own export draws none.
    a.batch.progress = progressShown(a.settings.progress);
    a.batch.quiet = a.settings.quiet;
    a.batch.inputs = a.files;
    a.batch.modulePath = modulePath;
    return runBatch(a.batch);
}

}  // namespace

std::string dpiOverride(const ExportSettings &s, const ExportReport &report, const std::string &output) {
    if (!s.dpi || report.density == 0 || static_cast<int>(report.density) == *s.dpi) return {};
    // The same inches at the resolution asked for.
    const double scale = double(*s.dpi) / report.density;
    const auto asked = [&](uint32_t pixels) { return static_cast<uint32_t>(std::max(1.0, std::round(pixels * scale))); };
    if (asked(report.width) == report.width && asked(report.height) == report.height) return {};
    return (output == "-" ? std::string("standard output") : output) + ": the module wrote " +
           std::to_string(report.width) + " x " + std::to_string(report.height) + " pixels at " +
           std::to_string(report.density) + " dpi, not at the " + std::to_string(*s.dpi) + " dpi asked for";
}

int exportCommand(const std::string &modulePath, const std::vector<std::string> &args) {
    ExportArgs a;
    parseExportArguments(args, a);
    ExportSettings &s = a.settings;
    if (!s.tracePath.empty() && s.via != Via::Gdp) throw UsageError{"--trace records the driver path: add --via gdp"};
    if (!a.batch.outputDir.empty()) return exportBatch(modulePath, a);
    if (a.batch.jobs != 0 || a.batch.shardCount != 1) throw UsageError{"-j and --shard go with -o DIR"};
    const std::vector<std::string> &files = a.files;
    if (a.demo ? files.size() != 1 : files.size() != 2)
        throw UsageError{a.demo ? "export --demo needs exactly one OUTPUT" : "export needs INPUT and OUTPUT"};
    const std::string output = files.back();

    Module module;
    if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
    ModuleMemory memory(module.api());
    ExportProgress progress(s);
    Image image;
    try {
        image = a.demo ? makeDemoChart(memory.allocator()) : readImage(files[0], memory.allocator());
    } catch (const ReadError &e) {
        return fail(e.what());
    }
    AtomicOutput out;
    if (!out.open(output, a.demo ? std::string() : files[0])) return fail(out.error());
    // Once the driver holds every row, the picture's own block can go.
    s.pictureSent = [&] { memory.release(image.pixels); };
    try {
        ExportReport report = exportImage(module, memory, image, s, out);
        if (!out.commit()) return fail(out.error());
        // The summary says the resolution written; without it, an override
        // that changed the pixel size is still told.
        if (output != "-" && !s.quiet)
            std::fprintf(stderr, "mivo4: wrote %s: %u x %u pixels at %u dpi, %llu bytes\n", output.c_str(),
                         report.width, report.height, report.density,
                         static_cast<unsigned long long>(report.bytes));
        else if (std::string note = dpiOverride(s, report, output); !note.empty())
            std::fprintf(stderr, "mivo4: %s\n", note.c_str());
    } catch (const ExportError &e) {
        out.abandon();
        return fail(e.what(), e.exitCode);
    }
    return 0;
}

}  // namespace mivo4::host
