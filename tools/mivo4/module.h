// Opening mivo42.flt the way any host does: dlopen, fltLoadPointers, names.
#pragma once

#include <mivo4/filter.h>

#include <string>

namespace mivo4::host {

class Module {
public:
    Module() = default;
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;
    ~Module();

    // Opens the module at path and asks it for its entry table; on failure
    // returns false and error() says why.
    bool open(const std::string &path);
    const std::string &error() const { return error_; }
    const std::string &path() const { return path_; }

    const FLTPOINTERS &table() const { return table_; }
    // The target of the entry named name, or null.
    void *entry(const char *name) const;
    // An exported symbol looked up by name, or null.
    void *symbol(const char *name) const;

private:
    void *handle_ = nullptr;
    FLTPOINTERS table_{};
    std::string path_;
    std::string error_;
};

// Where the host looks for the module: $MIVO4_MODULE, else mivo42.flt beside
// the executable.
std::string defaultModulePath(const char *argv0);

}  // namespace mivo4::host
