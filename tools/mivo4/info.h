// mivo4 info FILE.cal...: each file's header, what is unusual in it, and a
// check that the coded picture decodes to the size the header states.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gp4file.h"

namespace mivo4::host {

// Reports on every file in turn (a heading line for each when there are
// several); 1 when any file is missing, damaged or does not decode, else 0.
int infoCommand(const std::vector<std::string> &files);

// What a reader of the header should know but that does not make the file
// unusable: records out of the usual order, record names that are not the
// format's (with the name probably meant), values outside the format.
std::vector<std::string> headerWarnings(const Gp4Header &header);

// The two angles of an "rorient:" value in words, e.g. for "000,270" that
// rows run left to right and follow one another top to bottom; nullopt when
// the value is not two angles.
std::optional<std::string> describeOrientation(const std::string &value);

}  // namespace mivo4::host
