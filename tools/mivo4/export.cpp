#include "export.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli_export_options.h"
#include "demo.h"
#include "image.h"
#include "module.h"
#include "outfile.h"
#include "pages.h"
#include "progress.h"

namespace mivo4::host {

namespace {

int exportBatch(const std::string &modulePath, ExportArgs &a) {
    if (a.demo || !a.settings.tracePath.empty())
        throw UsageError{"-o DIR converts pictures; --demo and --trace take one OUTPUT"};
    if (a.files.empty()) throw UsageError{"-o DIR needs at least one INPUT (or --files-from LIST)"};
    // The bar counts pictures; each picture's own export draws none.
    a.batch.progress = progressShown(a.settings.progress);
    a.batch.quiet = a.settings.quiet;
    if (std::find(a.files.begin(), a.files.end(), "-") != a.files.end())
        throw UsageError{"- (standard input) cannot be an INPUT of -o DIR: its workers cannot share it"};
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

    if (std::string problem = pageTemplateProblem(output); !problem.empty()) throw UsageError{problem};

    Module module;
    if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
    return exportPictures(module, a.demo ? std::string() : files[0], output, s);
}

}  // namespace mivo4::host
