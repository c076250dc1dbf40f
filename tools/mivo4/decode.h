// mivo4 decode: a GP4 file's picture as PBM or PNG, to look at it.
#pragma once

#include <string>

namespace mivo4::host {

// Decodes path into output (.pbm, .png, or - for PBM on standard output);
// answers the exit code. Throws UsageError for any other output name.
int decodeCommand(const std::string &path, const std::string &output);

}  // namespace mivo4::host
