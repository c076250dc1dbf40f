// "Did you mean ...?" for a misspelt option or command.
#pragma once

#include <string>
#include <vector>

namespace mivo4::host {

// The edit distance of a and b, a swap of neighbours counting as one edit
// (the usual slip of a typist).
size_t editDistance(const std::string &a, const std::string &b);

// The names among `known` that `typed` most likely meant, dashes aside: the
// one it is the start of (two characters or more), if there is exactly one;
// else those nearest within two edits, and fewer edits than typed has
// characters, so that a one-letter slip is not taken for anything. Empty
// when nothing is near.
std::vector<std::string> nearestNames(const std::string &typed, const std::vector<std::string> &known);

// " (did you mean --dpi?)", " (did you mean --width or --height?)", or "".
std::string didYouMean(const std::string &typed, const std::vector<std::string> &known);

}  // namespace mivo4::host
