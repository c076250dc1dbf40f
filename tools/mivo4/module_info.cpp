#include "module_info.h"

#include <mivo4/version.h>

#include <cstdio>

#include "module.h"

namespace mivo4::host {

int moduleInfoCommand(const std::string &modulePath) {
    Module module;
    if (!module.open(modulePath)) {
        std::fprintf(stderr, "mivo4: cannot load the module %s: %s\n", modulePath.c_str(), module.error().c_str());
        return 1;
    }
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

int versionCommand(const std::string &modulePath) {
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

}  // namespace mivo4::host
