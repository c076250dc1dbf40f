#include "outfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace mivo4::host {

AtomicOutput::~AtomicOutput() { abandon(); }

bool AtomicOutput::open(const std::string &destination) {
    destination_ = destination;
    toStdout_ = destination == "-";
    std::string dir, base;
    if (toStdout_) {
        const char *tmp = std::getenv("TMPDIR");
        dir = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
        base = "mivo4-stdout";
    } else {
        size_t slash = destination.rfind('/');
        dir = slash == std::string::npos ? "." : slash == 0 ? "/" : destination.substr(0, slash);
        base = slash == std::string::npos ? destination : destination.substr(slash + 1);
        struct stat st;
        if (stat(destination.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            error_ = destination + ": is a directory";
            return false;
        }
    }
    // Hidden and unmistakable, in the destination's own directory so that the
    // final rename stays on one file system.
    std::string pattern = dir + (dir.back() == '/' ? "" : "/") + "." + base + ".part-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd < 0) {
        error_ = (toStdout_ ? dir : destination) + ": cannot write: " + std::strerror(errno);
        return false;
    }
    // Created files get the usual permissions, as a plain open would give them.
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    temp_ = name.data();
    file_ = fdopen(fd, "w+b");
    if (file_ == nullptr) {
        error_ = destination + ": cannot write: " + std::strerror(errno);
        ::close(fd);
        abandon();
        return false;
    }
    return true;
}

bool AtomicOutput::closeStream() {
    if (file_ == nullptr) return true;
    bool ok = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!ok) error_ = destination_ + ": cannot write: " + std::strerror(errno);
    return ok;
}

bool AtomicOutput::commit() {
    if (done_ || temp_.empty()) return false;
    if (!closeStream()) return false;
    if (toStdout_) {
        FILE *in = std::fopen(temp_.c_str(), "rb");
        if (in == nullptr) {
            error_ = "standard output: " + std::string(std::strerror(errno));
            return false;
        }
        char chunk[65536];
        size_t n;
        bool ok = true;
        while (ok && (n = std::fread(chunk, 1, sizeof chunk, in)) > 0) ok = std::fwrite(chunk, 1, n, stdout) == n;
        ok = std::fflush(stdout) == 0 && ok && !std::ferror(in);
        std::fclose(in);
        if (!ok) {
            error_ = "standard output: cannot write: " + std::string(std::strerror(errno));
            return false;
        }
        abandon();
        done_ = true;
        return true;
    }
    if (std::rename(temp_.c_str(), destination_.c_str()) != 0) {
        error_ = destination_ + ": cannot write: " + std::strerror(errno);
        return false;
    }
    temp_.clear();
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
        temp_.clear();
    }
}

}  // namespace mivo4::host
