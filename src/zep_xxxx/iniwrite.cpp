// Writing profile files. A file is never edited as it is read: the whole
// profile is read, the change applied to a copy in memory, and the complete
// new version put in place in one step (see inicommit), so that the profile is
// at every moment either complete with its old content or complete with its
// new content. The read and the replacement happen under the profile's lock,
// so that writers in other processes never lose each other's changes.
#include "zep_xxxx/iniwrite.h"

#include <fcntl.h>
#include <limits.h>
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "zep_xxxx/inicommit.h"
#include "zep_xxxx/iniline.h"
#include "zep_xxxx/iniload.h"
#include "zep_xxxx/inilock.h"
#include "zep_xxxx/text.h"

namespace {

using mivo4::ini::LineBuffer;
using mivo4::ini::WriteFault;

unsigned gFaults = 0;  // one bit per WriteFault

unsigned bit(WriteFault f) { return 1u << static_cast<unsigned>(f); }

// The new version's text, each line followed by the profile's line ending.
class LineWriter {
public:
    explicit LineWriter(int32_t format)
        : ending_(format == ZEP_LINE_CRLF ? "\r\n" : format == ZEP_LINE_CR ? "\r" : "\n") {}
    void line(std::string_view text) {
        text_.append(text);
        text_.append(ending_);
    }
    const std::string &text() const { return text_; }

private:
    std::string_view ending_;
    std::string text_;
};

std::string cleaned(std::string_view text, int32_t keep) {
    LineBuffer copy;
    size_t n = std::min(text.size(), static_cast<size_t>(mivo4::ini::kLineMax));
    std::memcpy(copy, text.data(), n);
    copy[n] = '\0';
    return stripChars(copy, keep);
}

// The name of an entry line as the writer sees it: the text before "=", its
// comment and surrounding blanks cut.
std::string entryName(std::string_view line) {
    LineBuffer copy;
    std::memcpy(copy, line.data(), line.size());
    copy[line.size()] = '\0';
    if (char *eq = std::strchr(copy, '=')) *eq = '\0';
    stripComments(copy);
    return stripLdgTrlg(copy, ' ');
}

bool isSectionHeader(std::string_view line, const std::string &wanted) {
    return !line.empty() && line[0] == '[' && stricmp(cleaned(line, 0).c_str(), wanted.c_str()) == 0;
}

// Copies the old lines to w with the change applied to every section named
// section. Returns whether such a section was found.
bool rewrite(const mivo4::ini::Profile &old, LineWriter &w, const std::string &section,
             const char *key, const char *value) {
    const std::string entry = key != nullptr && value != nullptr ? std::string(key) + "=" + value : "";
    bool found = false;
    const auto &lines = old.lines;
    size_t i = 0;
    while (i < lines.size()) {
        if (!isSectionHeader(lines[i], section)) {
            w.line(lines[i++]);
            continue;
        }
        found = true;
        const std::string_view header = lines[i++];
        bool headerWritten = false;
        bool replaced = false;
        if (key != nullptr && value != nullptr) {
            w.line(header);
            headerWritten = true;
        }
        for (; i < lines.size() && (lines[i].empty() || lines[i][0] != '['); ++i) {
            if (key == nullptr) continue;  // the whole section goes
            bool named = stricmp(entryName(lines[i]).c_str(), key) == 0;
            if (value == nullptr) {
                // Deleting one entry: the header is written before the first line
                // kept, so a section left with no lines at all loses its header.
                if (named) continue;
                if (!headerWritten) {
                    w.line(header);
                    headerWritten = true;
                }
                w.line(lines[i]);
            } else if (named) {
                w.line(entry);
                replaced = true;
            } else {
                w.line(lines[i]);
            }
        }
        if (key != nullptr && value != nullptr && !replaced) w.line(entry);
        // The section line that ended this section is handled by the outer loop:
        // it is copied, or it heads another section of the same name.
    }
    return found;
}

// Whether this process may change the profile. Root may write any file, but
// a profile that nobody may write (no write bit at all) is kept as its owner
// marked it.
bool mayWrite(const std::string &path, const struct stat &st) {
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) return false;
    return geteuid() != 0 || (st.st_mode & 0222) != 0;
}

void writeProfile(const char *section, const char *key, const char *value, const char *file) {
    namespace ini = mivo4::ini;
    // The file found (INIDIR applied) is the one changed; a profile that
    // exists nowhere is made under the name the caller gave. A link is
    // followed: its target changes, the link stays.
    std::string path = ini::Resolve(file);
    if (path.empty()) {
        path = file;
    } else {
        char real[PATH_MAX];
        if (realpath(path.c_str(), real) == nullptr) return;
        path = real;
    }
    ini::ProfileLock lock(path);
    struct stat st;
    const bool existed = stat(path.c_str(), &st) == 0;
    ini::Found old;
    if (existed) {
        // Not a regular file, not ours to change, or not readable whole (a
        // write-only profile): writing would lose what it holds.
        if (!S_ISREG(st.st_mode) || !mayWrite(path, st)) return;
        old = ini::LoadExact(path, false);
        if (old.state != ini::State::Loaded) return;
    }
    // The new file keeps the old one's line endings; a new file, or one with
    // no line ending at all, gets LF.
    int32_t format = ZEP_LINE_LF;
    if (old.profile != nullptr) {
        int32_t found = old.profile->lineFormat;
        if (found >= ZEP_LINE_CRLF && found <= ZEP_LINE_LF) format = found;
    }
    LineWriter w(format);
    const std::string wanted = cleaned(section, 0);
    bool found = old.profile != nullptr && rewrite(*old.profile, w, wanted, key, value);
    bool changed = found;
    if (!found && key != nullptr && value != nullptr) {
        w.line("");
        w.line("[" + wanted + "]");
        w.line(std::string(key) + "=" + value);
        changed = true;
    }
    // Nothing to delete in a section that does not exist: the profile stays as it is.
    if (!changed) return;
    if (ini::FaultAt(WriteFault::NoMemory)) throw std::bad_alloc();
    static const std::string kNothing;
    ini::Commit(path, w.text(), existed ? &old.st : nullptr,
                old.profile != nullptr ? old.profile->bytes : kNothing);
    ini::Drop(path);
}

}  // namespace

namespace mivo4::ini {
void InjectWriteFault(WriteFault fault) {
    if (fault == WriteFault::None) {
        gFaults = 0;
    } else {
        gFaults |= bit(fault);
    }
}
bool FaultAt(WriteFault step) {
    if ((gFaults & bit(step)) == 0) return false;
    gFaults &= ~bit(step);
    return true;
}
}  // namespace mivo4::ini

// Always 0, whatever happened: a write that cannot be made safely is dropped
// and the profile stays as it was.
int32_t WritePrivateProfileString(const char *section, const char *key, const char *value,
                                  const char *file) {
    if (section == nullptr || section[0] == '\0' || file == nullptr || file[0] == '\0') return 0;
    try {
        writeProfile(section, key, value, file);
    } catch (const std::bad_alloc &) {
        // Out of memory before anything was put in place: nothing changed.
    }
    return 0;
}

int32_t WriteProfileString(const char *section, const char *key, const char *value) {
    return WritePrivateProfileString(section, key, value, ZEP_DEFAULT_PROFILE);
}
