// Dithering: error diffusion of a 24-bit working copy onto a colour table,
// then a conversion that finds each pixel's table index again.
#include <mivo4/color.h>

#include <array>
#include <cstdio>
#include <vector>

#include <new>

#include "export/raster/colorlib.h"
#include "export/raster/dithermono.h"

using namespace mivo4::color;

// The table for one-bit output when none is given. Its order sets the
// pattern: the final conversion keeps the lowest bit of each index, so black,
// 64, 160 and 208 become 0 and white, 128, 192 and 224 become 1.
const VCD MonoTable[8] = {{0, 0, 0},       {255, 255, 255}, {64, 64, 64},    {128, 128, 128},
                          {160, 160, 160}, {192, 192, 192}, {208, 208, 208}, {224, 224, 224}};

// Appended to every table derived from a picture.
const VCD must_have_colors[8] = {{255, 255, 255}, {255, 255, 0}, {255, 0, 255}, {0, 255, 255},
                                 {255, 0, 0},     {0, 255, 0},   {0, 0, 255},   {0, 0, 0}};

// The clamp of the diffusion: 0 below entry 128, k - 128 up to entry 383,
// 255 above.
const uint8_t BOUNDARY_CHK[512] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
    16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31,
    32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
    48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63,
    64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79,
    80, 81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92, 93, 94, 95,
    96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111,
    112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127,
    128, 129, 130, 131, 132, 133, 134, 135, 136, 137, 138, 139, 140, 141, 142, 143,
    144, 145, 146, 147, 148, 149, 150, 151, 152, 153, 154, 155, 156, 157, 158, 159,
    160, 161, 162, 163, 164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 175,
    176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 190, 191,
    192, 193, 194, 195, 196, 197, 198, 199, 200, 201, 202, 203, 204, 205, 206, 207,
    208, 209, 210, 211, 212, 213, 214, 215, 216, 217, 218, 219, 220, 221, 222, 223,
    224, 225, 226, 227, 228, 229, 230, 231, 232, 233, 234, 235, 236, 237, 238, 239,
    240, 241, 242, 243, 244, 245, 246, 247, 248, 249, 250, 251, 252, 253, 254, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
};

const uint8_t *const Range_Chk = BOUNDARY_CHK + 128;

