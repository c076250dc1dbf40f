#include "zep_xxxx/inilock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace mivo4::ini {

void SplitPath(const std::string &path, std::string &dir, std::string &base) {
    size_t slash = path.rfind('/');
    dir = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    base = slash == std::string::npos ? path : path.substr(slash + 1);
}

namespace {

bool lockWaiting(int fd) {
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

}  // namespace

ProfileLock::ProfileLock(const std::string &profilePath) {
    std::string dir, base;
    SplitPath(profilePath, dir, base);
    const std::string lockPath = dir + "/." + base + ".lock";
    // A lock file that someone removed while we waited is no lock any more:
    // take the one that is there now.
    for (int attempt = 0; attempt < 100; ++attempt) {
        // Readable by all: another user writing the same profile locks the
        // same file (a lock needs no write access to its file).
        int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
        if (fd < 0 && errno == EACCES) fd = open(lockPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0) break;
        if (!lockWaiting(fd)) {
            close(fd);
            break;
        }
        struct stat held, named;
        if (fstat(fd, &held) == 0 && stat(lockPath.c_str(), &named) == 0 &&
            held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
            fd_ = fd;
            lockPath_ = lockPath;
            return;
        }
        close(fd);
    }
    // No lock file can be made here: lock the profile itself (which is then
    // rewritten in place, so the lock stays on the file that changes).
    int fd = open(profilePath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) fd = open(profilePath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd >= 0 && lockWaiting(fd)) {
        fd_ = fd;
    } else if (fd >= 0) {
        close(fd);
    }
}

// The lock file stays: a holder that removed it would let a waiter, still
// queued on the removed file, hold "the" lock beside the next writer, who
// locks a new file of the same name.
ProfileLock::~ProfileLock() {
    if (fd_ < 0) return;
    flock(fd_, LOCK_UN);
    close(fd_);
}

}  // namespace mivo4::ini
