// The picture libraries' parts loaded by the program the first time a job
// needs one: mivo4-png.so, mivo4-jpeg.so and mivo4-tiff.so from where the
// module is installed (or beside the program in a build tree), or from the
// directory $MIVO4_CODECS.
#include <dlfcn.h>

#include <cstdlib>
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
    static Loaded png, jpeg, tiff;
    Loaded &l = which == Codec::Png ? png : which == Codec::Jpeg ? jpeg : tiff;
    const char *name = which == Codec::Png ? "mivo4-png.so" : which == Codec::Jpeg ? "mivo4-jpeg.so" : "mivo4-tiff.so";
    const char *entry = which == Codec::Png    ? "mivo4PngEntries"
                        : which == Codec::Jpeg ? "mivo4JpegEntries"
                                               : "mivo4TiffEntries";
    std::call_once(l.once, [&] { load(l, name, entry); });
    if (l.table == nullptr) why = l.problem;
    return l.table;
}

}  // namespace mivo4::host
