#include "exporter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "codecs.h"
#include "gdp_export.h"
#include "gp4file.h"
#include "progress.h"
#include "signals.h"

namespace mivo4::host {

// ---------------------------------------------------------------- memory

ModuleMemory::~ModuleMemory() {
    for (auto &[handle, pointer] : blocks_) {
        api_.globalUnlock(handle);
        api_.globalFree(handle);
    }
}

uint8_t *ModuleMemory::allocate(size_t bytes) {
    if (bytes > 0xFFFFFFFFu) return nullptr;
    ZHANDLE h = api_.globalAlloc(GHND, static_cast<uint32_t>(bytes));
    if (h == 0) return nullptr;
    auto *p = static_cast<uint8_t *>(api_.globalLock(h));
    if (p == nullptr) {
        api_.globalFree(h);
        return nullptr;
    }
    blocks_.emplace_back(h, p);
    return p;
}

ZHANDLE ModuleMemory::handleOf(const void *pointer) const {
    for (const auto &[handle, p] : blocks_)
        if (p == pointer) return handle;
    return 0;
}

void ModuleMemory::release(const void *pointer) {
    auto it = std::find_if(blocks_.begin(), blocks_.end(), [&](const auto &b) { return b.second == pointer; });
    if (it == blocks_.end()) return;
    api_.globalUnlock(it->first);
    api_.globalFree(it->first);
    blocks_.erase(it);
}

namespace {

// ---------------------------------------------------------------- status

// The module's reports as the host's bar takes them.
struct StatusState {
    ProgressBar *bar = nullptr;
    intptr_t range = 100;  // the module's full scale
};

constexpr int32_t kStatusProgress = 0;  // op 0, item 0: a plain progress report, value in a5
constexpr int32_t kStatusStart = -2;    // op 0, item -2: the module starts its display, full scale in a4
constexpr int32_t kStatusAskAgain = 2;  // op 2, item 61: the follow-up question after a non-zero answer

// The module reports its work before the coding below half of its scale
// (scaling and depth changes, 20 each on the driver path) and codes from half
// to the whole; its colour reduction itself says nothing. Reports that go
// back (a second band starting again at half, the driver's closing 0) are
// dropped by the bar.
void moduleProgress(StatusState &s, intptr_t value) {
    if (s.bar == nullptr || s.range <= 0) return;
    const double f = static_cast<double>(value) / static_cast<double>(s.range);
    if (f < 0.5) s.bar->advance(kReducing, f / 0.5);
    else s.bar->advance(kCoding, (f - 0.5) / 0.5);
}

int32_t statusCallback(intptr_t hostData, int32_t op, int32_t item, intptr_t a4, intptr_t a5, intptr_t,
                       intptr_t) {
    auto *p = reinterpret_cast<StatusState *>(hostData);
    if (op == kStatusProgress && item == kStatusStart && p != nullptr && a4 > 0) p->range = a4;
    if (op == kStatusProgress && item == 0 && p != nullptr) moduleProgress(*p, a5);
    if ((op == kStatusProgress && item == 0) || op == kStatusAskAgain) return interruptRequested() ? 1 : 0;
    return 0;
}

// ---------------------------------------------------------------- host stream

// The host's own streams, reached by the module through the output callback.
// The module keeps only a 32-bit stream number, so open streams are numbered
// here; the address of the host's stream travels in EXPORT_OPTIONS.FileHandle.
struct HostStream {
    FILE *file = nullptr;
    bool failed = false;
    int error = 0;  // errno of the first failure
};
std::vector<HostStream *> openStreams;

enum : int32_t { kOpen = 1, kRead = 2, kWrite = 3, kSeek = 4, kClose = 5, kExists = 6, kDelete = 7 };

HostStream *streamOf(intptr_t handle) {
    if (handle <= 0 || static_cast<size_t>(handle) > openStreams.size()) return nullptr;
    return openStreams[static_cast<size_t>(handle) - 1];
}

int32_t streamCallback(intptr_t handle, int32_t op, intptr_t arg1, intptr_t arg2) {
    switch (op) {
    case kOpen: {
        // handle: the host's stream given in FileHandle; arg1 the file name
        // (only a label here), arg2 the open flags.
        auto *s = reinterpret_cast<HostStream *>(handle);
        if (s == nullptr || s->file == nullptr) return 0;
        auto slot = std::find(openStreams.begin(), openStreams.end(), nullptr);
        if (slot == openStreams.end()) slot = openStreams.insert(openStreams.end(), nullptr);
        *slot = s;
        return static_cast<int32_t>(slot - openStreams.begin() + 1);
    }
    case kRead: {
        HostStream *s = streamOf(handle);
        if (s == nullptr || arg2 <= 0) return s == nullptr ? -1 : 0;
        return static_cast<int32_t>(std::fread(reinterpret_cast<void *>(arg1), 1, static_cast<size_t>(arg2), s->file));
    }
    case kWrite: {
        HostStream *s = streamOf(handle);
        if (s == nullptr) return -1;
        if (arg2 <= 0) return 0;
        size_t n = std::fwrite(reinterpret_cast<const void *>(arg1), 1, static_cast<size_t>(arg2), s->file);
        if (n != static_cast<size_t>(arg2) && !s->failed) {
            s->failed = true;
            s->error = errno;
        }
        return static_cast<int32_t>(n);
    }
    case kSeek: {
        HostStream *s = streamOf(handle);
        if (s == nullptr || arg1 == 0) return -1;
        int32_t offset;
        std::memcpy(&offset, reinterpret_cast<const void *>(arg1), sizeof offset);
        int whence = arg2 == 1 ? SEEK_CUR : arg2 == 2 ? SEEK_END : SEEK_SET;
        if (arg2 < 0 || arg2 > 2 || fseeko(s->file, offset, whence) != 0) return -1;
        off_t pos = ftello(s->file);
        return pos < 0 || pos > INT32_MAX ? -1 : static_cast<int32_t>(pos);
    }
    case kClose: {
        HostStream *s = streamOf(handle);
        if (s == nullptr) return -1;
        openStreams[static_cast<size_t>(handle) - 1] = nullptr;
        if (std::fflush(s->file) != 0 && !s->failed) {
            s->failed = true;
            s->error = errno;
        }
        return s->failed ? -1 : 0;
    }
    case kExists:
    case kDelete:
    default:
        // Not asked for by a bitmap export; the host names no files to the module.
        return -1;
    }
}

// ---------------------------------------------------------------- setup

class Setup {
public:
    Setup(const ModuleApi &api, const ExportSettings &s) : api_(api) {
        const char *profile = s.profile.empty() ? nullptr : s.profile.c_str();
        const char *mode = s.modeName.empty() ? nullptr : s.modeName.c_str();
        handle_ = api.createSetup(0, profile, mode, nullptr);
        if (handle_ == 0) throw ExportError("the module could not create a setup (out of memory)");
    }
    ~Setup() { api_.destroySetup(handle_); }
    Setup(const Setup &) = delete;
    Setup &operator=(const Setup &) = delete;

