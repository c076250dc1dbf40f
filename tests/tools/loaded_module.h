// The module opened once and kept, as a host keeps a filter it has opened.
#pragma once

#include <gtest/gtest.h>

#include "module.h"

namespace toolstest {

inline const mivo4::host::Module &loadedModule() {
    static mivo4::host::Module *m = [] {
        auto *mod = new mivo4::host::Module;
        if (!mod->open(MIVO4_MODULE_PATH)) ADD_FAILURE() << mod->error();
        mod->keepLoaded();
        return mod;
    }();
    return *m;
}

}  // namespace toolstest
