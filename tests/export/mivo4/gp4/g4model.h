// The plain model of the Group 4 coder: one pixel at a time, one bit at a
// time, step for step as the coder's algorithm reads. The module's fast coder
// must give exactly its bytes.
#pragma once

#include <mivo4/gp4.h>

#include <cstdint>
#include <vector>

#include "g4pictures.h"

namespace g4model {

struct Bits {
    std::vector<bool> v;
    void Push(bool b) { v.push_back(b); }
    void Code(uint32_t n, uint32_t leftAligned16) {
        for (uint32_t i = 0; i < n; ++i) Push(((leftAligned16 >> (15 - i)) & 1u) != 0);
    }
    void Append(const Bits &o) { v.insert(v.end(), o.v.begin(), o.v.end()); }
    uint64_t Size() const { return v.size(); }
    // Packed most significant bit first, the last byte zero-filled.
    std::vector<uint8_t> Bytes() const {
        std::vector<uint8_t> out((v.size() + 7) / 8, 0);
        for (size_t i = 0; i < v.size(); ++i)
            if (v[i]) out[i / 8] |= static_cast<uint8_t>(0x80u >> (i % 8));
        return out;
    }
    static Bits FromString(const char *s) {
        Bits b;
        for (; *s; ++s)
            if (*s == '0' || *s == '1') b.Push(*s == '1');
        return b;
    }
};

inline uint8_t Colour(const uint8_t *row, uint32_t x) {
    return ((row[x / 8] >> (7 - x % 8)) & 1u) ? 255 : 0;
}

// The next changing element after a0 as the coder defines it.
inline uint32_t Change(const uint8_t *row, uint32_t a0, uint8_t color, uint32_t width) {
    uint32_t pos = a0;
    if (pos >= width) return width;
    uint8_t pcolor = a0 == 0 ? 255 : Colour(row, a0);
    for (;;) {
        while (pos < width && Colour(row, pos) == pcolor) ++pos;
        if (pos >= width || pcolor == color) return pos < width ? pos : width;
        pcolor = color;
    }
}

inline void Run(Bits &out, uint8_t color, uint32_t len) {
    const uint32_t(*table)[2] = color != 0 ? white : black;
    for (;;) {
        if (len > 2560) {
            out.Code(table[103][0], table[103][1]);
            len -= 2560;
        } else if (len >= 64) {
            out.Code(table[63 + len / 64][0], table[63 + len / 64][1]);
            len %= 64;
        } else {
            out.Code(table[len][0], table[len][1]);
            return;
        }
    }
}

inline void Mode(Bits &out, uint32_t mode) { out.Code(twoD[mode][0], twoD[mode][1]); }

// Codes `rows` rows of `width` pixels, `stride` bytes apart, against `ref`
// (null: an all-white line) and appends the bits to `out`.
inline void Code(Bits &out, const uint8_t *rows, uint32_t width, uint32_t count, uint32_t stride,
                 const uint8_t *ref) {
    const uint8_t *row = rows;
    for (uint32_t r = 0; r < count; ++r, row += stride) {
        uint32_t a0 = 0;
        uint8_t color = 255;
        uint32_t b1 = width, b2 = width;
        while (true) {
            uint32_t a1 = Change(row, a0, color, width);
            if (ref != nullptr) {
                b1 = Change(ref, a0, color, width);
                b2 = Change(ref, b1, static_cast<uint8_t>(255 - color), width);
            }
            if (b2 < a1) {
                Mode(out, GP4_MODE_PASS);
                a0 = b2;
            } else if (static_cast<int64_t>(a1) - b1 >= -3 && static_cast<int64_t>(a1) - b1 <= 3) {
                Mode(out, static_cast<uint32_t>(GP4_MODE_V0 + (static_cast<int64_t>(a1) - b1)));
                a0 = a1;
                color = static_cast<uint8_t>(255 - color);
            } else {
                uint32_t a2 = Change(row, a1, static_cast<uint8_t>(255 - color), width);
                Mode(out, GP4_MODE_HORIZONTAL);
                Run(out, color, a1 - a0);
                Run(out, static_cast<uint8_t>(255 - color), a2 - a1);
                a0 = a2;
            }
            if (a0 == width) break;
        }
        ref = row;
    }
}

inline Bits Code(const g4test::Picture &p) {
    Bits b;
    Code(b, p.bits.data(), p.width, p.height, p.stride, nullptr);
    return b;
}

}  // namespace g4model
