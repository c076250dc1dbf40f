#include "export/mivo4/modlock.h"

namespace mivo4 {

std::recursive_mutex &ModuleMutex() {
    static std::recursive_mutex m;
    return m;
}

}  // namespace mivo4
