// Output files that appear whole or not at all. A regular file (or a new
// name) is written to a hidden temporary file beside it, flushed, synced and
// renamed into place only when the caller commits; the file it replaces keeps
// its mode, owner and group, and a symbolic link is followed so that its
// target is replaced and the link stays. Standard output ("-") and a device,
// FIFO or socket are never replaced: the finished, checked data is copied into
// them. OUTPUT that is the input file itself is refused.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>

namespace mivo4::host {

// strerror's text in the host's own style: lower case, as in "no space left
// on device".
std::string errorText(int err);

class AtomicOutput {
public:
    AtomicOutput() = default;
    AtomicOutput(const AtomicOutput &) = delete;
    AtomicOutput &operator=(const AtomicOutput &) = delete;
    ~AtomicOutput();  // abandons what was not committed

    // Creates the temporary file for destination; input, when given, names
    // the file the output is made from (refused as the destination). False
    // and error() on failure.
    bool open(const std::string &destination, const std::string &input = "");
    const std::string &tempPath() const { return temp_; }
    const std::string &destination() const { return destination_; }
    FILE *stream() const { return file_; }
    const std::string &error() const { return error_; }
    // Whether the output goes into a stream (standard output, a device, a
    // FIFO or a socket) rather than replacing a file.
    bool direct() const { return direct_; }

    // Flushes, syncs and closes the stream without committing, for writers
    // that reopen the temporary file by name (the module's file output).
    // Without `sync` it is not synced: for the empty file handed to such a
    // writer, whose bytes commit() syncs before they replace anything (a sync
    // of the empty file waited on a journal commit, 30 ms of an A4 export).
    bool closeStream(bool sync = true);
    // Moves the finished file into place (or copies it into the stream).
    bool commit();
    // Removes the temporary file.
    void abandon();

    // A message for a write that failed without an errno to tell why (the
    // module writing the temporary file by name): names a full file system
    // when that is what the temporary file's directory is.
    std::string writeFailure() const;

private:
    bool fail(const std::string &what, int err);
    std::string destination_;  // as the user named it
    std::string target_;       // what is replaced: the destination, links followed
    std::string temp_;
    std::string error_;
    FILE *file_ = nullptr;
    bool direct_ = false;
    bool done_ = false;
    bool keepOwner_ = false;  // an existing file: its mode, owner and group carry over
    mode_t mode_ = 0;
    uid_t uid_ = 0;
    gid_t gid_ = 0;
};

}  // namespace mivo4::host
