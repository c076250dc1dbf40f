// File-name helpers and temporary names.
#include <mivo4/util.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <random>

char *s_getname(char *nameOut, const char *path) {
    if (nameOut == nullptr) return nullptr;
    if (path == nullptr) {
        nameOut[0] = '\0';
        return nameOut;
    }
    const char *base = std::strrchr(path, '\\');
    if (base == nullptr) base = std::strrchr(path, '/');
    if (base == nullptr) base = std::strrchr(path, ':');
    base = base != nullptr ? base + 1 : path;
    std::memmove(nameOut, base, std::strlen(base) + 1);
    if (char *dot = std::strrchr(nameOut, '.')) *dot = '\0';
    return nameOut;
}

char *s_getpath(char *pathOut, const char *path) {
    if (pathOut == nullptr) return nullptr;
    if (path == nullptr) {
        pathOut[0] = '\0';
        return pathOut;
    }
    const char *sep = std::strrchr(path, '\\');
    if (sep == nullptr) sep = std::strrchr(path, '/');
    size_t keep = sep != nullptr ? static_cast<size_t>(sep - path) + 1 : 0;
    std::memmove(pathOut, path, keep);
    pathOut[keep] = '\0';
    return pathOut;
}

// A fresh, unpredictable name in "/tmp" (the first three arguments are not
// used). The file is not created here; writers create it exclusively.
int32_t ZEPGetTempFileName(uint8_t, const char *, uint32_t, char *nameOut) {
    if (nameOut == nullptr) return 0;
    static constexpr char kAlphabet[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::random_device entropy;
    std::uniform_int_distribution<int> pick(0, sizeof(kAlphabet) - 2);
    for (int attempt = 0; attempt < 100; ++attempt) {
        char name[32] = "/tmp/zep";
        for (size_t i = std::strlen(name); i < 20; ++i) name[i] = kAlphabet[pick(entropy)];
        struct stat st;
        if (lstat(name, &st) != 0) {
            std::strcpy(nameOut, name);
            return 1;
        }
    }
    return 0;
}