namespace {

bool printsRows() { return _debug_color_res != 0 && _debug_color_res <= 2; }

// Floyd-Steinberg in integers, left to right. q8 = e / 8 and q7 = 7e / 16
// truncate toward zero; the four neighbours get 7/16, 5/16, 3/16 and 1/16
// as q7, q7 - q8, q7 - 2 q8 and q7 - 3 q8.
template <class Nearest>
void ditherLine(uint8_t *pLine1, uint8_t *pLine2, const VCD *table, uint32_t width, Nearest &&nearest) {
    if (width == 0) return;
    int32_t index = 0;
    for (uint32_t j = 0; j + 1 < width; ++j) {
        uint8_t *p = pLine1 + size_t{j} * 3;
        index = nearest(p[0], p[1], p[2]);
        const uint8_t chosen[3] = {table[index].red, table[index].green, table[index].blue};
        for (int c = 0; c < 3; ++c) {
            const int32_t e = int32_t{p[c]} - chosen[c];
            const int32_t q8 = e / 8;
            const int32_t q7 = (7 * e) / 16;
            p[c] = chosen[c];
            p[3 + c] = Range_Chk[p[3 + c] + q7];
            if (pLine2 != nullptr) {
                uint8_t *below = pLine2 + size_t{j} * 3 + c;
                below[0] = Range_Chk[below[0] + q7 - q8];
                if (j > 0) below[-3] = Range_Chk[below[-3] + q7 - 2 * q8];
                below[3] = Range_Chk[below[3] + q7 - 3 * q8];
            }
        }
    }
    // The right edge repeats its neighbour's choice and passes no error on.
    // A row of one pixel has no neighbour: it takes its own nearest colour.
    uint8_t *last = pLine1 + (size_t{width} - 1) * 3;
    if (width == 1) index = nearest(last[0], last[1], last[2]);
    last[0] = table[index].red;
    last[1] = table[index].green;
    last[2] = table[index].blue;
}

// True when every entry of the table is a grey.
bool greyTable(const VCD *t, uint16_t n) {
    for (uint16_t k = 0; k < n; ++k)
        if (t[k].red != t[k].green || t[k].green != t[k].blue) return false;
    return n > 0;
}

// ditherLine for a greyed row on a table of greys, in one channel. Every pixel
// of the row below was greyed before any error reached it, and every table
// colour is a grey, so the three channels of each pixel stay equal through the
// diffusion: channel 0 carries the whole computation, and a pixel's three
// channels are written when its colour is chosen. The bytes are those of
// ditherLine (the tests compare the two).
// With `bits` given, the row is also converted to one bit per pixel on the
// way: each pixel's bit is bitOfIndex of its chosen index (the bit the
// conversion that finds the index again would write), into a zeroed row.
void ditherGreyLine(uint8_t *pLine1, uint8_t *pLine2, const VCD *table, uint32_t width,
                    const std::array<int32_t, 256> &nearestOfGrey, uint8_t *bits = nullptr,
                    const uint8_t *bitOfIndex = nullptr) {
    if (width == 0) return;
    // The running values live in registers: `cur` is the pixel in hand (its
    // right neighbour's error already added), and below pixels j - 1, j and
    // j + 1 receive their three clamped sums in the order the plain row gives
    // them (below-right of j - 1, below of j, below-left of j + 1).
    int32_t index = 0;
    uint8_t chosen = 0;
    int32_t cur = pLine1[0];
    int32_t belowLeft = 0, belowHere = pLine2 != nullptr ? pLine2[0] : 0;
    for (uint32_t j = 0; j + 1 < width; ++j) {
        uint8_t *p = pLine1 + size_t{j} * 3;
        index = nearestOfGrey[cur];
        chosen = table[index].red;
        const int32_t e = cur - chosen;
        const int32_t q8 = e / 8;
        const int32_t q7 = (7 * e) / 16;
        p[0] = p[1] = p[2] = chosen;
        if (bits != nullptr && bitOfIndex[index] != 0) bits[j >> 3] |= static_cast<uint8_t>(0x80u >> (j & 7));
        cur = Range_Chk[p[3] + q7];
        if (pLine2 != nullptr) {
            uint8_t *below = pLine2 + size_t{j} * 3;
            belowHere = Range_Chk[belowHere + q7 - q8];
            if (j > 0) {
                belowLeft = Range_Chk[belowLeft + q7 - 2 * q8];
                below[-3] = below[-2] = below[-1] = static_cast<uint8_t>(belowLeft);
            }
            const int32_t belowRight = Range_Chk[below[3] + q7 - 3 * q8];
            belowLeft = belowHere;
            belowHere = belowRight;
        }
    }
    if (pLine2 != nullptr && width >= 2) {
        // The last two below pixels keep the sums they have.
        uint8_t *below = pLine2 + (size_t{width} - 2) * 3;
        below[0] = below[1] = below[2] = static_cast<uint8_t>(belowLeft);
        below[3] = below[4] = below[5] = static_cast<uint8_t>(belowHere);
    }
    uint8_t *last = pLine1 + (size_t{width} - 1) * 3;
    if (width == 1) {
        index = nearestOfGrey[last[0]];
        chosen = table[index].red;
    }
    last[0] = last[1] = last[2] = chosen;
    const uint32_t j = width - 1;
    if (bits != nullptr && bitOfIndex[index] != 0) bits[j >> 3] |= static_cast<uint8_t>(0x80u >> (j & 7));
}

void printTable(const VCD *t, uint32_t n) {
    if (_debug_color_res == 0) return;
    std::printf("Dithering to the following colortable:\n");
    for (uint32_t k = 0; k < n; ++k) std::printf("color %d: [%d, %d, %d]\n", k, t[k].red, t[k].green, t[k].blue);
}

// Diffuses every row of the working copy. For one-bit output each row is
// greyed once, before the row above passes it any error.
void ditherRows(uint8_t *base, uint32_t w, uint32_t h, int16_t dst_depth, const VCD *table, uint16_t n) {
    const uint64_t bpl = bytesPerLine64(w, 24);
    NearestFinder finder(table, n);
    auto nearest = [&](uint8_t r, uint8_t g, uint8_t b) { return finder.find(r, g, b); };
    // One-bit output greys every row; onto a table of greys one channel does.
    const bool oneChannel = dst_depth == 1 && greyTable(table, n);
    std::array<int32_t, 256> nearestOfGrey{};
    if (oneChannel)
        for (int v = 0; v < 256; ++v) nearestOfGrey[v] = nearest(static_cast<uint8_t>(v), static_cast<uint8_t>(v), static_cast<uint8_t>(v));
    if (printsRows()) std::printf("Dithering...each(.) represents one scan line\n");
    for (uint32_t i = 0; i < h; ++i) {
        uint8_t *pLine1 = base + i * bpl;
        uint8_t *pLine2 = i + 1 < h ? pLine1 + bpl : nullptr;
        if (dst_depth == 1) {
            if (i == 0) rev_rgb(w, pLine1, 3);
            if (pLine2 != nullptr) rev_rgb(w, pLine2, 3);
        }
        if (oneChannel) {
            ditherGreyLine(pLine1, pLine2, table, w, nearestOfGrey);
        } else {
            ditherLine(pLine1, pLine2, table, w, nearest);
        }
        if (printsRows()) std::printf(i + 1 < h ? "." : ".\n");
    }
}

// The table a dither goes to, and whether it was made here.
struct Choice {
    ZHANDLE table = 0;
    uint16_t n = 0;
    bool made = false;
};

// Picks or builds the table. A derived table is the picture's own colours by
// median cut, then the eight fixed colours; one-bit output without a table
// gets the monochrome greys. False when a table cannot be had, or when a
// two-bit target without a table leaves no room for the fixed colours.
bool chooseTable(ZHANDLE copy, uint32_t w, uint32_t h, int16_t dst_depth, ZHANDLE given,
                 bool derive, Choice &out) {
    const uint32_t full = 1u << dst_depth;
    if (derive) {
        if (full < 8) return false;
        uint16_t pictureColours = static_cast<uint16_t>(full - 8);
        Owned reduced(rlReduceColorTable(copy, static_cast<int16_t>(w), static_cast<int16_t>(h),
                                         &pictureColours));
        if (reduced.get() == 0) return false;
        Owned table(rlGetMemory(static_cast<int16_t>(full), sizeof(VCD)));
        Locked from(reduced.get()), to(table.get());
        if (!to) return false;
        VCD *t = to.as<VCD>();
        if (from) std::memcpy(t, from.data(), std::min<size_t>(from.size(), pictureColours * sizeof(VCD)));
        std::memcpy(t + pictureColours, must_have_colors, sizeof must_have_colors);
        out.table = table.release();
        out.n = static_cast<uint16_t>(full);
        out.made = true;
    } else if (given != 0) {
        out.table = given;
        out.n = static_cast<uint16_t>(full);
        out.made = false;
    } else {
        Owned table(rlGetMemory(8, sizeof(VCD)));
        Locked to(table.get());
        if (!to) return false;
        std::memcpy(to.data(), MonoTable, sizeof MonoTable);
        out.table = table.release();
        out.n = 8;
        out.made = true;
    }
    return true;
}

bool validDitherDepth(int16_t dst_depth) { return dst_depth >= 1 && dst_depth <= 8; }

// One-bit output onto a table of greys, with the conversion fused into the
// diffusion: the conversion would find each pixel's index again as the
// nearest entry to its (table) colour and keep that index's lowest bit, so
// the bit of every index is worked out once and written as the row is
// diffused. The bytes are those of diffusing and then converting.
ZHANDLE ditherGreysToOneBit(ZHANDLE copy, uint32_t w, uint32_t h, const VCD *table, uint16_t n) {
    const uint64_t size = bitmapSize64(w, h, 1);
    Owned result(size <= UINT32_MAX ? allocBitmap(size) : 0);
    Locked out(result.get()), pixels(copy);
    if (!out) return 0;
    if (!pixels) return result.release();  // as the conversion of an unreadable copy: all zero
    NearestFinder finder(table, n);
    std::array<int32_t, 256> nearestOfGrey{};
    for (int v = 0; v < 256; ++v) {
        auto g = static_cast<uint8_t>(v);
        nearestOfGrey[v] = finder.find(g, g, g);
    }
    std::vector<uint8_t> bitOfIndex(n);
    for (uint16_t k = 0; k < n; ++k)
        bitOfIndex[k] = static_cast<uint8_t>(finder.find(table[k].red, table[k].green, table[k].blue) & 1);
    const uint64_t bpl = bytesPerLine64(w, 24), outBpl = bytesPerLine64(w, 1);
    uint8_t *base = pixels.data();
    for (uint32_t i = 0; i < h; ++i) {
        uint8_t *pLine1 = base + i * bpl;
        uint8_t *pLine2 = i + 1 < h ? pLine1 + bpl : nullptr;
        if (i == 0) rev_rgb(w, pLine1, 3);
        if (pLine2 != nullptr) rev_rgb(w, pLine2, 3);
        ditherGreyLine(pLine1, pLine2, table, w, nearestOfGrey, out.data() + i * outBpl, bitOfIndex.data());
    }
    return result.release();
}

// Dithers the working copy onto the table and converts it to the output
// depth; 0 when the table cannot be read or the result cannot be had.
ZHANDLE ditherAndConvert(ZHANDLE copy, uint32_t w, uint32_t h, int16_t dst_depth, ZHANDLE table, uint16_t n) {
    Locked t(table);
    if (!t) return 0;
    {
        // Entries past the end of the table's block read black.
        TableCopy entries(t.data(), t.size(), std::max<size_t>(n, 1));
        printTable(entries.data(), n);
        if (dst_depth == 1 && n >= 1 && greyTable(entries.data(), n) && _debug_color_res == 0)
            return ditherGreysToOneBit(copy, w, h, entries.data(), n);
        Locked pixels(copy);
        if (pixels) ditherRows(pixels.data(), w, h, dst_depth, entries.data(), n);
    }
    return rlConvertBitmapDepth(copy, w, h, 24, dst_depth, 0, table, n);
}

}  // namespace

