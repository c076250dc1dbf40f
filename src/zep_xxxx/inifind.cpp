// Finding profile files: directly, or in the directory named by INIDIR.
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "zep_xxxx/iniload.h"
#include "zep_xxxx/text.h"

namespace {

constexpr size_t kProfileNameSize = 144;

// Only a regular file (or a name that does not exist yet) is opened as a
// profile: a device or a FIFO is never read or written as one.
bool profileOrNothing(const char *path) {
    struct stat st;
    return stat(path, &st) != 0 || S_ISREG(st.st_mode);
}

}  // namespace

HZEPIO INIopen(char *name, uint32_t resolvedSize, uint32_t flags) {
    if (name == nullptr || name[0] == '\0') return 0;
    if (profileOrNothing(name))
        if (HZEPIO h = zepOpen(name, nullptr, flags)) return h;
    std::string path = mivo4::ini::InInidir(name);
    if (path.empty() || !profileOrNothing(path.c_str())) return 0;
    HZEPIO h = zepOpen(path.c_str(), nullptr, flags);
    if (h != 0 && resolvedSize != 0) mivo4::copyText(name, resolvedSize, path.c_str());
    return h;
}

int32_t INIclose(HZEPIO h) { return h != 0 ? zepClose(h) : 0; }

// Unlike INIopen, INIDIR is tried first here; then the name alone.
int32_t GetProfileDirectory(char *name, const char *modulePath) {
    if (name == nullptr) return 1;
    if (name[0] == '\0' && modulePath != nullptr) {
        std::string base(std::strlen(modulePath) + 1, '\0');
        s_getname(base.data(), modulePath);
        base.resize(std::strlen(base.c_str()));
        mivo4::copyText(name, kProfileNameSize, (base + ".ini").c_str());
    }
    if (name[0] == '\0') return 1;
    const char *dir = std::getenv("INIDIR");
    std::string candidate = name;
    if (dir != nullptr && dir[0] != '\0' && std::strlen(dir) < kProfileNameSize)
        candidate = mivo4::ini::InInidir(name);
    // The profile found is read (and kept) at once: the setup that is being
    // made reads its keys from it next, without reading the file again. A
    // file that is not a regular file is not a profile.
    for (const std::string &path : {candidate, std::string(name)}) {
        if (mivo4::ini::LoadExact(path, true).state == mivo4::ini::State::Loaded) {
            mivo4::copyText(name, kProfileNameSize, path.c_str());
            return 0;
        }
    }
    return 1;
}

namespace mivo4::ini {

std::string InInidir(const char *name) {
    const char *dir = std::getenv("INIDIR");
    if (dir == nullptr || dir[0] == '\0') return {};
    std::string path = dir;
    if (path.back() != '/') path += '/';
    return path + name;
}

}  // namespace mivo4::ini
