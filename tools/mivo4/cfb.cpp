#include "cfb.h"

#include <mivo4/docfile.h>
#include <mivo4/stream.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "module.h"
#include "progress.h"

namespace mivo4::host {

namespace {

const char kCfbUsage[] =
    "usage: mivo4 cfb list FILE           the storages and streams of a compound document\n"
    "       mivo4 cfb cat FILE STREAM     write one stream (a path like Pictures/Page1) to standard output\n";

std::string reason(int32_t result) {
    switch (result) {
    case DOC_E_OPEN: return "cannot be opened";
    case DOC_E_NOTDOC: return "is not a compound document";
    case DOC_E_VERSION: return "is a compound document of a version the module does not read (4096-byte sectors)";
    case DOC_E_FAT: return "is damaged: its allocation table is";
    case DOC_E_DIRECTORY: return "is damaged: its directory is";
    case DOC_E_CHAIN: return "is damaged: the stream's sector chain is";
    case DOC_E_MINI: return "is damaged: its mini stream is";
    case DOC_E_NOTFOUND: return "has no such stream";
    case DOC_E_NOTSTREAM: return "names a storage, not a stream, with";
    case DOC_E_NOMEM: return "needs more memory than there is";
    case DOC_E_TOOLARGE: return "holds a stream of 2 GiB or more, which the module does not read:";
    default: return "cannot be read (result " + std::to_string(result) + ")";
    }
}

// The module's document routines, found by name as any host finds them.
struct DocApi {
    decltype(&docOpenStream) open = nullptr;
    decltype(&docListEntries) list = nullptr;
    decltype(&zepRead) read = nullptr;
    decltype(&zepClose) close = nullptr;
};

int list(const DocApi &api, const std::string &file) {
    int32_t r = api.list(
        file.c_str(),
        [](const char *path, int32_t type, uint32_t size, void *) -> int32_t {
            if (type == DOC_ENTRY_STORAGE)
                std::printf("storage  %10s  %s/\n", "-", path);
            else
                std::printf("stream   %10u  %s\n", size, path);
            return 0;
        },
        nullptr);
    if (r != DOC_OK) return fail(file + ": " + reason(r));
    if (std::fflush(stdout) != 0) return fail(std::string("standard output: ") + std::strerror(errno));
    return 0;
}

int cat(const DocApi &api, const std::string &file, const std::string &stream) {
    int32_t r = 0;
    HZEPIO h = api.open(file.c_str(), stream.c_str(), &r);
    if (h == 0) {
        std::string why = reason(r);
        bool aboutStream = r == DOC_E_NOTFOUND || r == DOC_E_NOTSTREAM || r == DOC_E_CHAIN || r == DOC_E_TOOLARGE;
        return fail(file + ": " + why + (aboutStream ? " \"" + stream + "\"" : ""));
    }
    static char buffer[1 << 16];
    int code = 0;
    for (;;) {
        int32_t got = api.read(h, buffer, sizeof buffer);
        if (got < 0) {
            code = fail(file + ": reading \"" + stream + "\" failed");
            break;
        }
        if (got == 0) break;
        if (std::fwrite(buffer, 1, static_cast<size_t>(got), stdout) != static_cast<size_t>(got)) {
            code = fail(std::string("standard output: ") + std::strerror(errno));
            break;
        }
    }
    api.close(h);
    if (code == 0 && std::fflush(stdout) != 0) code = fail(std::string("standard output: ") + std::strerror(errno));
    return code;
}

}  // namespace

int cfbCommand(const std::string &modulePath, const std::vector<std::string> &args) {
    const bool isList = !args.empty() && args[0] == "list" && args.size() == 2;
    const bool isCat = !args.empty() && args[0] == "cat" && args.size() == 3;
    if (!isList && !isCat) {
        std::fputs(kCfbUsage, stderr);
        return 2;
    }
    Module module;
    if (!module.open(modulePath)) return fail("cannot load the module " + modulePath + ": " + module.error());
    DocApi api;
    api.open = reinterpret_cast<decltype(api.open)>(module.symbol("docOpenStream"));
    api.list = reinterpret_cast<decltype(api.list)>(module.symbol("docListEntries"));
    api.read = reinterpret_cast<decltype(api.read)>(module.symbol("zepRead"));
    api.close = reinterpret_cast<decltype(api.close)>(module.symbol("zepClose"));
    if (api.open == nullptr || api.list == nullptr || api.read == nullptr || api.close == nullptr)
        return fail(modulePath + ": the module cannot read compound documents");
    return isList ? list(api, args[1]) : cat(api, args[1], args[2]);
}

}  // namespace mivo4::host
