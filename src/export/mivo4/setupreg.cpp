#include "export/mivo4/setupreg.h"

#include <mivo4/memory.h>

#include <algorithm>
#include <new>
#include <vector>

namespace mivo4::setup {

namespace {
std::vector<ZHANDLE> &live() {
    static std::vector<ZHANDLE> handles;
    return handles;
}
}  // namespace

bool Register(ZHANDLE h) {
    try {
        live().push_back(h);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void Forget(ZHANDLE h) {
    auto &v = live();
    v.erase(std::remove(v.begin(), v.end(), h), v.end());
}

bool IsSetup(ZHANDLE h) {
    if (h == 0) return false;
    const auto &v = live();
    if (std::find(v.begin(), v.end(), h) == v.end()) return false;
    return GlobalSize(h) >= sizeof(Gp4_SetupData);
}

Gp4_SetupData *Lock(ZHANDLE h) {
    if (!IsSetup(h)) return nullptr;
    return static_cast<Gp4_SetupData *>(GlobalLock(h));
}

}  // namespace mivo4::setup
