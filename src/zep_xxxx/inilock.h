// The advisory lock that makes a profile's read-modify-write one step for
// every process (and thread) that writes it through this layer. It is taken
// on a lock file beside the profile (".NAME.lock"), which the holder removes
// before letting go, so that none is left behind; where no file can be
// created beside the profile, the profile itself is locked.
#pragma once

#include <string>

namespace mivo4::ini {

class ProfileLock {
public:
    explicit ProfileLock(const std::string &profilePath);
    ~ProfileLock();
    ProfileLock(const ProfileLock &) = delete;
    ProfileLock &operator=(const ProfileLock &) = delete;

private:
    int fd_ = -1;
    std::string lockPath_;  // empty when the profile itself is locked
};

// The directory part and the file part of a path ("." for none).
void SplitPath(const std::string &path, std::string &dir, std::string &base);

}  // namespace mivo4::ini
