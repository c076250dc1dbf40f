// Opening mivo42.flt the way any host does: dlopen, fltLoadPointers, names.
#pragma once

#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <string>

namespace mivo4::host {

// The routines a bitmap export needs. The setup calls come from the entry
// table, as a host's filter framework takes them; the memory calls are the
// module's exported names, since blocks handed to the module (pixels, colour
// tables) and blocks it hands back (the memory output) live in its allocator.
struct ModuleApi {
    decltype(&CreateSetup) createSetup = nullptr;
    decltype(&DestroySetup) destroySetup = nullptr;
    decltype(&EditSetup) editSetup = nullptr;
    decltype(&xEscapeSetup) escapeSetup = nullptr;
    decltype(&ExportCellData) exportCellData = nullptr;  // null until the module has it
    decltype(&GlobalAlloc) globalAlloc = nullptr;
    decltype(&GlobalLock) globalLock = nullptr;
    decltype(&GlobalUnlock) globalUnlock = nullptr;
    decltype(&GlobalFree) globalFree = nullptr;
    decltype(&GlobalSize) globalSize = nullptr;
    // How the last export ended (MIVO4_EXPORT_*); null for a module that
    // cannot say, whose exports are judged by their output alone.
    int32_t (*getLastExportStatus)(void) = nullptr;
};

class Module {
public:
    Module() = default;
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;
    ~Module();

    // Opens the module at path and asks it for its entry table; on failure
    // returns false and error() says why.
    bool open(const std::string &path);
    const std::string &error() const { return error_; }
    const std::string &path() const { return path_; }

    const FLTPOINTERS &table() const { return table_; }
    // The target of the entry named name, or null.
    void *entry(const char *name) const;
    // An exported symbol looked up by name, or null.
    void *symbol(const char *name) const;

    // Every routine the module must offer for a bitmap export except
    // ExportCellData, which may be absent (api().exportCellData null).
    const ModuleApi &api() const { return api_; }

    // Keeps the module loaded until the process ends. The module's handle
    // table lives as long as the module does; a host that still holds blocks
    // of it (a test reading back a memory output) must not unload it.
    void keepLoaded() { keep_ = true; }

private:
    void *handle_ = nullptr;
    bool keep_ = false;
    FLTPOINTERS table_{};
    ModuleApi api_{};
    std::string path_;
    std::string error_;
};

// Where the host looks for the module: $MIVO4_MODULE, else the installed
// module (lib/mivo4/mivo42.flt beside the bin directory of the executable),
// else mivo42.flt beside the executable (a build tree).
std::string defaultModulePath(const char *argv0);

// Where a file installed with the module is: $variable when set (a null
// variable is never set), else PREFIX/lib/mivo4/name for an installed
// program, else name beside the program (a build tree).
std::string installedFile(const char *variable, const char *name, const char *argv0 = nullptr);

}  // namespace mivo4::host
