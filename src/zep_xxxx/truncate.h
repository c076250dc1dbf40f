// Conversion of a double to a 32-bit integer by truncation toward zero, as the
// module's sizing arithmetic does, saturating at the 32-bit limits (and 0 for
// not-a-number) where a plain conversion would be undefined.
#pragma once

#include <cstdint>

namespace mivo4 {

inline int32_t TruncateToInt32(double v) {
    if (!(v > -2147483648.0)) return v != v ? 0 : INT32_MIN;
    if (v >= 2147483647.0) return INT32_MAX;
    return static_cast<int32_t>(v);
}

}  // namespace mivo4
