// Case conversion and case-blind comparison that the desktop runtime offers and
// this platform lacks. Bytes are taken as signed characters, as the original
// runtime did; only ASCII letters change case (the "C" locale), and bytes at or
// above 128 compare as negative values.
#include <mivo4/util.h>

namespace {

int upper(char c) {
    signed char s = static_cast<signed char>(c);
    return (s >= 'a' && s <= 'z') ? s - ('a' - 'A') : s;
}

int lower(char c) {
    signed char s = static_cast<signed char>(c);
    return (s >= 'A' && s <= 'Z') ? s + ('a' - 'A') : s;
}

// A null string is taken as empty.
const char *orEmpty(const char *s) { return s != nullptr ? s : ""; }

}  // namespace

char *strupr(char *text) {
    if (text == nullptr) return nullptr;
    for (char *p = text; *p != '\0'; ++p) *p = static_cast<char>(upper(*p));
    return text;
}

char *strlower(char *text) {
    if (text == nullptr) return nullptr;
    for (char *p = text; *p != '\0'; ++p) *p = static_cast<char>(lower(*p));
    return text;
}

char *strlwr(char *text) { return strlower(text); }

int32_t stricmp(const char *a, const char *b) {
    a = orEmpty(a);
    b = orEmpty(b);
    while (*a != '\0' && *b != '\0' && upper(*a) == upper(*b)) {
        ++a;
        ++b;
    }
    // Reversed sign, kept: callers only test for equality.
    return upper(*b) - upper(*a);
}

// Compares exactly n bytes: a terminator shared by both strings does not stop
// the walk, so both buffers must hold n bytes.
int32_t strnicmp(const char *a, const char *b, uint32_t n) {
    a = orEmpty(a);
    b = orEmpty(b);
    for (uint32_t i = 0; i < n; ++i) {
        if (upper(a[i]) != upper(b[i])) return upper(b[i]) - upper(a[i]);
    }
    return 0;
}
