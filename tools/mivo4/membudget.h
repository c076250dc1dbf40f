// The host's memory budget: how much a picture may take once decoded. Every
// reader checks the size its file declares against it before it decodes a
// pixel, and hands it to its library's own limits, so that a tiny file that
// claims a huge picture is refused instead of taking the machine's memory.
#pragma once

#include <cstdint>
#include <string>

namespace mivo4::host {

// Half the machine's memory, at most 4 GiB, and at most half of the address
// space the process may have (ulimit -v).
uint64_t defaultMemoryBudget();

uint64_t memoryBudget();
void setMemoryBudget(uint64_t bytes);

// "SIZE" as given to --limit-memory: a number of bytes with an optional
// K, M, G or T (powers of 1024, "KiB" and "MB" spellings too). False when it
// is not one, or is zero.
bool parseMemorySize(const std::string &text, uint64_t &bytes);

// "1.5 GiB", "640 KiB": a size in a user's words.
std::string describeBytes(uint64_t bytes);

// Bytes the host holds for the picture being read besides its pixels (a
// file read from standard input into memory): while one of these lives,
// checkMemoryBudget counts them too. Readers run one at a time.
class HeldBytes {
public:
    explicit HeldBytes(uint64_t bytes);
    ~HeldBytes();
    HeldBytes(const HeldBytes &) = delete;
    HeldBytes &operator=(const HeldBytes &) = delete;
    static uint64_t current();

private:
    uint64_t previous_;
};

// Throws ReadError when a picture of width x height taking bytes (its pixels
// and the reader's work space) is over the budget; the message names both.
void checkMemoryBudget(const std::string &path, uint32_t width, uint32_t height, uint64_t bytes);

}  // namespace mivo4::host
