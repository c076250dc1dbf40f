// Writing profile files. A file is never edited in place: the whole file is
// copied line by line to a temporary file in /tmp with the change applied,
// then copied back. The copy-back goes to a new file beside the profile that
// is renamed over it in one step, so that the profile is at every moment
// either complete with its old content or complete with its new content; any
// failure on the way leaves it untouched.
#include "zep_xxxx/iniwrite.h"

#include <fcntl.h>
#include <limits.h>
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zep_xxxx/iniline.h"
#include "zep_xxxx/text.h"

namespace {

using mivo4::ini::LineBuffer;
using mivo4::ini::nextLine;
using mivo4::ini::WriteFault;

WriteFault gFault = WriteFault::None;

bool faultAt(WriteFault step) {
    if (gFault != step) return false;
    gFault = WriteFault::None;
    return true;
}

// A fresh temporary name, created exclusively so that no other file can take
// its place between naming and opening.
std::string createTemp() {
    if (faultAt(WriteFault::TempCreate)) return {};
    for (int attempt = 0; attempt < 16; ++attempt) {
        char name[260];
        if (ZEPGetTempFileName(0, nullptr, 0, name) == 0) return {};
        int fd = open(name, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
        if (fd >= 0) {
            close(fd);
            return name;
        }
        if (errno != EEXIST) return {};
    }
    return {};
}

// Writes lines and keeps count of what the file must hold afterwards.
class LineWriter {
public:
    LineWriter(HZEPIO h, int32_t format) : h_(h), ending_(format == ZEP_LINE_CRLF ? 2 : 1) {}

    void line(const std::string &text) {
        int32_t n = static_cast<int32_t>(text.size());
        if (zepWriteLine(h_, text.c_str(), n) != n) ok_ = false;
        bytes_ += static_cast<uint64_t>(n) + ending_;
        wrote_ = true;
    }
    bool ok() const { return ok_; }
    bool wroteAnything() const { return wrote_; }
    uint64_t bytes() const { return bytes_; }

private:
    HZEPIO h_;
    uint64_t ending_;
    uint64_t bytes_ = 0;
    bool ok_ = true;
    bool wrote_ = false;
};

std::string cleaned(const char *text, int32_t keep) {
    LineBuffer copy;
    mivo4::copyText(copy, sizeof copy, text);
    return stripChars(copy, keep);
}

// The name of an entry line as the writer sees it: the text before "=", its
// comment and surrounding blanks cut.
std::string entryName(const char *line) {
    LineBuffer copy;
    mivo4::copyText(copy, sizeof copy, line);
    if (char *eq = std::strchr(copy, '=')) *eq = '\0';
    stripComments(copy);
    return stripLdgTrlg(copy, ' ');
}

bool isSectionHeader(const char *line, const std::string &wanted) {
    return line[0] == '[' && stricmp(cleaned(line, 0).c_str(), wanted.c_str()) == 0;
}

// Copies old to w with the change applied to every section named section.
// Returns whether such a section was found.
bool rewrite(HZEPIO old, LineWriter &w, const std::string &section, const char *key,
             const char *value) {
    const std::string entry = key != nullptr && value != nullptr ? std::string(key) + "=" + value : "";
    bool found = false;
    LineBuffer line;
    bool have = nextLine(old, line);
    while (have) {
        if (!isSectionHeader(line, section)) {
            w.line(line);
            have = nextLine(old, line);
            continue;
        }
        found = true;
        const std::string header = line;
        bool headerWritten = false;
        bool replaced = false;
        if (key != nullptr && value != nullptr) {
            w.line(header);
            headerWritten = true;
        }
        while ((have = nextLine(old, line)) && line[0] != '[') {
            if (key == nullptr) continue;  // the whole section goes
            bool named = stricmp(entryName(line).c_str(), key) == 0;
            if (value == nullptr) {
                // Deleting one entry: the header is written before the first line
                // kept, so a section left with no lines at all loses its header.
                if (named) continue;
                if (!headerWritten) {
                    w.line(header);
                    headerWritten = true;
                }
                w.line(line);
            } else if (named) {
                w.line(entry);
                replaced = true;
            } else {
                w.line(line);
            }
        }
        if (key != nullptr && value != nullptr && !replaced) w.line(entry);
        // The section line that ended this section is handled by the outer loop:
        // it is copied, or it heads another section of the same name.
    }
    return found;
}

uint64_t fileSize(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : UINT64_MAX;
}

// Puts the content of temp in place of the profile named target in one step.
bool replaceProfile(const std::string &target, const std::string &temp, uint64_t expected) {
    std::string dest = target;
    struct stat st;
    bool existed = stat(target.c_str(), &st) == 0;
    mode_t mode;
    if (existed) {
        char real[PATH_MAX];
        if (realpath(target.c_str(), real) != nullptr) dest = real;  // write through links
        mode = st.st_mode & 07777;
    } else {
        mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    size_t slash = dest.rfind('/');
    std::string dir = slash == std::string::npos ? "." : dest.substr(0, slash == 0 ? 1 : slash);
    std::string base = slash == std::string::npos ? dest : dest.substr(slash + 1);
    std::string sibling = dir + "/." + base + ".XXXXXX";
    int fd = mkstemp(sibling.data());
    if (fd < 0) return false;
    close(fd);

    bool ok = !faultAt(WriteFault::CopyBack) && zepCopy(temp.c_str(), sibling.c_str()) == 0 &&
              fileSize(sibling) == expected;
    if (ok) {
        int sync = open(sibling.c_str(), O_RDONLY | O_CLOEXEC);
        ok = sync >= 0 && fsync(sync) == 0;
        if (sync >= 0) close(sync);
    }
    ok = ok && chmod(sibling.c_str(), mode) == 0;
    ok = ok && !faultAt(WriteFault::Replace) && rename(sibling.c_str(), dest.c_str()) == 0;
    if (!ok) {
        unlink(sibling.c_str());
        return false;
    }
    if (int d = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); d >= 0) {
        fsync(d);  // make the rename itself durable; best effort
        close(d);
    }
    return true;
}

}  // namespace

namespace mivo4::ini {
void InjectWriteFault(WriteFault fault) { gFault = fault; }
}  // namespace mivo4::ini

int32_t WritePrivateProfileString(const char *section, const char *key, const char *value,
                                  const char *file) {
    if (section == nullptr || section[0] == '\0' || file == nullptr || file[0] == '\0') return 0;
    // The copy of the name receives the path that actually opened (INIDIR).
    char profile[261];
    mivo4::copyText(profile, sizeof profile, file);
    HZEPIO old = INIopen(profile, 260, ZEP_OPEN_READ);
    std::string temp = createTemp();
    HZEPIO out = temp.empty() ? 0 : INIopen(temp.data(), 0, ZEP_OPEN_WRITE | ZEP_OPEN_CREATE);
    if (out == 0) {
        INIclose(old);
        if (!temp.empty()) unlink(temp.c_str());
        return 0;
    }
    // The new file keeps the old one's line endings; a new file, or one with no
    // line ending at all, gets LF.
    int32_t format = ZEP_LINE_LF;
    if (old != 0) {
        int32_t found = zepGetLineFormat(old);
        if (found >= ZEP_LINE_CRLF && found <= ZEP_LINE_LF) format = found;
    }
    zepSetLineFormat(out, static_cast<int16_t>(format));

    LineWriter w(out, format);
    const std::string wanted = cleaned(section, 0);
    bool found = old != 0 && rewrite(old, w, wanted, key, value);
    bool changed = found;
    if (!found && key != nullptr && value != nullptr) {
        w.line("");
        w.line("[" + wanted + "]");
        w.line(std::string(key) + "=" + value);
        changed = true;
    }
    INIclose(old);
    bool written = zepClose(out) == 0 && w.ok() && fileSize(temp) == w.bytes();
    // Nothing to delete in a section that does not exist: the profile stays as it is.
    if (changed && written) replaceProfile(profile, temp, w.bytes());
    unlink(temp.c_str());
    return 0;
}

int32_t WriteProfileString(const char *section, const char *key, const char *value) {
    return WritePrivateProfileString(section, key, value, ZEP_DEFAULT_PROFILE);
}
