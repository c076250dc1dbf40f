// Rounding and tolerance helpers.
#include <mivo4/util.h>

#include <cmath>
#include <limits>

double dabs(double x) { return x > 0.0 ? x : -x; }

// |a - b| in 32-bit wrapping arithmetic, compared unsigned with the tolerance.
int32_t feqi(int32_t a, int32_t b, uint32_t tolerance) {
    uint32_t diff = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
    if (static_cast<int32_t>(diff) < 0) diff = 0u - diff;
    return diff <= tolerance ? 1 : 0;
}

// Half away from zero: 2.5 -> 3, -2.5 -> -3. Values beyond the 32-bit range
// saturate and NaN gives 0, rather than converting out of range.
int32_t roundd(double x) {
    double r = x > 0.0 ? x + 0.5 : x - 0.5;
    if (std::isnan(r)) return 0;
    if (r >= 2147483648.0) return std::numeric_limits<int32_t>::max();
    if (r <= -2147483649.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(r);
}

int32_t lroundd(double x) { return roundd(x); }
