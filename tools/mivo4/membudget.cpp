#include "membudget.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "image.h"

namespace mivo4::host {

namespace {

constexpr uint64_t kGiB = uint64_t{1} << 30;
uint64_t budget = 0;  // 0: not set yet, the default applies

}  // namespace

uint64_t defaultMemoryBudget() {
    uint64_t limit = 4 * kGiB;
    long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0) limit = std::min(limit, static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize) / 2);
    struct rlimit rl;
    if (getrlimit(RLIMIT_AS, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
        limit = std::min(limit, static_cast<uint64_t>(rl.rlim_cur) / 2);
    return std::max<uint64_t>(limit, 16u << 20);
}

uint64_t memoryBudget() { return budget != 0 ? budget : defaultMemoryBudget(); }

void setMemoryBudget(uint64_t bytes) { budget = bytes; }

bool parseMemorySize(const std::string &text, uint64_t &bytes) {
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0) return false;
    std::string unit(end);
    for (char &c : unit) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    int shift = -1;
    if (unit.empty() || unit == "B") shift = 0;
    else if (unit == "K" || unit == "KB" || unit == "KIB") shift = 10;
    else if (unit == "M" || unit == "MB" || unit == "MIB") shift = 20;
    else if (unit == "G" || unit == "GB" || unit == "GIB") shift = 30;
    else if (unit == "T" || unit == "TB" || unit == "TIB") shift = 40;
    if (shift < 0 || v == 0 || v > (UINT64_MAX >> shift)) return false;
    bytes = static_cast<uint64_t>(v) << shift;
    return true;
}

std::string describeBytes(uint64_t bytes) {
    const char *units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double v = static_cast<double>(bytes);
    int u = 0;
    while (v >= 1024 && u < 6) v /= 1024, ++u;
    char text[64];
    if (u == 0) std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
    else std::snprintf(text, sizeof text, "%.1f %s", v, units[u]);
    return text;
}

namespace {
uint64_t heldBytes = 0;
}

HeldBytes::HeldBytes(uint64_t bytes) : previous_(heldBytes) { heldBytes = bytes; }
HeldBytes::~HeldBytes() { heldBytes = previous_; }
uint64_t HeldBytes::current() { return heldBytes; }

void checkMemoryBudget(const std::string &path, uint32_t width, uint32_t height, uint64_t bytes) {
    const uint64_t held = heldBytes;
    if (bytes <= memoryBudget() && held <= memoryBudget() - bytes) return;
    throw ReadError(path + ": " + std::to_string(width) + " x " + std::to_string(height) + " pixels need " +
                    describeBytes(bytes) + " of memory" +
                    (held > 0 ? " besides the " + describeBytes(held) + " of the file held in memory" : "") +
                    ", more than the limit of " + describeBytes(memoryBudget()) + " (--limit-memory)");
}

}  // namespace mivo4::host
