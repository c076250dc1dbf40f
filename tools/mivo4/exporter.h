// One bitmap export through the module, the way a host application does it:
// a setup from the entry table, options through option escapes, the picture
// as a ZEPRaster in the module's memory, then "ExportCellData".
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "image.h"
#include "module.h"
#include "outfile.h"
#include "tones.h"

namespace mivo4::host {

class ProgressBar;

enum class OutputMode { File, Memory, Callback };
// How the picture reaches the module: as a bitmap (ExportCellData) or as
// drawing elements sent to its raster driver (an image bracket of cell arrays).
enum class Via { Bitmap, Gdp };

struct ExportSettings {
    std::optional<int> sizeMode;  // escape 19's value: 0 screen, 1 printer, 2 user, 3 picture
    std::optional<double> width, height;  // inches
    std::optional<int> dpi;
    std::optional<int> sourceDpi;  // else the picture's own
    int screenWidth = 1280, screenHeight = 1078, screenDpi = 96;
    OutputMode mode = OutputMode::File;
    // A bar on standard error: forced on (--progress) or off (--no-progress),
    // else drawn only when standard error is a terminal.
    std::optional<bool> progress;
    // The bar of the whole job when the caller keeps one (ExportProgress);
    // else the export draws its own for the stages it runs.
    ProgressBar *progressBar = nullptr;
    bool quiet = false;  // no warnings
    bool verify = true;  // decode the whole result before it is put in place
    std::string profile, modeName;
    Via via = Via::Bitmap;
    Tones tones = Tones::Module;  // who makes the one-bit picture
    int thresholdPercent = 50;    // for Tones::Threshold
    int rowsPerElement = 64;  // rows of one cell array on the driver path
    std::string tracePath;    // record the elements sent to the driver here
    uint32_t page = 0;        // the page of a multi-page picture, from 1; 0: page 1, or all for OUTPUT with %d
    bool orient = true;       // turn the picture upright as its file's orientation says
    // Called on the driver path once every row has been sent, when the host
    // no longer needs its picture (the driver holds its own copy).
    std::function<void()> pictureSent;
};

// A failed export; exitCode 2 for options the module refused, else 1.
struct ExportError : std::runtime_error {
    ExportError(const std::string &what, int code = 1) : std::runtime_error(what), exitCode(code) {}
    int exitCode;
};

// Blocks of the module's allocator handed out to readers, freed together.
class ModuleMemory {
public:
    explicit ModuleMemory(const ModuleApi &api) : api_(api) {}
    ModuleMemory(const ModuleMemory &) = delete;
    ModuleMemory &operator=(const ModuleMemory &) = delete;
    ~ModuleMemory();
    // A zero-filled block, locked; null when the module has no memory for it.
    uint8_t *allocate(size_t bytes);
    // The handle of a block this object gave out, 0 if none.
    ZHANDLE handleOf(const void *pointer) const;
    // Frees a block this object gave out before the others.
    void release(const void *pointer);
    PixelAllocator allocator() {
        return [this](size_t n) { return allocate(n); };
    }

private:
    const ModuleApi &api_;
    std::vector<std::pair<ZHANDLE, uint8_t *>> blocks_;
};

struct ExportReport {
    uint32_t width = 0, height = 0, density = 0;  // from the written header
    uint64_t bytes = 0;
};

// Exports image (its pixels given out by memory) into out, which must be
// open; commits nothing: the caller commits or abandons. Throws ExportError.
ExportReport exportImage(const Module &module, ModuleMemory &memory, const Image &image,
                         const ExportSettings &settings, AtomicOutput &out);

// The module's side of one export: with the setup made from the settings,
// the name the module writes to ("" for the memory way) and the export
// options, hand the picture over; answers the module's result (0 done).
using ModuleSender = std::function<int32_t(ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &options)>;

// One export into out through `send`: makes the setup from the settings,
// works out the picture's resolution into *srcdpi (when a picture is given),
// refuses a picture whose output a GP4 file cannot hold, runs the sender under the host's progress display and Ctrl-C
// handling, collects the output of every way into out and checks it (the
// module's export status and a whole GP4 picture, unless checkPicture is
// false). Throws ExportError.
ExportReport runExport(const Module &module, const ExportSettings &settings, AtomicOutput &out,
                       const ModuleSender &send, bool checkPicture = true, const Image *picture = nullptr,
                       int *srcdpi = nullptr);

// The length of the file in a memory-way block: the block holds the data,
// one 0xFF end byte and zero fill, so zeros are stripped from the end, then
// the one end byte (zeros before it belong to the data). SIZE_MAX when the
// block has no end byte.
size_t memoryOutputLength(const uint8_t *data, size_t size);

// Whether the user asked to stop (Ctrl-C) during the last export.
bool exportInterrupted();

}  // namespace mivo4::host
