// One bitmap export through the module, the way a host application does it:
// a setup from the entry table, options through option escapes, the picture
// as a ZEPRaster in the module's memory, then "ExportCellData".
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "image.h"
#include "module.h"
#include "outfile.h"

namespace mivo4::host {

enum class OutputMode { File, Memory, Callback };

struct ExportSettings {
    std::optional<int> sizeMode;  // escape 19's value: 0 screen, 1 printer, 2 user, 3 picture
    std::optional<double> width, height;  // inches
    std::optional<int> dpi;
    std::optional<int> sourceDpi;  // else the picture's own
    int screenWidth = 1280, screenHeight = 1078, screenDpi = 96;
    OutputMode mode = OutputMode::File;
    bool progress = false;
    bool verify = true;  // decode the whole result before it is put in place
    std::string profile, modeName;
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

// The length of the file in a memory-way block: the block holds the data,
// one 0xFF end byte and zero fill, so zeros are stripped from the end, then
// the one end byte (zeros before it belong to the data). SIZE_MAX when the
// block has no end byte.
size_t memoryOutputLength(const uint8_t *data, size_t size);

// Whether the user asked to stop (Ctrl-C) during the last export.
bool exportInterrupted();

}  // namespace mivo4::host
