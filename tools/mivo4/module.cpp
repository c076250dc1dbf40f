#include "module.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace mivo4::host {

Module::~Module() {
    if (handle_ != nullptr && !keep_) dlclose(handle_);
}

namespace {

template <class F>
bool bind(F &slot, void *target) {
    slot = reinterpret_cast<F>(target);
    return target != nullptr;
}

}  // namespace

bool Module::open(const std::string &path) {
    path_ = path;
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char *why = dlerror();
        error_ = why != nullptr ? why : "dlopen failed";
        return false;
    }
    auto load = reinterpret_cast<void (*)(FLTPOINTERS *)>(dlsym(handle_, "fltLoadPointers"));
    if (load == nullptr) {
        error_ = path + ": no fltLoadPointers entry";
        return false;
    }
    load(&table_);
    if (table_.lpEntries == nullptr || table_.wCount == 0) {
        error_ = path + ": empty entry table";
        return false;
    }
    // Tell the module where it was loaded from, as a host does.
    if (auto *name = static_cast<char *>(entry("szDLLName"))) {
        char resolved[PATH_MAX];
        const char *full = realpath(path.c_str(), resolved) != nullptr ? resolved : path.c_str();
        size_t n = std::min<size_t>(std::strlen(full), 259);
        std::memcpy(name, full, n);
        name[n] = '\0';
    }
    const char *missing = nullptr;
    if (!bind(api_.createSetup, entry("CreateSetup"))) missing = "CreateSetup";
    else if (!bind(api_.destroySetup, entry("DestroySetup"))) missing = "DestroySetup";
    else if (!bind(api_.editSetup, entry("EditSetup"))) missing = "EditSetup";
    else if (!bind(api_.escapeSetup, entry("EscapeSetup"))) missing = "EscapeSetup";
    else if (!bind(api_.globalAlloc, symbol("GlobalAlloc"))) missing = "GlobalAlloc";
    else if (!bind(api_.globalLock, symbol("GlobalLock"))) missing = "GlobalLock";
    else if (!bind(api_.globalUnlock, symbol("GlobalUnlock"))) missing = "GlobalUnlock";
    else if (!bind(api_.globalFree, symbol("GlobalFree"))) missing = "GlobalFree";
    else if (!bind(api_.globalSize, symbol("GlobalSize"))) missing = "GlobalSize";
    if (missing != nullptr) {
        error_ = path + ": the module has no " + missing;
        return false;
    }
    bind(api_.exportCellData, entry("ExportCellData"));
    bind(api_.getLastExportStatus, symbol("GetLastExportStatus"));
    return true;
}

void *Module::entry(const char *name) const {
    for (uint16_t i = 0; i < table_.wCount; ++i) {
        if (std::strcmp(table_.lpEntries[i].lpszName, name) == 0) return table_.lpEntries[i].lpTarget;
    }
    return nullptr;
}

void *Module::symbol(const char *name) const {
    return handle_ != nullptr ? dlsym(handle_, name) : nullptr;
}

#ifndef MIVO4_MODULE_FROM_BIN
#define MIVO4_MODULE_FROM_BIN "../lib/mivo4"
#endif

std::string installedFile(const char *variable, const char *name, const char *argv0) {
    if (const char *env = variable != nullptr ? std::getenv(variable) : nullptr; env != nullptr && env[0] != '\0')
        return env;
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir;
    if (n > 0) {
        self[n] = '\0';
        dir = self;
    } else if (argv0 != nullptr) {
        dir = argv0;
    }
    auto slash = dir.rfind('/');
    dir = slash == std::string::npos ? std::string(".") : dir.substr(0, slash);
    // Installed, the module's files live in PREFIX/lib/mivo4 beside
    // PREFIX/bin; in a build tree, beside the program.
    const std::string installed = dir + "/" MIVO4_MODULE_FROM_BIN "/" + name;
    char resolved[PATH_MAX];
    if (realpath(installed.c_str(), resolved) != nullptr) return resolved;
    return dir + "/" + name;
}

std::string defaultModulePath(const char *argv0) { return installedFile("MIVO4_MODULE", "mivo42.flt", argv0); }

}  // namespace mivo4::host
