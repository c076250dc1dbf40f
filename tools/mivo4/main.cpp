// mivo4: command-line host of the mivo42.flt export filter.
#include <mivo4/filter.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "module.h"

namespace {

void usage(FILE *to) {
    std::fputs(
        "usage: mivo4 [--module PATH] info\n"
        "  info    load the module and print its entry table and version\n",
        to);
}

int info(const mivo4::host::Module &module) {
    const FLTPOINTERS &t = module.table();
    std::printf("module: %s\n", module.path().c_str());
    auto version = reinterpret_cast<uint32_t (*)(void)>(module.entry("ZEPGetFilterVersion"));
    if (version != nullptr) std::printf("version: 0x%08X\n", version());
    std::printf("entries: %u\n", t.wCount);
    for (uint16_t i = 0; i < t.wCount; ++i) {
        const FLTENTRY &e = t.lpEntries[i];
        std::printf("  %-20s %5u  %s\n", e.lpszName, e.wId,
                    e.lpTarget != nullptr ? "present" : "not available");
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    std::string modulePath = mivo4::host::defaultModulePath(argv[0]);
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (std::strcmp(argv[i], "--module") == 0 && i + 1 < argc) {
            modulePath = argv[++i];
        } else if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return 0;
        } else {
            std::fprintf(stderr, "mivo4: unknown option %s\n", argv[i]);
            usage(stderr);
            return 2;
        }
    }
    std::string command = i < argc ? argv[i] : "info";
    mivo4::host::Module module;
    if (!module.open(modulePath)) {
        std::fprintf(stderr, "mivo4: cannot load %s: %s\n", modulePath.c_str(), module.error().c_str());
        return 1;
    }
    if (command == "info") return info(module);
    std::fprintf(stderr, "mivo4: unknown command %s\n", command.c_str());
    usage(stderr);
    return 2;
}
