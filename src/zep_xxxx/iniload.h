// Reading a profile file once. A profile is read whole into memory, split into
// the lines the reader and writer work on (as zepReadLine splits them: at most
// 256 characters a line, CR, LF or CR LF ending one), and indexed by section,
// so that a call sequence that asks for many keys reads the file once. The
// last profile read is kept, keyed on its path and identity (device, inode,
// size, modification time); the module's own writes drop it.
//
// Only regular files are profiles: a device, a FIFO, a socket or a directory
// is refused without being read (opening a FIFO never waits for a writer).
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace mivo4::ini {

struct Profile {
    std::string bytes;
    std::vector<std::string_view> lines;  // each cut at its first NUL, as a C string is
    int32_t lineFormat = -1;               // ZEP_LINE_*, or -1 when no line has an ending
    // Cleaned, upper-cased text of a line that is not a comment -> index of
    // the first such line; a section's entries follow it.
    std::unordered_map<std::string, size_t> firstLine;
};

enum class State {
    Absent,   // no file of that name (nor in INIDIR)
    Refused,  // there is one, but it is not a regular file, or cannot be read whole
    Loaded,
};

struct Found {
    State state = State::Absent;
    std::string path;  // the path that names the file (INIDIR applied)
    struct stat st {};
    std::shared_ptr<const Profile> profile;
};

// The path a name resolves to, as the profile calls look for it: the name,
// then INIDIR + "/" + name. Empty when neither exists.
std::string Resolve(const char *name);

// INIDIR + "/" (when it does not already end with one) + name; empty when
// INIDIR is unset or empty.
std::string InInidir(const char *name);

// Finds and reads the profile called name. With useKept, the profile kept
// from the last read serves when path and identity still match.
Found Load(const char *name, bool useKept);

// The same for the file at path exactly (no INIDIR search).
Found LoadExact(const std::string &path, bool useKept);

// Drops what is kept of path (after the module changed it).
void Drop(const std::string &path);

// The key under which a section is indexed: the name cleaned as a section
// line is, then upper-cased.
std::string SectionKey(const char *cleanedName);

// Number of times a profile's content was read from its file (for tests).
uint64_t ReadCount();

// Splits text into profile lines as the reader sees them.
void SplitLines(Profile &p);

}  // namespace mivo4::ini
