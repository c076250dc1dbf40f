#include "cli_export_options.h"

#include <stdexcept>

#include "cli_values.h"
#include "image.h"
#include "pages.h"

namespace mivo4::host {

namespace {

int sizeMode(const std::string &v) {
    const char *names[] = {"screen", "printer", "user", "picture"};
    for (int k = 0; k < 4; ++k)
        if (v == names[k]) return k;
    throw UsageError{"--size must be screen, printer, user or picture, not \"" + v + "\""};
}

double inches(const char *option, const std::string &v) {
    double d;
    if (!parseDouble(v, d)) throw UsageError{std::string(option) + " needs a number of inches, not \"" + v + "\""};
    return d;
}

int wholeNumber(const char *option, const std::string &v, int lo, int hi) {
    int n;
    if (!parseInt(v, lo, hi, n))
        throw UsageError{std::string(option) + " needs a whole number from " + std::to_string(lo) + " to " +
                         std::to_string(hi) + ", not \"" + v + "\""};
    return n;
}

void screen(const std::string &v, ExportSettings &s) {
    size_t x = v.find('x'), at = v.find('@');
    int w, h, d;
    if (x == std::string::npos || at == std::string::npos || at < x || !parseInt(v.substr(0, x), 1, 1000000, w) ||
        !parseInt(v.substr(x + 1, at - x - 1), 1, 1000000, h) || !parseInt(v.substr(at + 1), 1, 32767, d))
        throw UsageError{"--screen needs WIDTHxHEIGHT@DPI, for example 1280x1078@96, not \"" + v + "\""};
    s.screenWidth = w, s.screenHeight = h, s.screenDpi = d;
}

OutputMode outputMode(const std::string &v) {
    if (v == "file") return OutputMode::File;
    if (v == "memory") return OutputMode::Memory;
    if (v == "callback") return OutputMode::Callback;
    throw UsageError{"--output-mode must be file, memory or callback, not \"" + v + "\""};
}

Via via(const std::string &v) {
    if (v == "bitmap") return Via::Bitmap;
    if (v == "gdp") return Via::Gdp;
    throw UsageError{"--via must be bitmap or gdp, not \"" + v + "\""};
}

void dither(const std::string &v, ExportSettings &s) {
    if (v == "module") s.tones = Tones::Module;
    else if (v == "floyd") s.tones = Tones::Floyd;
    else if (v == "ordered") s.tones = Tones::Ordered;
    else if (v == "threshold") s.tones = Tones::Threshold;
    else if (v.rfind("threshold=", 0) == 0 && parseInt(v.substr(10), 0, 100, s.thresholdPercent))
        s.tones = Tones::Threshold;
    else
        throw UsageError{"--dither must be module, floyd, threshold[=PERCENT] (0 to 100) or ordered, not \"" + v + "\""};
}

void shard(const std::string &v, BatchJob &b) {
    size_t slash = v.find('/');
    int index = 0, count = 0;
    if (slash == std::string::npos || !parseInt(v.substr(0, slash), 0, 1000000, index) ||
        !parseInt(v.substr(slash + 1), 1, 1000000, count) || index >= count)
        throw UsageError{"--shard needs I/N with 0 <= I < N, for example 0/4, not \"" + v + "\""};
    b.shardIndex = index;
    b.shardCount = count;
}

void filesFrom(const std::string &v, std::vector<std::string> &files) {
    try {
        for (std::string &p : readFileList(v)) files.push_back(std::move(p));
    } catch (const std::runtime_error &e) {
        throw UsageError{std::string("--files-from: ") + e.what()};
    }
}

}  // namespace

std::vector<Option> exportOptions(ExportArgs &a) {
    ExportSettings &s = a.settings;
    // Options about the picture a replay does not have: refused there, by name.
    auto picture = [&](Option o) {
        if (!a.replay) return o;
        o.hidden = true;
        o.apply = [name = std::string(o.name)](const std::string &) {
            throw UsageError{"replay does not take --" + name + ": it sends recorded elements, not a picture"};
        };
        return o;
    };
    const bool fw = true;  // the same for every picture of a batch
    std::vector<Option> table = {
        {"size", 0, "screen|printer|user|picture", "size mode (default: the profile's, else user)",
         [&](const std::string &v) { s.sizeMode = sizeMode(v); }, fw},
        {"width", 0, "INCHES", "the output's width, 0.03125 to 22 (size mode user; alone it keeps "
                               "the aspect, with --height the picture fits the box)",
         [&](const std::string &v) { s.width = inches("--width", v); }, fw},
        {"height", 0, "INCHES", "the output's height, likewise",
         [&](const std::string &v) { s.height = inches("--height", v); }, fw},
        {"dpi", 0, "N", "output resolution (default: the profile's, else 300)",
         [&](const std::string &v) { s.dpi = wholeNumber("--dpi", v, 1, 32767); }, fw},
        picture({"source-dpi", 0, "N", "the picture's resolution (default: the file's; without one, "
                                       "the output's, so that the pixel size stays)",
                 [&](const std::string &v) { s.sourceDpi = wholeNumber("--source-dpi", v, 0, 32767); }, fw}),
        picture({"density", 0, "N", "the picture's resolution and the output's at once",
                 [&](const std::string &v) { s.sourceDpi = s.dpi = wholeNumber("--density", v, 1, 9999); }, fw}),
        {"screen", 0, "WxH@DPI", "the screen told to the module (default 1280x1078@96)",
         [&](const std::string &v) { screen(v, s); }, fw},
        {"output-mode", 0, "file|memory|callback", "how the module writes (default file)",
         [&](const std::string &v) { s.mode = outputMode(v); }, fw},
        picture({"dither", 0, "module|floyd|threshold[=PERCENT]|ordered",
                 "who makes black and white: the module (error diffusion onto "
                 "eight greys, default), or the host from the luminance: "
                 "Floyd-Steinberg, a threshold (50%), Bayer 8x8",
                 [&](const std::string &v) { dither(v, s); }, fw}),
        {"profile", 0, "FILE", "start from a mode of a setup profile (with --mode)",
         [&](const std::string &v) { s.profile = v; }, fw},
        {"mode", 0, "NAME", "the profile's mode to start from",
         [&](const std::string &v) { s.modeName = v; }, fw},
        {"progress", 0, nullptr, "draw the progress bar (reading, colour reduction, coding, checking; with "
                                 "-o DIR, one that counts pictures) even when standard error is no terminal",
         [&](const std::string &) { s.progress = true; }},
        {"no-progress", 0, nullptr, "no progress bar, even on a terminal",
         [&](const std::string &) { s.progress = false; }},
        {"quiet", 'q', nullptr, "no summary line and no warnings; a --dpi the module "
                                "overrode, changing the pixel size, is still told",
         [&](const std::string &) { s.quiet = true; }, fw},
        {"no-verify", 0, nullptr, "skip decoding the result with libtiff before keeping it",
         [&](const std::string &) { s.verify = false; }, fw},
        {"verify", 0, nullptr, "decode the result with libtiff before keeping it (default)",
         [&](const std::string &) { s.verify = true; }, fw},
        picture({"allow-truncated", 0, nullptr, "read a JPEG whose data ends early (the rest filled in)",
                 [&](const std::string &) { readOptions().allowTruncated = true; }, fw}),
        picture({"page", 0, "N", "the page of a multi-page TIFF, counted from 1 (default 1; an OUTPUT with %d "
                                 "such as out-%d.cal writes every page: out-1.cal, out-2.cal, ...; %03d pads, "
                                 "%% is a percent sign)",
                 [&](const std::string &v) {
                     if (!parsePageNumber(v, s.page)) throw UsageError{"--page needs a page number from 1, not \"" + v + "\""};
                 },
                 fw}),
        picture({"no-orient", 0, nullptr, "keep the stored row order (default: turned upright as the TIFF "
                                          "Orientation tag or the JPEG's EXIF orientation says)",
                 [&](const std::string &) { s.orient = false; }, fw}),
        {"limit-memory", 0, "SIZE", "the most a picture may take, e.g. 512M or 2G "
                                    "(default: half the memory, at most 4G)",
         [&](const std::string &v) { setLimit(v); }, fw},
        picture({"demo", 0, nullptr, "export the built-in test chart (then only OUTPUT follows)",
                 [&](const std::string &) { a.demo = true; }}),
        picture({"via", 0, "bitmap|gdp", "hand the picture over as a bitmap (ExportCellData, default) "
                                         "or as an image of cell arrays sent to the raster driver",
                 [&](const std::string &v) { s.via = via(v); }, fw}),
        picture({"rows-per-element", 0, "N", "rows of one cell array on the driver path (default 64)",
                 [&](const std::string &v) { s.rowsPerElement = wholeNumber("--rows-per-element", v, 1, 65535); },
                 fw}),
        picture({"trace", 0, "FILE.ddt", "record every element sent to the driver (with --via gdp)",
                 [&](const std::string &v) { s.tracePath = v; }}),
    };
    if (a.replay) return table;
    std::vector<Option> batch = {
        {"output-dir", 'o', "DIR", "convert many pictures (INPUT...), each to DIR/NAME.cal",
         [&](const std::string &v) { a.batch.outputDir = v; }},
        {"files-from", 0, "LIST", "more INPUTs, one path a line (- for standard input)",
         [&](const std::string &v) { filesFrom(v, a.files); }},
        {"jobs", 'j', "N", "worker processes for -o (default: the cores)",
         [&](const std::string &v) {
             if (!parseInt(v, 1, 1024, a.batch.jobs))
                 throw UsageError{"-j needs a number of workers from 1 to 1024, not \"" + v + "\""};
         }},
        {"shard", 0, "I/N", "take every N-th picture of the list from the I-th (0-based)",
         [&](const std::string &v) { shard(v, a.batch); }},
    };
    table.insert(table.end(), batch.begin(), batch.end());
    return table;
}

void parseExportArguments(const std::vector<std::string> &args, ExportArgs &a) {
    a.batch.exportOptions = parseOptions(a.replay ? "replay" : "export", "export", exportOptions(a), args,
                                         [&](const std::string &file) { a.files.push_back(file); });
    if (!a.settings.modeName.empty() && a.settings.profile.empty()) throw UsageError{"--mode needs --profile"};
    if (!a.settings.profile.empty() && a.settings.modeName.empty()) throw UsageError{"--profile needs --mode"};
}

}  // namespace mivo4::host
