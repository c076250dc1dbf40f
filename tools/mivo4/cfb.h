// mivo4 cfb: the storages and streams of a compound document, read through
// the module's own document opener and stream reads.
#pragma once

#include <string>
#include <vector>

namespace mivo4::host {

// "list FILE" or "cat FILE STREAM". Returns the exit code: 0 success, 1 a
// document or stream that cannot be read, 2 a usage error.
int cfbCommand(const std::string &modulePath, const std::vector<std::string> &args);

}  // namespace mivo4::host