    ZHANDLE handle() const { return handle_; }

    // What CreateSetup found: the profile it read and whether the mode's
    // section existed (a loaded mode has an output type).
    bool profileLoaded(std::string &profilePath) const {
        auto *rec = static_cast<Gp4_SetupData *>(api_.globalLock(handle_));
        if (rec == nullptr) return false;
        profilePath.assign(rec->szProfile, strnlen(rec->szProfile, sizeof rec->szProfile));
        bool loaded = rec->szProfile[0] != '\0' && rec->out_type[0] != '\0';
        api_.globalUnlock(handle_);
        return loaded;
    }

    // The sizing fields of the record, as the options left them.
    struct Sizing {
        int32_t sizeMode = 0, resMode = 0;
        int xres = 0, yres = 0;
    };
    Sizing sizing() const {
        Sizing z;
        auto *rec = static_cast<Gp4_SetupData *>(api_.globalLock(handle_));
        if (rec == nullptr) return z;
        z = {rec->SizeMode, rec->ResMode, rec->XResolution, rec->YResolution};
        api_.globalUnlock(handle_);
        return z;
    }

    int32_t escape(int32_t number, int32_t count, void *in, void *out = nullptr) {
        return api_.escapeSetup(handle_, number, count, in, out, 0);
    }

private:
    const ModuleApi &api_;
    ZHANDLE handle_ = 0;
};

std::string inches(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// The fixed resolutions the module knows by mode; any other goes as a user value.
constexpr int kFixedDpi[] = {200, 240, 300, 400, 600, 1200};

void applySettings(Setup &setup, const ExportSettings &s, bool profileLoaded) {
    // Without a profile the module's defaults pair resolution mode 300 with a
    // resolution of 96; the host's own defaults make that 300 and 300.
    std::optional<int> sizeMode = s.sizeMode;
    std::optional<int> dpi = s.dpi;
    if (!profileLoaded) {
        if (!sizeMode) sizeMode = 2;  // user size
        if (!dpi) dpi = 300;
    }
    if (sizeMode) {
        int32_t v = *sizeMode;
        if (setup.escape(ESC_SIZE_MODE, 4, &v) != 1) throw ExportError("the module refused the size mode", 2);
    }
    if (s.width) {
        double v = *s.width;
        if (setup.escape(ESC_WIDTH, 8, &v) != 1)
            throw ExportError("--width " + inches(v) + " is out of range (the module takes 0.03125 to 22 inches)", 2);
    }
    if (s.height) {
        double v = *s.height;
        if (setup.escape(ESC_HEIGHT, 8, &v) != 1)
            throw ExportError("--height " + inches(v) + " is out of range (the module takes 0.03125 to 22 inches)", 2);
    }
    if (dpi) {
        // The header's density field holds four digits.
        if (*dpi > 9999) throw ExportError("--dpi " + std::to_string(*dpi) + " is out of range (1 to 9999)", 2);
        int32_t v[2] = {RES_USER, *dpi};
        int32_t count = 8;
        for (size_t i = 0; i < std::size(kFixedDpi); ++i) {
            if (kFixedDpi[i] == *dpi) {
                v[0] = RES_200 + static_cast<int32_t>(i);
                count = 4;
            }
        }
        if (setup.escape(ESC_RES_MODE, count, v) != 1)
            throw ExportError("--dpi " + std::to_string(*dpi) + " is out of range (the module takes 1 to 32767)", 2);
    }
}

// ---------------------------------------------------------------- output

void checkWritten(AtomicOutput &out, const ExportSettings &s, ExportReport &report, ProgressBar &bar) {
    std::string error;
    WrittenFile file;
    if (!readWritten(out.tempPath(), s.verify, file, error)) throw ExportError(error);
    report.bytes = file.size;
    // In the file way the module writes by name and keeps its errors; a file
    // system that is full is the usual reason for a short file.
    auto failed = [&](const std::string &what) {
        std::string full = s.mode == OutputMode::File ? out.writeFailure() : std::string();
        return ExportError(!full.empty() ? full : what);
    };
    if (file.size <= 2048)
        throw failed("the module wrote no picture (" + std::to_string(file.size) + " bytes)");
    Gp4Header h = parseGp4Header(file.head);
    if (!h.wellFormed || !h.width || !h.height) throw failed("the module's output has no readable header");
    report.width = *h.width;
    report.height = *h.height;
    report.density = h.density.value_or(0);
    if (!s.verify) return;
    // The check decodes with libtiff, from its module.
    if (std::string why; codecEntries(Codec::Tiff, why) == nullptr)
        throw ExportError("the output cannot be checked (" + why + "); nothing was written (--no-verify skips the check)");
    bar.advance(kChecking, 0);
    uint32_t rows = 0;
    const double height = *h.height;
    G4Check c = checkG4(file.coded, *h.width, *h.height, [&](const uint8_t *) {
        bar.advance(kChecking, ++rows / height);
        return true;
    });
    if (!c.decodes)
        throw failed("the module's output does not decode to the " + std::to_string(*h.width) + " x " +
                     std::to_string(*h.height) + " pixels its header states (" + c.problem + "); nothing was written");
    if (c.moreRows)
        throw failed("the module's output holds more rows than the " + std::to_string(*h.height) +
                     " its header states; nothing was written");
}

// The largest size a GP4 header holds.
constexpr int64_t kLargestSide = 65535;

// The picture's resolution as the module is told it: --source-dpi; else the
// one that gives the --width or --height asked for (both: the picture fits
// the box, its aspect kept); else the file's; else, as the field's tools do,
// the output's, so that a picture without a resolution keeps its pixel size.
int pictureDpi(const Setup &setup, const Image &image, const ExportSettings &s) {
    if (s.sourceDpi) return *s.sourceDpi;
    const Setup::Sizing z = setup.sizing();
    if (s.width || s.height) {
        // The module sizes a bitmap from the picture alone: its output box
        // has no effect on one, so other size modes cannot take a size.
        if (z.sizeMode != SIZE_USER)
            throw ExportError("--width and --height size the output in size mode user only; the other size "
                              "modes take the picture's own size",
                              2);
        const double byWidth = s.width ? image.width / *s.width : 0.0;
        const double byHeight = s.height ? image.height / *s.height : 0.0;
        const double dpi = std::round(std::max(byWidth, byHeight));
        if (!(dpi >= 1.0) || dpi > 32767.0)
            throw ExportError("a picture of " + inches(image.width) + " x " + inches(image.height) +
                                  " pixels cannot be given that size (it would need " + inches(dpi) +
                                  " pixels per inch; 1 to 32767 are possible)",
                              2);
        return static_cast<int>(dpi);
    }
    if (image.dpi > 0) return image.dpi;
    return z.xres > 0 ? z.xres : 0;
}

// The picture and the screen as the module's size query and bitmap export
// take them.
zepRasterInfoInput rasterInfo(const Image &image, int srcdpi, const ExportSettings &settings) {
    zepRasterInfoInput ri{};
    ri.dpiscreen = settings.screenDpi;
    ri.dpiprinter = 0;  // no printer on this host
    ri.dpipicture = srcdpi;
    ri.picture_width = static_cast<int32_t>(image.width);
    ri.picture_height = static_cast<int32_t>(image.height);
    ri.screen_width = settings.screenWidth;
    ri.screen_height = settings.screenHeight;
    return ri;
}

// How large the bitmap export will make the picture, by the module's rule for
// bitmaps: in size mode user a picture with a resolution keeps its inches,
// any other picture is taken as points (72 to the inch, its resolution
// dividing first); the output resolution is the setup's, or the picture's
// when the setup has a user resolution. Heights are made even.
void checkOutputSize(const ModuleApi &, Setup &setup, const Image &image, int srcdpi, zepRasterInfoInput &ri,
                     bool quiet) {
    const Setup::Sizing z = setup.sizing();
    const bool userRes = z.resMode == RES_USER && srcdpi != 0;
    const double xres = userRes ? srcdpi : z.xres, yres = userRes ? srcdpi : z.yres;
    double w = image.width, h = image.height;
    if (srcdpi != 0) w /= srcdpi, h /= srcdpi;
    if (!(z.sizeMode == SIZE_USER && srcdpi != 0)) w /= 72.0, h /= 72.0;
    double width = xres > 0 ? std::trunc(w * xres) : std::trunc(w);
    double height = yres > 0 ? std::trunc(h * yres) : std::trunc(h);
    if (z.sizeMode == SIZE_USER && srcdpi != 0) {
        // Here the module's own size query answers with the same rule; its
        // answer, rounded up, stands where it is larger.
        _outdata o{};
        if (setup.escape(ESC_RASTER_INFO, static_cast<int32_t>(sizeof ri), &ri, &o) == 1 && o.width > 0 &&
            o.height > 0) {
            // Its answer is rounded up; beyond that rounding it wins.
            if (o.width > width + 1) width = o.width;
            if (o.height > height + 1) height = o.height;
        }
    }
    if (height >= 1) height = std::ceil(height / 2) * 2;
    auto size = [&] { return inches(width) + " x " + inches(height); };
    if (!quiet && width >= 1 && height >= 1 && (width < image.width / 8.0 || height < image.height / 8.0)) {
        breakProgressLine();
        std::fprintf(stderr, "mivo4: warning: the output will be %s pixels, less than an eighth of the picture's "
                             "%u x %u (size mode and resolutions)\n",
                     size().c_str(), image.width, image.height);
    }
    if (width < 1 || height < 1)
        throw ExportError("the output would be " + size() + " pixels (" + inches(image.width) + " x " +
                          inches(image.height) + " pixels at " + std::to_string(srcdpi) + " dpi to " +
                          inches(xres) + " dpi); choose a higher --dpi or a lower --source-dpi");
    if (width > kLargestSide || height > kLargestSide)
        throw ExportError("the output would be " + size() + " pixels; a GP4 file holds at most " +
                          std::to_string(kLargestSide) + " x " + std::to_string(kLargestSide) +
                          "; choose a lower --dpi or a higher --source-dpi");
}

// A profile is read by name: anything but a regular file (a device, a FIFO)
// would be read without end.
void checkProfile(const std::string &profile) {
    std::vector<std::string> candidates{profile};
    if (profile.find('/') == std::string::npos)
        if (const char *dir = std::getenv("INIDIR"); dir != nullptr && dir[0] != '\0')
            candidates.push_back(std::string(dir) + "/" + profile);
    for (const std::string &c : candidates) {
        struct stat st;
        if (stat(c.c_str(), &st) != 0) continue;
        if (!S_ISREG(st.st_mode))
            throw ExportError(c + ": not a regular file; a profile must be a file");
        return;
    }
}

// What the module says of the export it just made, in a user's words; empty
// for a complete one or when the module cannot say.
std::string exportStatusProblem(const ModuleApi &api) {
    if (api.getLastExportStatus == nullptr) return {};
    switch (api.getLastExportStatus()) {
    case MIVO4_EXPORT_COMPLETE: return {};
    case MIVO4_EXPORT_STOPPED: return "the export was stopped before the picture was complete";
    case MIVO4_EXPORT_WRITE_FAILED: return "the module could not write the output";
    case MIVO4_EXPORT_NO_MEMORY: return "the module ran out of memory; the output would be incomplete";
    case MIVO4_EXPORT_NOTHING: return "the module wrote no picture (nothing to write, or a size a GP4 file cannot hold)";
    case MIVO4_EXPORT_NONE: return "the module says no export ran";
    default: return "the module reports an unknown export status " + std::to_string(api.getLastExportStatus());
    }
}

}  // namespace

bool exportInterrupted() { return interruptRequested(); }

size_t memoryOutputLength(const uint8_t *data, size_t size) {
    size_t n = size;
    while (n > 0 && data[n - 1] == 0) --n;
    if (n == 0 || data[n - 1] != 0xFF) return SIZE_MAX;
    return n - 1;
}

ExportReport runExport(const Module &module, const ExportSettings &settings, AtomicOutput &out,
                       const ModuleSender &send, bool checkPicture, const Image *picture, int *srcdpi) {
    const ModuleApi &api = module.api();
    if (!settings.profile.empty()) checkProfile(settings.profile);
    Setup setup(api, settings);
    std::string profilePath;
    bool loaded = setup.profileLoaded(profilePath);
    if (!settings.profile.empty() && profilePath.empty())
        throw ExportError(settings.profile + ": profile not found (looked in $INIDIR and beside the given name)");
    if (!settings.profile.empty() && !loaded)
        throw ExportError(profilePath + ": no mode \"" + settings.modeName + "\" in this profile");
    applySettings(setup, settings, loaded);
    if (settings.mode == OutputMode::Callback) {
        // The callback itself is the escape's data pointer.
        if (setup.escape(ESC_OUTPUT_CALLBACK, 4, reinterpret_cast<void *>(&streamCallback)) != 1)
            throw ExportError("the module refused the output callback");
    }
    if (picture != nullptr && srcdpi != nullptr) {
        *srcdpi = pictureDpi(setup, *picture, settings);
        zepRasterInfoInput ri = rasterInfo(*picture, *srcdpi, settings);
        checkOutputSize(api, setup, *picture, *srcdpi, ri, settings.quiet);
    }

    // A caller without a bar of its own (a replay) gets one for the stages run here.
    std::optional<ProgressBar> ownBar;
    ProgressBar *bar = settings.progressBar;
    if (bar == nullptr) {
        bar = &ownBar.emplace(progressShown(settings.progress), exportStages());
        bar->skip(kReading);
    }
    if (!checkPicture || !settings.verify) bar->skip(kChecking);
    bar->advance(kReducing, 0);
    StatusState status{bar};
    HostStream hostStream{out.stream(), false};
    EXPORT_OPTIONS x{};
    x.Version = 1;
    x.GetSet_Status = statusCallback;
    x.hDialog = reinterpret_cast<intptr_t>(&status);
    x.FileHandle = reinterpret_cast<intptr_t>(&hostStream);

    std::string name;
    if (settings.mode == OutputMode::File) {
        // The module writes the temporary file itself, by name: the empty
        // file is closed, not synced (its bytes are, before the commit).
        if (!out.closeStream(false)) throw ExportError(out.error());
        name = out.tempPath();
    } else if (settings.mode == OutputMode::Callback) {
        name = out.destination();  // a label only: the callback writes the host's stream
    }

    clearInterruptRequest();
    setGentleInterrupt(true);
    int32_t rc = 0;
    try {
        rc = send(setup.handle(), name, x);
    } catch (...) {
        setGentleInterrupt(false);
        throw;
    }
    setGentleInterrupt(false);

    // The memory way: the block's handle comes back in hMF.
    struct Block {
        const ModuleApi &api;
        ZHANDLE h;
        ~Block() {
            if (h != 0) {
                api.globalUnlock(h);
                api.globalFree(h);
            }
        }
    } block{api, settings.mode == OutputMode::Memory ? x.hMF : 0};

    if (interruptRequested()) throw ExportError("stopped by the user", 130);
    if (rc != 0)
        throw ExportError(rc == 303   ? "the module could not open or close its output for " + out.destination()
                          : rc == 300 ? "the module ran out of memory (code 300)"
                          : rc == 901 ? "the export was stopped (code 901)"
                                      : "the module's export failed with code " + std::to_string(rc));
    // The host's own stream knows the cause of a failed write best.
    if (settings.mode == OutputMode::Callback && hostStream.failed)
        throw ExportError(out.destination() + ": cannot write: " + errorText(hostStream.error));
    if (checkPicture) {
        if (std::string problem = exportStatusProblem(api); !problem.empty()) {
            std::string full = settings.mode == OutputMode::File ? out.writeFailure() : std::string();
            throw ExportError(!full.empty() ? full : problem + "; nothing was written");
        }
    }
    if (settings.mode == OutputMode::Memory) {
        if (block.h == 0) throw ExportError("the module handed back no memory block");
        auto *data = static_cast<const uint8_t *>(api.globalLock(block.h));
        size_t size = api.globalSize(block.h);
        size_t length = data == nullptr ? SIZE_MAX : memoryOutputLength(data, size);
        if (length == SIZE_MAX) throw ExportError("the module's memory block has no end marker");
        if (std::fwrite(data, 1, length, out.stream()) != length || std::fflush(out.stream()) != 0)
            throw ExportError(out.destination() + ": cannot write: " + errorText(errno));
    } else if (settings.mode == OutputMode::Callback) {
        if (hostStream.failed || std::fflush(out.stream()) != 0)
            throw ExportError(out.destination() + ": cannot write: " + errorText(errno));
    }
    if (!out.closeStream()) throw ExportError(out.error());

    ExportReport report;
    if (checkPicture) checkWritten(out, settings, report, *bar);
    bar->finish();
    return report;
}

ExportReport exportImage(const Module &module, ModuleMemory &memory, const Image &original,
                         const ExportSettings &settings, AtomicOutput &out) {
    // A one-bit picture goes out as it is: nothing to reduce, the coding is next.
    if (settings.progressBar != nullptr)
        settings.progressBar->advance(original.depth == 1 ? kCoding : kReducing, 0);
    // The host's own one-bit conversions hand the module a one-bit picture,
    // which it passes through unchanged.
    Image converted;
    if (settings.tones != Tones::Module) {
        try {
            converted = toOneBit(original, settings.tones, settings.thresholdPercent, memory.allocator());
        } catch (const ReadError &e) {
            throw ExportError(e.what());
        }
    }
    const Image &image = settings.tones != Tones::Module ? converted : original;
    int srcdpi = 0;  // worked out once the setup is made
    if (settings.via == Via::Gdp) {
        return runExport(module, settings, out, [&](ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &x) {
            return sendThroughDriver(module, image, srcdpi, settings, setup, name, x);
        }, true, &image, &srcdpi);
    }
    const ModuleApi &api = module.api();
    if (api.exportCellData == nullptr)
        throw ExportError(module.path() + ": this module has no bitmap export (its ExportCellData entry is empty)");

    // The picture as the module's bitmap record.
    ZEPRaster r{};
    r.depth = static_cast<uint16_t>(image.depth);
    r.cx = static_cast<uint16_t>(image.width);
    r.cy = static_cast<uint16_t>(image.height);
    r.hBuffer = memory.handleOf(image.pixels);
    if (r.hBuffer == 0) throw ExportError("internal error: the picture is not in the module's memory");
    if (!image.palette.empty()) {
        auto *table = memory.allocate(image.palette.size() * 3);
        if (table == nullptr) throw ExportError("not enough memory for the colour table");
        for (size_t i = 0; i < image.palette.size(); ++i) {
            table[3 * i] = image.palette[i].red;
            table[3 * i + 1] = image.palette[i].green;
            table[3 * i + 2] = image.palette[i].blue;
        }
        r.hColorTable = memory.handleOf(table);
    }
    zepRasterInfoInput ri{};
    return runExport(module, settings, out, [&](ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &x) {
        ri = rasterInfo(image, srcdpi, settings);
        IMPORT_OPTIONS imp{};
        imp.Version = 1;
        imp.hOutputData = setup;
        imp.lpExport = &x;
        return api.exportCellData(name.c_str(), &r, &ri, &imp);
    }, true, &image, &srcdpi);
}

}  // namespace mivo4::host
