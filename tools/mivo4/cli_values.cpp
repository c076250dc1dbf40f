#include "cli_values.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "cli_parser.h"
#include "membudget.h"

namespace mivo4::host {

bool parseInt(const std::string &text, long lo, long hi, int &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

bool parseDouble(const std::string &text, double &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    out = v;
    return true;
}

void setLimit(const std::string &text) {
    uint64_t bytes = 0;
    if (!parseMemorySize(text, bytes))
        throw UsageError{"--limit-memory needs a size such as 512M or 2G, not \"" + text + "\""};
    setMemoryBudget(bytes);
}

}  // namespace mivo4::host
