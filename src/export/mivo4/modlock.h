// One lock for the whole module. The current setup, the coder's band state in
// it, the sink's picture state and the stream and memory tables are shared by
// every call, so the entries that export or touch setups run one at a time:
// a host exporting from several threads gets each file as a lone export would
// write it. Recursive, because entries call one another (an escape answers
// through GetRasterInfo, CreateSetup loads a profile).
#pragma once

#include <mutex>

namespace mivo4 {

std::recursive_mutex &ModuleMutex();

class ModuleLock {
public:
    ModuleLock() : guard_(ModuleMutex()) {}

private:
    std::lock_guard<std::recursive_mutex> guard_;
};

}  // namespace mivo4
