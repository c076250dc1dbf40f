// The picture libraries' parts loaded by the program the first time a job
// needs one: mivo4-png.so, mivo4-jpeg.so and mivo4-tiff.so from where the
// module is installed (or beside the program in a build tree), or from the
// directory $MIVO4_CODECS.
#include <dlfcn.h>

#include <cstdlib>
#include <iterator>
#include <mutex>

#include "codecs.h"
#include "module.h"

namespace mivo4::host {

namespace {

struct Loaded {
    std::once_flag once;
    const CodecEntries *table = nullptr;
    std::string problem;
};

void load(Loaded &l, const char *name, const char *entryName) {
    const char *dir = std::getenv("MIVO4_CODECS");
    const std::string path =
        dir != nullptr && dir[0] != '\0' ? std::string(dir) + "/" + name : installedFile(nullptr, name);
    // Kept loaded for the rest of the process: the readers' pictures and
    // writers may outlive any one call.
    void *module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        const char *error = dlerror();
        l.problem = "cannot load the picture libraries: " + std::string(error != nullptr ? error : path);
        return;
    }
    auto entry = reinterpret_cast<const CodecEntries *(*)()>(dlsym(module, entryName));
    const CodecEntries *t = entry != nullptr ? entry() : nullptr;
    if (t == nullptr || t->size != sizeof(CodecEntries)) {
        l.problem = path + ": not the picture libraries of this mivo4";
        return;
    }
    l.table = t;
}

}  // namespace

const CodecEntries *codecEntries(Codec which, std::string &why) {
    // In the order of Codec.
    static constexpr struct {
        const char *file, *entry;
    } kModules[] = {{"mivo4-png.so", "mivo4PngEntries"},
                    {"mivo4-jpeg.so", "mivo4JpegEntries"},
                    {"mivo4-tiff.so", "mivo4TiffEntries"}};
    static Loaded loaded[std::size(kModules)];
    const auto i = static_cast<size_t>(which);
    Loaded &l = loaded[i];
    std::call_once(l.once, [&] { load(l, kModules[i].file, kModules[i].entry); });
    if (l.table == nullptr) why = l.problem;
    return l.table;
}

}  // namespace mivo4::host