void _rlDitherOneLine(uint8_t *pLine1, uint8_t *pLine2, const VCD *rgbTable, uint32_t width,
                      int32_t rgbTableSize) {
    if (pLine1 == nullptr || rgbTable == nullptr) return;
    ditherLine(pLine1, pLine2, rgbTable, width, [&](uint8_t r, uint8_t g, uint8_t b) {
        return rlNearestRGBIndex(r, g, b, rgbTable, rgbTableSize);
    });
}

ZHANDLE rlDitherBitmap(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth, int16_t dst_depth,
                       ZHANDLE Hsrcrgb, ZHANDLE *Hpnew_rgb) try {
    if (!validDitherDepth(dst_depth)) return 0;
    const ZHANDLE given = Hpnew_rgb != nullptr ? *Hpnew_rgb : 0;
    const bool derive = (1u << dst_depth) > 2 && given == 0;
    Choice choice;
    Owned copy, made;
    ZHANDLE result = 0;
    if (!derive) {
        // The table does not look at the pixels: it is chosen first, and a
        // one-bit dither onto greys then reads the source rows directly.
        if (!chooseTable(0, w, h, dst_depth, given, false, choice)) return 0;
        made.reset(choice.made ? choice.table : 0);
        if (dst_depth == 1 &&
            ditherSourceToOneBit(Hdata, w, h, src_depth, Hsrcrgb, choice.table, choice.n, result)) {
            if (result == 0) return 0;
            made.release();
            if (Hpnew_rgb != nullptr) *Hpnew_rgb = choice.table;
            return result;
        }
        copy.reset(rlConvertBitmapDepth(Hdata, w, h, src_depth, 24, Hsrcrgb, 0, 0));
        if (copy.get() == 0) return 0;
    } else {
        copy.reset(rlConvertBitmapDepth(Hdata, w, h, src_depth, 24, Hsrcrgb, 0, 0));
        if (copy.get() == 0) return 0;
        if (!chooseTable(copy.get(), w, h, dst_depth, given, true, choice)) return 0;
        made.reset(choice.made ? choice.table : 0);
    }
    result = ditherAndConvert(copy.get(), w, h, dst_depth, choice.table, choice.n);
    if (result == 0) return 0;
    made.release();
    if (Hpnew_rgb != nullptr) *Hpnew_rgb = choice.table;
    return result;
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}

