// Reading profile lines, shared by the profile reader and writer.
#pragma once

#include <mivo4/stream.h>

#include <cstddef>

namespace mivo4::ini {

// A line is read into 256 characters; longer lines arrive as several lines.
inline constexpr int32_t kLineMax = 256;
using LineBuffer = char[kLineMax + 1];

// Reads the next line into buf (always terminated). False when the stream has
// nothing more. A last line without a line ending is still delivered: the
// stream reports its end together with the line's characters.
inline bool nextLine(HZEPIO h, LineBuffer &buf) {
    buf[kLineMax] = '\0';
    int32_t r = zepReadLine(h, buf, kLineMax);
    return r >= 0 || buf[0] != '\0';
}

}  // namespace mivo4::ini
