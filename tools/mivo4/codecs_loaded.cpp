// The picture libraries' parts loaded by the program the first time a job
// needs one: mivo4-codecs.so from where the module is installed (or beside
// the program in a build tree), or $MIVO4_CODECS.
#include <dlfcn.h>

#include <mutex>

#include "codecs.h"
#include "module.h"

namespace mivo4::host {

const CodecEntries *codecEntries(std::string &why) {
    static std::once_flag once;
    static const CodecEntries *table = nullptr;
    static std::string problem;
    std::call_once(once, [] {
        const std::string path = installedFile("MIVO4_CODECS", "mivo4-codecs.so");
        // Kept loaded for the rest of the process: the readers' pictures and
        // writers may outlive any one call.
        void *module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) {
            const char *error = dlerror();
            problem = "cannot load the picture libraries: " + std::string(error != nullptr ? error : path);
            return;
        }
        auto entry = reinterpret_cast<const CodecEntries *(*)()>(dlsym(module, "mivo4CodecEntries"));
        const CodecEntries *t = entry != nullptr ? entry() : nullptr;
        if (t == nullptr || t->size != sizeof(CodecEntries)) {
            problem = path + ": not the picture libraries of this mivo4";
            return;
        }
        table = t;
    });
    if (table == nullptr) why = problem;
    return table;
}

}  // namespace mivo4::host
