// Output files that appear whole or not at all: everything is written to a
// temporary file beside the destination, which is renamed into place only
// when the writing succeeded. "-" stands for standard output.
#pragma once

#include <cstdio>
#include <string>

namespace mivo4::host {

class AtomicOutput {
public:
    AtomicOutput() = default;
    AtomicOutput(const AtomicOutput &) = delete;
    AtomicOutput &operator=(const AtomicOutput &) = delete;
    ~AtomicOutput();  // abandons what was not committed

    // Creates the temporary file for destination; false and error() on failure.
    bool open(const std::string &destination);
    const std::string &tempPath() const { return temp_; }
    const std::string &destination() const { return destination_; }
    FILE *stream() const { return file_; }
    const std::string &error() const { return error_; }

    // Closes the stream without committing, for writers that reopen the
    // temporary file by name (the module's file output).
    bool closeStream();
    // Moves the finished file into place (or copies it to standard output).
    bool commit();
    // Removes the temporary file.
    void abandon();

private:
    std::string destination_;
    std::string temp_;
    std::string error_;
    FILE *file_ = nullptr;
    bool toStdout_ = false;
    bool done_ = false;
};

}  // namespace mivo4::host
