// Reading the values of options: numbers in a range, memory sizes.
#pragma once

#include <string>

namespace mivo4::host {

// A whole number from lo to hi, nothing else in text.
bool parseInt(const std::string &text, long lo, long hi, int &out);

// A finite number, nothing else in text.
bool parseDouble(const std::string &text, double &out);

// --limit-memory SIZE: sets the memory budget; throws UsageError.
void setLimit(const std::string &text);

}  // namespace mivo4::host
