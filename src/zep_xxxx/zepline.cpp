// Text lines: reading one line, writing one with the stream's line ending,
// and finding which ending a text uses.
#include "zep_xxxx/zepio.h"

#include <string_view>

using namespace mivo4::zep;

namespace {

constexpr uint8_t kCR = 13;
constexpr uint8_t kLF = 10;

std::string_view LineEnding(int16_t format) {
    switch (format) {
    case ZEP_LINE_CRLF: return "\r\n";
    case ZEP_LINE_CR: return "\r";
    default: return "\n";  // LF, the ending of a fresh stream, for any other value too
    }
}

}  // namespace

// Reads one line of at most max characters into buffer. The buffer is
// terminated only while there is room. Returns the count of characters, or -1
// when the last read came up empty: a last line without a line ending returns
// -1 although its characters are in the buffer, and so does a line whose CR
// is the stream's last byte (the read after the CR found nothing).
int32_t zepReadLine(HZEPIO h, char *buffer, int32_t max) {
    if (buffer == nullptr) return -1;
    if (max <= 0) return 0;  // no room at all: nothing is read or stored
    buffer[0] = '\0';
    int32_t count = 0;
    int32_t last = 1;
    bool ended = false;
    while (count < max && last >= 1) {
        uint8_t c = 0;
        last = zepRead(h, &c, 1);
        if (last < 1) break;
        if (c == kCR) {
            // CR LF and CR alone both end the line; a byte other than LF
            // after the CR belongs to the next line.
            uint8_t next = 0;
            last = zepRead(h, &next, 1);
            if (last >= 1 && next != kLF) zepSeek(h, -1, 1);
            ended = true;
            break;
        }
        if (c == kLF) {
            ended = true;
            break;
        }
        buffer[count] = static_cast<char>(c);
        if (count + 1 < max) buffer[count + 1] = '\0';
        ++count;
    }
    if (ended) buffer[count] = '\0';
    return last >= 1 ? count : -1;
}

// Writes length bytes of text and then the stream's line ending, byte by
// byte. Returns the text write's result, or the result of the first ending
// byte that was not written.
int32_t zepWriteLine(HZEPIO h, const char *text, int32_t length) {
    int32_t wrote = zepWrite(h, text, length);
    const ZEPIODATA *s = LockStream(h);
    std::string_view ending = LineEnding(s != nullptr ? s->tWriteLineFormat : ZEP_LINE_LF);
    for (char c : ending) {
        int32_t result = zepWrite(h, &c, 1);
        if (result != 1) return result;
    }
    return wrote;
}

int32_t zepSetLineFormat(HZEPIO h, int16_t format) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    s->tWriteLineFormat = format;
    return 0;
}

// Reads from the current position up to the first line ending: 2 for LF,
// 0 for CR LF, 1 for CR alone, -1 when the text has none. The stream is then
// rewound to its start, not returned to where it was.
int32_t zepGetLineFormat(HZEPIO h) {
    int32_t format = -1;
    uint8_t c = 0;
    while (zepRead(h, &c, 1) >= 1) {
        if (c == kLF) {
            format = ZEP_LINE_LF;
            break;
        }
        if (c == kCR) {
            uint8_t next = 0;
            format = zepRead(h, &next, 1) >= 1 && next == kLF ? ZEP_LINE_CRLF : ZEP_LINE_CR;
            break;
        }
    }
    zepSeek(h, 0, 0);
    return format;
}
