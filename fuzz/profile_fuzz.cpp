// Feeds arbitrary bytes to the profile reader and writer as a profile file.
#include <mivo4/profile.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = "/tmp/mivo4_profile_fuzz_" + std::to_string(getpid()) + ".ini";
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    // Section and key names come from the input too, so that matches happen.
    std::string section = size > 2 ? std::string(reinterpret_cast<const char *>(data) + 1,
                                                 std::min<size_t>(size - 1, 6))
                                   : "s";
    section = section.c_str();
    if (section.empty()) section = "s";
    char buf[64];
    GetPrivateProfileString(section.c_str(), "k", "d", buf, sizeof buf, path.c_str());
    GetPrivateProfileString(section.c_str(), nullptr, "d", buf, sizeof buf, path.c_str());
    GetPrivateProfileString(section.c_str(), nullptr, "d", buf, 3, path.c_str());
    GetPrivateProfileInt(section.c_str(), "k", 7, path.c_str());
    if (size % 3 == 0) WritePrivateProfileString(section.c_str(), "k", "v", path.c_str());
    if (size % 3 == 1) WritePrivateProfileString(section.c_str(), "k", nullptr, path.c_str());
    if (size % 3 == 2) WritePrivateProfileString(section.c_str(), nullptr, nullptr, path.c_str());
    GetPrivateProfileString(section.c_str(), "k", "d", buf, sizeof buf, path.c_str());
    unlink(path.c_str());
    return 0;
}
