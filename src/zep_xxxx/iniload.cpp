#include "zep_xxxx/iniload.h"

#include <fcntl.h>
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "zep_xxxx/iniline.h"
#include "zep_xxxx/text.h"

namespace mivo4::ini {

namespace {

// A profile larger than this is not read (nor rewritten): no settings file
// is that large, and reading it whole must not take the host's memory.
constexpr off_t kLargestProfile = off_t{256} << 20;

std::atomic<uint64_t> gReads{0};

struct Kept {
    std::mutex lock;
    std::string path;
    struct stat st {};
    std::shared_ptr<const Profile> profile;
};

Kept &kept() {
    static Kept k;
    return k;
}

bool sameIdentity(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The first line ending decides the file's: as zepGetLineFormat finds it.
int32_t lineFormatOf(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') return ZEP_LINE_LF;
        if (text[i] == '\r') return i + 1 < text.size() && text[i + 1] == '\n' ? ZEP_LINE_CRLF : ZEP_LINE_CR;
    }
    return -1;
}

void index(Profile &p) {
    for (size_t i = 0; i < p.lines.size(); ++i) {
        LineBuffer line;
        const std::string_view raw = p.lines[i];
        std::memcpy(line, raw.data(), raw.size());
        line[raw.size()] = '\0';
        stripChars(line, 0);
        if (line[0] == '\0' || line[0] == ';') continue;
        p.firstLine.try_emplace(SectionKey(line), i);
    }
}

Found readFile(const std::string &path) {
    Found f;
    f.path = path;
    // Non-blocking, so that a FIFO opens at once (and is then refused).
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        f.state = errno == ENOENT || errno == ENOTDIR ? State::Absent : State::Refused;
        if (f.state == State::Refused) stat(path.c_str(), &f.st);
        return f;
    }
    f.state = State::Refused;
    if (fstat(fd, &f.st) != 0 || !S_ISREG(f.st.st_mode) || f.st.st_size > kLargestProfile) {
        close(fd);
        return f;
    }
    try {
        auto p = std::make_shared<Profile>();
        p->bytes.resize(static_cast<size_t>(f.st.st_size));
        size_t got = 0;
        for (;;) {
            if (got == p->bytes.size()) p->bytes.resize(got + 4096);  // it may have grown
            ssize_t n = read(fd, p->bytes.data() + got, p->bytes.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                close(fd);
                return f;
            }
            if (n == 0) break;
            got += static_cast<size_t>(n);
        }
        p->bytes.resize(got);
        close(fd);
        gReads.fetch_add(1, std::memory_order_relaxed);
        SplitLines(*p);
        index(*p);
        f.profile = std::move(p);
        f.state = State::Loaded;
    } catch (const std::bad_alloc &) {
        close(fd);  // too large for the memory there is: as if unreadable
        f.profile.reset();
        f.state = State::Refused;
    }
    return f;
}

}  // namespace

void SplitLines(Profile &p) {
    p.lines.clear();
    p.lineFormat = lineFormatOf(p.bytes);
    const char *text = p.bytes.data();
    const size_t size = p.bytes.size();
    size_t pos = 0;
    // As nextLine over zepReadLine: up to 256 characters, ended by LF, CR LF
    // or CR; a line read up to the end without an ending still counts unless
    // it is empty.
    while (pos < size) {
        size_t start = pos;
        size_t count = 0;
        bool ended = false;
        while (count < static_cast<size_t>(kLineMax) && pos < size) {
            char c = text[pos++];
            if (c == '\r') {
                if (pos < size && text[pos] == '\n') ++pos;
                ended = true;
                break;
            }
            if (c == '\n') {
                ended = true;
                break;
            }
            ++count;
        }
        std::string_view line(text + start, count);
        line = line.substr(0, std::min(line.size(), line.find('\0')));
        bool atEnd = pos >= size;
        // The reader stops on a read that comes up empty: the line that ends
        // exactly at the end of the text with its CR alone is such a read.
        bool lastReadEmpty = atEnd && (!ended || text[size - 1] == '\r');
        if (lastReadEmpty && line.empty()) break;
        p.lines.push_back(line);
    }
}

std::string SectionKey(const char *cleanedName) {
    std::string key = cleanedName;
    for (char &c : key) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return key;
}

std::string Resolve(const char *name) {
    if (name == nullptr || name[0] == '\0') return {};
    struct stat st;
    if (lstat(name, &st) == 0) return name;
    std::string other = InInidir(name);
    if (!other.empty() && lstat(other.c_str(), &st) == 0) return other;
    return {};
}

Found Load(const char *name, bool useKept) {
    std::string path = Resolve(name);
    if (path.empty()) return Found{};
    return LoadExact(path, useKept);
}

Found LoadExact(const std::string &path, bool useKept) {
    if (useKept) {
        struct stat st;
        if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
            Kept &k = kept();
            std::lock_guard<std::mutex> guard(k.lock);
            if (k.profile != nullptr && k.path == path && sameIdentity(k.st, st)) {
                Found f;
                f.state = State::Loaded;
                f.path = path;
                f.st = st;
                f.profile = k.profile;
                return f;
            }
        }
    }
    Found f = readFile(path);
    if (f.state == State::Loaded) {
        Kept &k = kept();
        std::lock_guard<std::mutex> guard(k.lock);
        try {
            k.path = path;
            k.st = f.st;
            k.profile = f.profile;
        } catch (const std::bad_alloc &) {
            k.profile.reset();
        }
    }
    return f;
}

void Drop(const std::string &path) {
    Kept &k = kept();
    std::lock_guard<std::mutex> guard(k.lock);
    (void)path;  // one profile is kept: whatever it is, it goes
    k.profile.reset();
    k.path.clear();
}

uint64_t ReadCount() { return gReads.load(std::memory_order_relaxed); }

}  // namespace mivo4::ini