void rlDitherGetCT(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth, int16_t dst_depth,
                   ZHANDLE Hsrcrgb, ZHANDLE *Hpnew_rgb, uint16_t *ctSize) try {
    if (Hpnew_rgb == nullptr || ctSize == nullptr || !validDitherDepth(dst_depth)) return;
    // A given table is heeded only for one-bit output. Only a table derived
    // from the picture needs the 24-bit working copy; the one-bit tables do
    // not look at the pixels, so no copy of a whole page is made for them.
    const bool derive = (1u << dst_depth) > 2;
    Owned copy(derive ? rlConvertBitmapDepth(Hdata, w, h, src_depth, 24, Hsrcrgb, 0, 0) : 0);
    if (derive && copy.get() == 0) return;
    Choice choice;
    if (!chooseTable(copy.get(), w, h, dst_depth, *Hpnew_rgb, derive, choice)) return;
    if (choice.made) {
        Locked t(choice.table);
        printTable(t.as<VCD>(), choice.n);
    } else {
        Locked t(choice.table);
        TableCopy entries(t.data(), t.size(), std::max<size_t>(choice.n, 1));
        printTable(entries.data(), choice.n);
    }
    *Hpnew_rgb = choice.table;
    *ctSize = choice.n;
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return;
}

ZHANDLE rlDitherGivenCT(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth, int16_t dst_depth,
                        ZHANDLE Hsrcrgb, ZHANDLE Hpnew_rgb, uint16_t numcolors) try {
    if (rlLockMemory(Hpnew_rgb) == nullptr) return 0;
    rlUnlockMemory(Hpnew_rgb);
    if (ZHANDLE bits = 0;
        dst_depth == 1 && ditherSourceToOneBit(Hdata, w, h, src_depth, Hsrcrgb, Hpnew_rgb, numcolors, bits))
        return bits;
    Owned copy(rlConvertBitmapDepth(Hdata, w, h, src_depth, 24, Hsrcrgb, 0, 0));
    if (copy.get() == 0) return 0;
    return ditherAndConvert(copy.get(), w, h, dst_depth, Hpnew_rgb, numcolors);
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}
