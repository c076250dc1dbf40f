// Standard input as a picture file: read once, whole, into memory, so that
// its format is told from its first bytes and every page can be read from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace mivo4::host {

// What messages call a picture read from standard input.
inline constexpr const char kStandardInputName[] = "standard input";

// The bytes of a whole input, in pages of their own that grow by moving page
// tables rather than copying (so reading N bytes holds N bytes, not 2N).
class WholeInput {
public:
    WholeInput() = default;
    ~WholeInput();
    WholeInput(WholeInput &&other) noexcept;
    WholeInput &operator=(WholeInput &&other) noexcept;
    WholeInput(const WholeInput &) = delete;
    WholeInput &operator=(const WholeInput &) = delete;

    std::span<const uint8_t> bytes() const { return {data_, size_}; }

private:
    friend WholeInput readWholeInput(int fd);
    uint8_t *data_ = nullptr;
    size_t size_ = 0, capacity_ = 0;
};

// Reads all of file descriptor fd (standard input) into memory. Throws
// ReadError with one line when fd is a terminal (nothing was piped in), when
// reading fails, when it holds no bytes, or when it holds more than the
// memory budget.
WholeInput readWholeInput(int fd = 0);

}  // namespace mivo4::host
