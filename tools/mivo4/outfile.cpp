#include "outfile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "signals.h"

namespace mivo4::host {

namespace {

std::string directoryOf(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseOf(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The file a path names once its symbolic links are followed; the last
// target need not exist (a new file is made there). Empty when the links
// loop.
std::string followLinks(std::string path) {
    for (int depth = 0; depth < 40; ++depth) {
        struct stat st;
        if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::vector<char> target(static_cast<size_t>(st.st_size > 0 ? st.st_size : PATH_MAX) + 1);
        ssize_t n = readlink(path.c_str(), target.data(), target.size() - 1);
        if (n < 0) return path;
        std::string next(target.data(), static_cast<size_t>(n));
        if (next.empty()) return path;
        path = next[0] == '/' ? next : directoryOf(path) + "/" + next;
    }
    return {};
}

// Writes all of data to fd, through interruptions and short writes.
bool writeAll(int fd, const char *data, size_t n) {
    while (n > 0) {
        ssize_t k = ::write(fd, data, n);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) {
            if (k == 0) errno = EIO;
            return false;
        }
        data += k;
        n -= static_cast<size_t>(k);
    }
    return true;
}

bool syncFile(const std::string &path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    // File systems without sync (some pseudo file systems) say EINVAL.
    bool ok = ::fsync(fd) == 0 || errno == EINVAL || errno == EROFS;
    int saved = errno;
    ::close(fd);
    errno = saved;
    return ok;
}

}  // namespace

std::string errorText(int err) {
    std::string text = std::strerror(err);
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

AtomicOutput::~AtomicOutput() { abandon(); }

bool AtomicOutput::fail(const std::string &what, int err) {
    error_ = what + (err != 0 ? ": " + errorText(err) : std::string());
    return false;
}

bool AtomicOutput::open(const std::string &destination, const std::string &input) {
    installSignalCleanup();
    destination_ = destination;
    error_.clear();
    direct_ = destination == "-";
    target_ = destination;
    std::string dir, base;
    if (!direct_) {
        target_ = followLinks(destination);
        if (target_.empty()) return fail(destination + ": cannot write", ELOOP);
        struct stat st;
        if (stat(target_.c_str(), &st) == 0) {
            if (S_ISDIR(st.st_mode)) return fail(destination + ": is a directory", 0);
            struct stat in;
            if (!input.empty() && stat(input.c_str(), &in) == 0 && in.st_dev == st.st_dev && in.st_ino == st.st_ino)
                return fail(destination + ": is the input file itself; refusing to overwrite it", 0);
            if (S_ISREG(st.st_mode)) {
                keepOwner_ = true;
                mode_ = st.st_mode & 07777;
                uid_ = st.st_uid;
                gid_ = st.st_gid;
            } else {
                direct_ = true;  // a device, FIFO or socket: written into, never replaced
            }
        }
    }
    if (direct_) {
        const char *tmp = std::getenv("TMPDIR");
        dir = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
        base = destination == "-" ? "mivo4-stdout" : "mivo4-" + baseOf(target_);
    } else {
        dir = directoryOf(target_);
        base = baseOf(target_);
    }
    // Hidden and unmistakable, in the destination's own directory so that the
    // final rename stays on one file system.
    std::string pattern = dir + (dir.back() == '/' ? "" : "/") + "." + base + ".part-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = -1;
    {
        SignalBlock block;  // no signal between making the file and registering it
        fd = mkostemp(name.data(), O_CLOEXEC);
        if (fd < 0) return fail((direct_ ? dir : destination) + ": cannot write", errno);
        if (!registerTempFile(name.data())) {
            ::unlink(name.data());
            ::close(fd);
            return fail(destination + ": cannot write (temporary file name too long)", 0);
        }
        temp_ = name.data();
    }
    if (keepOwner_) {
        // The owner and group where the process may set them; a file that
        // cannot keep its owner does not keep set-id bits either.
        if (fchown(fd, uid_, gid_) != 0) mode_ &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
        fchmod(fd, mode_);
    } else {
        // Created files get the usual permissions, as a plain open would give them.
        mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
    }
    file_ = fdopen(fd, "w+b");
    if (file_ == nullptr) {
        int err = errno;
        ::close(fd);
        abandon();
        return fail(destination + ": cannot write", err);
    }
    return true;
}

bool AtomicOutput::closeStream(bool sync) {
    if (file_ == nullptr) return true;
    bool ok = std::fflush(file_) == 0;
    int err = errno;
    if (ok && sync && ::fsync(fileno(file_)) != 0 && errno != EINVAL && errno != EROFS) {
        ok = false;
        err = errno;
    }
    if (std::fclose(file_) != 0 && ok) {
        ok = false;
        err = errno;
    }
    file_ = nullptr;
    if (!ok) fail(destination_ + ": cannot write", err);
    return ok;
}

bool AtomicOutput::commit() {
    if (done_ || temp_.empty()) return false;
    if (!closeStream()) return false;
    // Whoever wrote it (this host or the module by name), it is on disk
    // before it replaces anything.
    if (!syncFile(temp_)) return fail(destination_ + ": cannot write", errno);
    if (direct_) {
        const bool toStdout = destination_ == "-";
        int in = ::open(temp_.c_str(), O_RDONLY | O_CLOEXEC);
        if (in < 0) return fail(destination_ + ": cannot read the finished output back", errno);
        int out = toStdout ? STDOUT_FILENO : ::open(target_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
        if (out < 0) {
            int err = errno;
            ::close(in);
            return fail(destination_ + ": cannot write", err);
        }
        if (toStdout) std::fflush(stdout);
        char chunk[65536];
        bool ok = true;
        int err = 0;
        for (;;) {
            ssize_t n = ::read(in, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                ok = false;
                err = errno;
                break;
            }
            if (n == 0) break;
            if (!writeAll(out, chunk, static_cast<size_t>(n))) {
                ok = false;
                err = errno;
                break;
            }
        }
        ::close(in);
        if (!toStdout && ::close(out) != 0 && ok) {
            ok = false;
            err = errno;
        }
        if (!ok) return fail(toStdout ? "standard output: cannot write" : destination_ + ": cannot write", err);
        abandon();
        done_ = true;
        return true;
    }
    if (std::rename(temp_.c_str(), target_.c_str()) != 0) return fail(destination_ + ": cannot write", errno);
    unregisterTempFile(temp_);
    temp_.clear();
    // The rename itself is made durable with the directory.
    int dirfd = ::open(directoryOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirfd >= 0) {
        ::fsync(dirfd);
        ::close(dirfd);
    }
    done_ = true;
    return true;
}

void AtomicOutput::abandon() {
    if (file_ != nullptr) {
        std::fclose(file_);
        file_ = nullptr;
    }
    if (!temp_.empty()) {
        ::unlink(temp_.c_str());
        unregisterTempFile(temp_);
        temp_.clear();
    }
}

std::string AtomicOutput::writeFailure() const {
    struct statvfs fs;
    const std::string where = temp_.empty() ? directoryOf(target_) : directoryOf(temp_);
    // A write that failed on a file system with next to nothing left failed
    // because it was full.
    if (statvfs(where.c_str(), &fs) == 0 &&
        (static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize < 256 * 1024 || fs.f_favail == 0))
        return destination_ + ": cannot write: " + std::string("no space left on device");
    return {};
}

}  // namespace mivo4::host
