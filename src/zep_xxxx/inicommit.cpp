#include "zep_xxxx/inicommit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "zep_xxxx/inilock.h"
#include "zep_xxxx/iniwrite.h"

namespace mivo4::ini {

namespace {

bool writeAll(int fd, const std::string &bytes, off_t at) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = pwrite(fd, bytes.data() + done, bytes.size() - done, at + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

void syncDirectory(const std::string &dir) {
    if (int d = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); d >= 0) {
        fsync(d);  // makes the rename itself durable; best effort
        close(d);
    }
}

enum class Beside { Done, Failed, NoRoom };

// The new version beside the profile, then renamed over it. NoRoom: no file
// could be created there, or it could not be given the old owner.
Beside besideAndRename(const std::string &path, const std::string &content, const struct stat *old) {
    std::string dir, base;
    SplitPath(path, dir, base);
    std::string sibling = dir + "/." + base + ".XXXXXX";
    if (FaultAt(WriteFault::TempCreate)) return Beside::NoRoom;
    int fd = mkostemp(sibling.data(), O_CLOEXEC);
    if (fd < 0) return Beside::NoRoom;
    mode_t mode;
    if (old != nullptr) {
        mode = old->st_mode & 07777;
    } else {
        mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    bool ok = !FaultAt(WriteFault::CopyBack) && writeAll(fd, content, 0) && fsync(fd) == 0;
    Beside failure = Beside::Failed;
    if (ok && old != nullptr) {
        struct stat made;
        bool same = fstat(fd, &made) == 0 && made.st_uid == old->st_uid && made.st_gid == old->st_gid;
        if (!same && (FaultAt(WriteFault::KeepOwner) || fchown(fd, old->st_uid, old->st_gid) != 0)) {
            ok = false;
            failure = Beside::NoRoom;  // the profile would change hands: not this way
        }
    }
    // The mode after the owner: changing the owner may clear set-id bits.
    ok = ok && fchmod(fd, mode) == 0;
    if (close(fd) != 0) ok = false;
    ok = ok && !FaultAt(WriteFault::Replace) && rename(sibling.c_str(), path.c_str()) == 0;
    if (!ok) {
        unlink(sibling.c_str());
        return failure;
    }
    syncDirectory(dir);
    return Beside::Done;
}

// Rewrites the profile's own file. Its room is reserved first, so no write
// can then fail for want of space; should one fail all the same, the old
// content goes back.
bool inPlace(const std::string &path, const std::string &content, const struct stat &old,
             const std::string &oldContent) {
    int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return false;
    struct stat now;
    bool ok = fstat(fd, &now) == 0 && S_ISREG(now.st_mode) && now.st_dev == old.st_dev &&
              now.st_ino == old.st_ino && now.st_size == static_cast<off_t>(oldContent.size());
    off_t room = static_cast<off_t>(std::max(content.size(), oldContent.size()));
    ok = ok && !FaultAt(WriteFault::InPlace) && (room == 0 || posix_fallocate(fd, 0, room) == 0);
    if (!ok) {
        close(fd);
        return false;
    }
    bool written = writeAll(fd, content, 0) && ftruncate(fd, static_cast<off_t>(content.size())) == 0 &&
                   fsync(fd) == 0;
    if (!written) {
        if (writeAll(fd, oldContent, 0)) ftruncate(fd, static_cast<off_t>(oldContent.size()));
        fsync(fd);
    }
    close(fd);
    return written;
}

}  // namespace

bool Commit(const std::string &path, const std::string &content, const struct stat *old,
            const std::string &oldContent) {
    Beside b = besideAndRename(path, content, old);
    if (b == Beside::Done) return true;
    if (b == Beside::NoRoom && old != nullptr) return inPlace(path, content, *old, oldContent);
    return false;
}

}  // namespace mivo4::ini
