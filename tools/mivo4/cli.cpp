#include "cli.h"

#include <mivo4/version.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "batch.h"
#include "cfb.h"
#include "demo.h"
#include "exporter.h"
#include "gp4file.h"
#include "image.h"
#include "membudget.h"
#include "module.h"
#include "outfile.h"
#include "pages.h"
#include "replay.h"

namespace mivo4::host {

namespace {

const char kUsage[] =
    "usage: mivo4 [--module PATH] COMMAND ...\n"
    "       mivo4 --version | --help\n"
    "\n"
    "  mivo4 export [options] INPUT OUTPUT   export a PNG, JPEG, TIFF or PNM picture as GP4\n"
    "  mivo4 export [options] --demo OUTPUT  export the built-in test chart\n"
    "  mivo4 info [--limit-memory SIZE] FILE.cal\n"
    "                                         show the header and check the coded picture\n"
    "  mivo4 decode [--limit-memory SIZE] FILE.cal OUT.pbm|OUT.png\n"
    "                                         decode a GP4 file to look at it\n"
    "  mivo4 module-info                      show the module's entry table and version\n"
    "                                          (also: mivo4 info with no file)\n"
    "  mivo4 cfb list FILE | cat FILE STREAM  list or read the streams of a compound document\n"
    "\n"
    "export options:\n"
    "  --size screen|printer|user|picture     size mode (default: the profile's, else user)\n"
    "  --width INCHES  --height INCHES        the output's size (size mode user; one keeps the aspect,\n"
    "                                         both fit the picture in the box), 0.03125 to 22\n"
    "  --dpi N                                output resolution (default: the profile's, else 300)\n"
    "  --source-dpi N                         the picture's resolution (default: the file's; without one,\n"
    "                                         the output's, so that the pixel size stays)\n"
    "  --density N                            the picture's resolution and the output's at once\n"
    "  --screen WxH@DPI                       the screen told to the module (default 1280x1078@96)\n"
    "  --output-mode file|memory|callback     how the module writes (default file)\n"
    "  --progress                             a progress bar on standard error\n"
    "  --profile FILE --mode NAME             start from a mode of a setup profile\n"
    "  --no-verify                            skip decoding the result with libtiff before keeping it\n"
    "  --allow-truncated                      read a JPEG whose data ends early (the rest filled in)\n"
    "  --page N                               the page of a multi-page TIFF, counted from 1 (default 1;\n"
    "                                         an OUTPUT with %d such as out-%d.cal writes every page:\n"
    "                                         out-1.cal, out-2.cal, ...; %03d pads, %% is a percent sign)\n"
    "  --no-orient                            keep the stored row order (default: turned upright as the\n"
    "                                         TIFF Orientation tag or the JPEG's EXIF orientation says)\n"
    "  --limit-memory SIZE                    the most a picture may take, e.g. 512M or 2G\n"
    "                                         (default: half the memory, at most 4G)\n"
    "  --dither module|floyd|threshold[=PERCENT]|ordered\n"
    "                                         who makes black and white: the module (error diffusion\n"
    "                                         onto eight greys, default), or the host from the\n"
    "                                         luminance: Floyd-Steinberg, a threshold (50%), Bayer 8x8\n"
    "  -o DIR INPUT...                        convert many pictures, each to DIR/NAME.cal\n"
    "  --files-from LIST                      more INPUTs, one path a line (- for standard input)\n"
    "  -j N                                   worker processes for -o (default: the cores)\n"
    "  --shard I/N                            take every N-th picture of the list from the I-th (0-based)\n"
    "  --                                     only INPUTs and OUTPUT follow\n"
    "  --via bitmap|gdp                       hand the picture over as a bitmap (ExportCellData, default)\n"
    "                                         or as an image of cell arrays sent to the raster driver\n"
    "  --rows-per-element N                   rows of one cell array on the driver path (default 64)\n"
    "  --trace FILE.ddt                       record every element sent to the driver (with --via gdp)\n"
    "\n"
    "  mivo4 replay [export options] TRACE.ddt OUTPUT   send a recorded driver session again\n"
    "INPUT may be - for standard input, OUTPUT - for standard output. The module is $MIVO4_MODULE, else mivo42.flt beside mivo4.\n";

// A usage error: message and exit code 2.
struct UsageError {
    std::string message;
};

void setLimit(const std::string &text) {
    uint64_t bytes = 0;
    if (!parseMemorySize(text, bytes))
        throw UsageError{"--limit-memory needs a size such as 512M or 2G, not \"" + text + "\""};
    setMemoryBudget(bytes);
}

// Takes "--limit-memory SIZE" out of the arguments of info and decode.
std::vector<std::string> withoutLimit(std::vector<std::string> args) {
    for (size_t i = 0; i < args.size();) {
        if (args[i] != "--limit-memory") {
            ++i;
            continue;
        }
        if (i + 1 >= args.size()) throw UsageError{"--limit-memory needs a value"};
        setLimit(args[i + 1]);
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
    }
    return args;
}

int fail(const std::string &message, int code = 1) {
    std::fprintf(stderr, "mivo4: %s\n", message.c_str());
    return code;
}

bool parseInt(const std::string &text, long lo, long hi, int &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

bool parseDouble(const std::string &text, double &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    out = v;
    return true;
}

bool endsWith(std::string s, const char *suffix) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t n = std::strlen(suffix);
    return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

int moduleInfo(const Module &module) {
    const FLTPOINTERS &t = module.table();
    std::printf("module: %s\n", module.path().c_str());
    auto version = reinterpret_cast<uint32_t (*)(void)>(module.entry("ZEPGetFilterVersion"));
    if (version != nullptr) std::printf("version: 0x%08X\n", version());
    std::printf("entries: %u\n", t.wCount);
    for (uint16_t i = 0; i < t.wCount; ++i) {
        const FLTENTRY &e = t.lpEntries[i];
        std::printf("  %-20s %5u  %s\n", e.lpszName, e.wId, e.lpTarget != nullptr ? "present" : "not available");
    }
    return 0;
}

// The host's version, and the module's file version and where it was found.
int versionInfo(const std::string &modulePath) {
    std::printf("mivo4 %d.%d.%d\n", MIVO4_VERSION_MAJOR, MIVO4_VERSION_MINOR, MIVO4_VERSION_PATCH);
    Module module;
    if (!module.open(modulePath)) {
        std::printf("module: not loaded (%s)\n", module.error().c_str());
        return 1;
    }
    auto version = reinterpret_cast<uint32_t (*)(void)>(module.entry("ZEPGetFilterVersion"));
    std::printf("module: %s, file version 0x%08X\n", module.path().c_str(), version != nullptr ? version() : 0u);
    return 0;
}

// ---------------------------------------------------------------- export

// The export options, shared by export and replay; the other arguments are
// collected in files.
void parseExportOptions(const std::vector<std::string> &args, ExportSettings &s, bool &demo,
                        std::vector<std::string> &files, BatchJob *batch = nullptr) {
    auto value = [&](size_t &i) -> std::string {
        if (i + 1 >= args.size()) throw UsageError{args[i] + " needs a value"};
        return args[++i];
    };
    bool onlyFiles = false;  // after "--"
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        const size_t first = i;  // the option's first token, for the batch's workers
        if (onlyFiles) {
            files.push_back(a);
            continue;
        }
        if (a == "--") {
            onlyFiles = true;
            continue;
        }
        if (batch != nullptr && (a == "-o" || a == "--output-dir")) {
            batch->outputDir = value(i);
            continue;
        }
        if (batch != nullptr && (a == "-j" || a == "--jobs")) {
            std::string v = value(i);
            if (!parseInt(v, 1, 1024, batch->jobs)) throw UsageError{a + " needs a number of workers from 1 to 1024, not \"" + v + "\""};
            continue;
        }
        if (batch != nullptr && a == "--files-from") {
            try {
                for (std::string &p : readFileList(value(i))) files.push_back(std::move(p));
            } catch (const std::runtime_error &e) {
                throw UsageError{std::string("--files-from: ") + e.what()};
            }
            continue;
        }
        if (batch != nullptr && a == "--shard") {
            std::string v = value(i);
            size_t slash = v.find('/');
            int index = 0, count = 0;
            if (slash == std::string::npos || !parseInt(v.substr(0, slash), 0, 1000000, index) ||
                !parseInt(v.substr(slash + 1), 1, 1000000, count) || index >= count)
                throw UsageError{"--shard needs I/N with 0 <= I < N, for example 0/4, not \"" + v + "\""};
            batch->shardIndex = index;
            batch->shardCount = count;
            continue;
        }
        if (a == "--size") {
            std::string v = value(i);
            const char *names[] = {"screen", "printer", "user", "picture"};
            int mode = -1;
            for (int k = 0; k < 4; ++k)
                if (v == names[k]) mode = k;
            if (mode < 0) throw UsageError{"--size must be screen, printer, user or picture, not \"" + v + "\""};
            s.sizeMode = mode;
        } else if (a == "--width" || a == "--height") {
            std::string v = value(i);
            double d;
            if (!parseDouble(v, d)) throw UsageError{a + " needs a number of inches, not \"" + v + "\""};
            (a == "--width" ? s.width : s.height) = d;
        } else if (a == "--density") {
            std::string v = value(i);
            int n;
            if (!parseInt(v, 1, 9999, n)) throw UsageError{"--density needs a whole number from 1 to 9999, not \"" + v + "\""};
            s.sourceDpi = n;
            s.dpi = n;
        } else if (a == "--dpi" || a == "--source-dpi") {
            std::string v = value(i);
            int n;
            if (!parseInt(v, a == "--dpi" ? 1 : 0, 32767, n))
                throw UsageError{a + " needs a whole number from " + std::string(a == "--dpi" ? "1" : "0") +
                                 " to 32767, not \"" + v + "\""};
            (a == "--dpi" ? s.dpi : s.sourceDpi) = n;
        } else if (a == "--screen") {
            std::string v = value(i);
            size_t x = v.find('x'), at = v.find('@');
            int w, h, d;
            if (x == std::string::npos || at == std::string::npos || at < x ||
                !parseInt(v.substr(0, x), 1, 1000000, w) || !parseInt(v.substr(x + 1, at - x - 1), 1, 1000000, h) ||
                !parseInt(v.substr(at + 1), 1, 32767, d))
                throw UsageError{"--screen needs WIDTHxHEIGHT@DPI, for example 1280x1078@96, not \"" + v + "\""};
            s.screenWidth = w, s.screenHeight = h, s.screenDpi = d;
        } else if (a == "--output-mode") {
            std::string v = value(i);
            if (v == "file") s.mode = OutputMode::File;
            else if (v == "memory") s.mode = OutputMode::Memory;
            else if (v == "callback") s.mode = OutputMode::Callback;
            else throw UsageError{"--output-mode must be file, memory or callback, not \"" + v + "\""};
        } else if (a == "--progress") {
            s.progress = true;
        } else if (a == "--verify") {
            s.verify = true;
        } else if (a == "--no-verify") {
            s.verify = false;
        } else if (a == "--allow-truncated") {
            readOptions().allowTruncated = true;
        } else if (a == "--limit-memory") {
            setLimit(value(i));
        } else if (a == "--profile") {
            s.profile = value(i);
        } else if (a == "--mode") {
            s.modeName = value(i);
        } else if (a == "--demo") {
            demo = true;
        } else if (a == "--via") {
            std::string v = value(i);
            if (v == "bitmap") s.via = Via::Bitmap;
            else if (v == "gdp") s.via = Via::Gdp;
            else throw UsageError{"--via must be bitmap or gdp, not \"" + v + "\""};
        } else if (a == "--dither") {
            std::string v = value(i);
            if (v == "module") s.tones = Tones::Module;
            else if (v == "floyd") s.tones = Tones::Floyd;
            else if (v == "ordered") s.tones = Tones::Ordered;
            else if (v == "threshold") s.tones = Tones::Threshold;
            else if (v.rfind("threshold=", 0) == 0 && parseInt(v.substr(10), 0, 100, s.thresholdPercent))
                s.tones = Tones::Threshold;
            else
                throw UsageError{"--dither must be module, floyd, threshold[=PERCENT] (0 to 100) or ordered, not \"" + v + "\""};
        } else if (a == "--rows-per-element") {
            std::string v = value(i);
            if (!parseInt(v, 1, 65535, s.rowsPerElement))
                throw UsageError{"--rows-per-element needs a whole number from 1 to 65535, not \"" + v + "\""};
        } else if (a == "--trace") {
            s.tracePath = value(i);
        } else if (a == "--page") {
            if (std::string v = value(i); !parsePageNumber(v, s.page)) throw UsageError{"--page needs a page number from 1, not \"" + v + "\""};
        } else if (a == "--no-orient") {
            s.orient = false;
        } else if (a.size() > 1 && a[0] == '-' && a != "-") {
            throw UsageError{"unknown export option " + a};
        } else {
            files.push_back(a);
            continue;
        }
        // Every picture of a batch is exported with the same options.
        if (batch != nullptr) batch->exportOptions.insert(batch->exportOptions.end(), args.begin() + first, args.begin() + i + 1);
    }
    if (!s.modeName.empty() && s.profile.empty()) throw UsageError{"--mode needs --profile"};
    if (!s.profile.empty() && s.modeName.empty()) throw UsageError{"--profile needs --mode"};
}

int exportCommand(const std::string &modulePath, const std::vector<std::string> &args) {
    ExportSettings s;
    bool demo = false;
    std::vector<std::string> files;
    BatchJob batch;
    parseExportOptions(args, s, demo, files, &batch);
    if (!s.tracePath.empty() && s.via != Via::Gdp) throw UsageError{"--trace records the driver path: add --via gdp"};
    if (!batch.outputDir.empty()) {
        if (demo || !s.tracePath.empty()) throw UsageError{"-o DIR converts pictures; --demo and --trace take one OUTPUT"};
        if (files.empty()) throw UsageError{"-o DIR needs at least one INPUT (or --files-from LIST)"};
        // The bar counts pictures; each picture's own export draws none.
        batch.progress = s.progress;
        std::erase(batch.exportOptions, std::string("--progress"));
        batch.inputs = files;
        if (std::find(files.begin(), files.end(), "-") != files.end())
            return fail("- (standard input) cannot be an INPUT of -o DIR: its workers cannot share it", 2);
        batch.modulePath = modulePath;
        return runBatch(batch);
    }
    if (batch.jobs != 0 || batch.shardCount != 1) throw UsageError{"-j and --shard go with -o DIR"};
    if (demo ? files.size() != 1 : files.size() != 2)
        throw UsageError{demo ? "export --demo needs exactly one OUTPUT" : "export needs INPUT and OUTPUT"};
    const std::string output = files.back();
    if (std::string problem = pageTemplateProblem(output); !problem.empty()) throw UsageError{problem};

    Module module;
    if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
    return exportPictures(module, demo ? std::string() : files[0], output, s);
}

// ---------------------------------------------------------------- info, decode

int infoCommand(const std::string &path) {
    Gp4File g;
    std::string error;
    if (!loadGp4File(path, g, error)) return fail(error);
    const Gp4Header &h = g.header;
    std::printf("file: %s (%llu bytes)\n", path.c_str(), static_cast<unsigned long long>(g.size));
    std::printf("header:%s\n", h.wellFormed ? "" : " (has bytes that are not printable ASCII)");
    for (size_t i = 0; i < h.records.size(); ++i)
        if (!h.records[i].empty()) std::printf("  %4zu  %s\n", i * 128, h.records[i].c_str());
    std::printf("width: %u pixels\nheight: %u pixels\n", *h.width, *h.height);
    if (h.density && *h.density > 0)
        std::printf("density: %u dpi (%.3f x %.3f inches)\n", *h.density, *h.width / double(*h.density),
                    *h.height / double(*h.density));
    else
        std::printf("density: none\n");
    const double pixels = double(*h.width) * *h.height;
    std::printf("coded data: %zu bytes (%.4f bits per pixel)\n", g.coded.size(),
                pixels > 0 ? g.coded.size() * 8.0 / pixels : 0.0);
    if (!h.damage.empty()) {
        std::string all;
        for (const std::string &d : h.damage) all += (all.empty() ? "" : "; ") + d;
        std::printf("check: FAILED: the header is damaged: %s\n", all.c_str());
        return 1;
    }
    // Row by row: the picture is never held whole, and decoding stops at the
    // height the header states.
    G4Check c = checkG4(g.coded, *h.width, *h.height);
    if (!c.decodes) {
        std::printf("check: FAILED: the coded data does not decode to %u x %u pixels: %s\n", *h.width, *h.height,
                    c.problem.c_str());
        return 1;
    }
    if (c.moreRows) {
        std::printf("check: FAILED: the coded data holds more than %u rows\n", *h.height);
        return 1;
    }
    std::printf("check: ok, decodes to exactly %u x %u pixels (%.2f%% black)\n", *h.width, *h.height,
                pixels > 0 ? 100.0 * double(c.black) / pixels : 0.0);
    return 0;
}

int decodeCommand(const std::string &path, const std::string &output) {
    const bool png = endsWith(output, ".png");
    if (!png && !endsWith(output, ".pbm") && output != "-")
        throw UsageError{"decode writes .pbm or .png files (or - for PBM on standard output), not " + output};
    Gp4File g;
    std::string error;
    if (!loadGp4File(path, g, error)) return fail(error);
    const Gp4Header &h = g.header;
    if (!h.damage.empty()) return fail(path + ": the header is damaged: " + h.damage.front());
    AtomicOutput out;
    if (!out.open(output, path)) return fail(out.error());
    std::unique_ptr<BilevelWriter> writer = png ? pngWriter(out.stream(), *h.width, *h.height, output)
                                                : pbmWriter(out.stream(), *h.width, *h.height, output);
    G4Check c = checkG4(g.coded, *h.width, *h.height, [&](const uint8_t *row) { return writer->row(row); });
    if (!writer->error().empty()) return fail(writer->error());
    if (!c.decodes)
        return fail(path + ": the coded data does not decode to " + std::to_string(*h.width) + " x " +
                    std::to_string(*h.height) + " pixels: " + c.problem);
    if (!writer->finish()) return fail(writer->error());
    writer.reset();
    if (!out.commit()) return fail(out.error());
    return 0;
}

}  // namespace

int runCli(int argc, char **argv) {
    std::string modulePath = defaultModulePath(argc > 0 ? argv[0] : nullptr);
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] != '\0'; ++i) {
        std::string a = argv[i];
        if (a == "--module" && i + 1 < argc) {
            modulePath = argv[++i];
        } else if (a == "--limit-memory" && i + 1 < argc) {
            try {
                setLimit(argv[++i]);
            } catch (const UsageError &e) {
                std::fprintf(stderr, "mivo4: %s\n", e.message.c_str());
                return 2;
            }
        } else if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--version") {
            return versionInfo(modulePath);
        } else {
            std::fprintf(stderr, "mivo4: unknown option %s\n%s", a.c_str(), kUsage);
            return 2;
        }
    }
    std::string command = i < argc ? argv[i++] : "module-info";
    std::vector<std::string> args(argv + i, argv + argc);
    try {
        if (command == "module-info" || (command == "info" && args.empty())) {
            Module module;
            if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
            return moduleInfo(module);
        }
        if (command == "info" || command == "decode") args = withoutLimit(args);
        if (command == "info") {
            if (args.size() != 1) throw UsageError{"info takes one GP4 file"};
            return infoCommand(args[0]);
        }
        if (command == "decode") {
            if (args.size() != 2) throw UsageError{"decode takes a GP4 file and an output .pbm or .png"};
            return decodeCommand(args[0], args[1]);
        }
        if (command == "export") return exportCommand(modulePath, args);
        if (command == "replay") {
            ExportSettings s;
            bool demo = false;
            std::vector<std::string> files;
            parseExportOptions(args, s, demo, files);
            if (demo || files.size() != 2 || s.via != Via::Bitmap || !s.tracePath.empty() || s.page != 0 || !s.orient)
                throw UsageError{"replay takes export options, a TRACE.ddt and an OUTPUT"};
            return replayCommand(modulePath, s, files[0], files[1]);
        }
        if (command == "cfb") return cfbCommand(modulePath, args);
        if (command == "help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        throw UsageError{"unknown command " + command};
    } catch (const UsageError &e) {
        std::fprintf(stderr, "mivo4: %s\n(mivo4 --help lists the commands and options)\n", e.message.c_str());
        return 2;
    } catch (const std::bad_alloc &) {
        // Whatever ran out, the output was not kept: its temporary file went
        // with the object that owned it.
        return fail("out of memory (a smaller picture, or --limit-memory below what the machine can give)");
    }
}

}  // namespace mivo4::host
