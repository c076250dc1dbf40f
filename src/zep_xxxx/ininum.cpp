// Numbers in profile values: hexadecimal with a 0x prefix, or decimal digits.
// There is no sign: "-5" is not a number.
#include <mivo4/profile.h>

#include <cctype>
#include <cstring>

int32_t StrIsHexDigit(const char *text, int32_t *valueOut) {
    if (text == nullptr || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) return 0;
    static constexpr char kDigits[] = "0123456789ABCDEF";
    uint32_t value = 0;  // wraps at 32 bits
    for (const char *p = text + 2; *p != '\0'; ++p) {
        int c = std::toupper(static_cast<unsigned char>(*p));
        const char *digit = c != 0 ? std::strchr(kDigits, c) : nullptr;
        if (digit == nullptr) break;  // the text ends at the first non-digit
        value = value * 16u + static_cast<uint32_t>(digit - kDigits);
    }
    if (valueOut != nullptr) *valueOut = static_cast<int32_t>(value);
    return 1;
}

int32_t StrIsAnInteger(const char *text, int32_t *valueOut) {
    if (text == nullptr) return 0;
    if (StrIsHexDigit(text, valueOut) != 0) return 1;
    size_t digits = 0;
    while (std::isdigit(static_cast<unsigned char>(text[digits]))) ++digits;
    if (digits == 0) return 0;
    // Decimal conversion as the C library does it on a 32-bit host: values past
    // the largest 32-bit integer saturate there.
    uint64_t value = 0;
    for (size_t i = 0; i < digits; ++i) {
        value = value * 10u + static_cast<uint64_t>(text[i] - '0');
        if (value > INT32_MAX) {
            value = INT32_MAX;
            break;
        }
    }
    if (valueOut != nullptr) *valueOut = static_cast<int32_t>(value);
    return 1;
}
