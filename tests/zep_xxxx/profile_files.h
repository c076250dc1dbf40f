// What a profile write may leave in a directory.
#pragma once

#include <filesystem>
#include <string>

namespace mivo4::test {

// Entries of dir, leaving out the lock files (".NAME.lock") that profile
// writers keep beside a profile.
inline int filesBesideLocks(const std::string &dir) {
    int n = 0;
    for (const auto &e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        const bool lock = name.size() > 6 && name[0] == '.' && name.compare(name.size() - 5, 5, ".lock") == 0;
        n += lock ? 0 : 1;
    }
    return n;
}

}  // namespace mivo4::test
