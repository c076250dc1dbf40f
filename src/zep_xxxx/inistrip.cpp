// Cleaning of profile lines: line ends, quotes, brackets, comments, blanks.
#include <mivo4/profile.h>

#include <cstring>

namespace {

// Removes every occurrence of c from text, in place.
void removeAll(char *text, char c) {
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in)
        if (*in != c) *out++ = *in;
    *out = '\0';
}

// Removes double quotes; a doubled quote is an escaped one and becomes one.
void removeQuotes(char *text) {
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        if (*in != '"') {
            *out++ = *in;
        } else if (in[1] == '"') {
            *out++ = '"';
            ++in;
        }
    }
    *out = '\0';
}

}  // namespace

char *stripChars(char *text, int32_t keep) {
    if (text == nullptr) return nullptr;
    removeAll(text, '\r');
    removeAll(text, '\n');
    if ((keep & STRIP_KEEP_QUOTES) == 0) removeQuotes(text);
    if ((keep & STRIP_KEEP_BRACKETS) == 0) {
        removeAll(text, '[');
        removeAll(text, ']');
    }
    stripComments(text);
    stripLdgTrlg(text, ' ');
    return text;
}

// No value can hold a semicolon: everything from the first one is a comment.
char *stripComments(char *text) {
    if (text == nullptr) return nullptr;
    if (char *semicolon = std::strchr(text, ';')) *semicolon = '\0';
    return text;
}

// All leading and trailing c, but only one of each for a double quote; the
// first character is never taken as a trailing one.
char *stripLdgTrlg(char *text, char c) {
    if (text == nullptr) return nullptr;
    size_t length = std::strlen(text);
    size_t lead = 0;
    while (lead < length && text[lead] == c) {
        ++lead;
        if (c == '"') break;
    }
    std::memmove(text, text + lead, length - lead + 1);
    length -= lead;
    while (length > 1 && text[length - 1] == c) {
        text[--length] = '\0';
        if (c == '"') break;
    }
    return text;
}
