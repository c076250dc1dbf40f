// One pass from the source bitmap to one bit per pixel, for a dither onto a
// table of greys.
//
// The long way round makes a 24-bit working copy of the picture, greys each
// row of it in place just before the row above passes it any error, diffuses
// the three (equal) channels, and finds every pixel's table index again to
// keep its lowest bit. Here each source row is greyed straight into a
// one-byte row, two such rows carry the diffusion, and the bit of each grey is
// written as it is chosen. Everything that depends on a grey alone (its table
// index, its bit, and the four error parts it passes on) comes from tables of
// the 256 greys. The bits are those of the long way (the tests compare the
// two on random pictures of every source depth).
#include "export/raster/dithermono.h"

#include <mivo4/color.h>

#include <algorithm>
#include <array>
#include <vector>

#include "export/raster/colorlib.h"

namespace mivo4::color {

namespace {

bool greyEntries(const VCD *t, uint16_t n) {
    for (uint16_t k = 0; k < n; ++k)
        if (t[k].red != t[k].green || t[k].green != t[k].blue) return false;
    return n > 0;
}

// What a grey in hand decides: the bit it is written as, and the parts of its
// error that go right (7/16), below (5/16), below left (3/16) and below right
// (1/16), truncated as the diffusion truncates them.
struct GreyChoices {
    std::array<uint8_t, 256> bit{};
    std::array<int16_t, 256> right{}, below{}, belowLeft{}, belowRight{};

    GreyChoices(const VCD *table, uint16_t n) {
        NearestFinder finder(table, n);
        std::vector<uint8_t> bitOfIndex(n);
        // The conversion finds each chosen colour's index again and keeps its
        // lowest bit; for duplicated entries that is the first of them.
        for (uint16_t k = 0; k < n; ++k)
            bitOfIndex[k] = static_cast<uint8_t>(finder.find(table[k].red, table[k].green, table[k].blue) & 1);
        for (int v = 0; v < 256; ++v) {
            const auto g = static_cast<uint8_t>(v);
            const int32_t index = finder.find(g, g, g);
            const int32_t e = v - table[index].red;
            const int32_t q8 = e / 8;
            const int32_t q7 = (7 * e) / 16;
            bit[v] = bitOfIndex[static_cast<size_t>(index)];
            right[v] = static_cast<int16_t>(q7);
            below[v] = static_cast<int16_t>(q7 - q8);
            belowLeft[v] = static_cast<int16_t>(q7 - 2 * q8);
            belowRight[v] = static_cast<int16_t>(q7 - 3 * q8);
        }
    }
};

// The grey a source pixel becomes for one-bit output: the weighted grey
// (3 red + 6 green + blue) / 10, then darkened by the setup's threshold as
// rev_rgb darkens it (taken from rev_rgb itself, on the 256 greys, each of
// which is its own weighted grey).
class Greyer {
public:
    Greyer(int16_t depth, const VCD *sourceTable) : depth_(depth) {
        std::array<uint8_t, 256 * 3> greys{};
        for (int v = 0; v < 256; ++v) greys[3 * v] = greys[3 * v + 1] = greys[3 * v + 2] = static_cast<uint8_t>(v);
        rev_rgb(256, greys.data(), 3);
        for (int s = 0; s <= 2550; ++s) ofSum_[static_cast<size_t>(s)] = greys[3 * static_cast<size_t>(s / 10)];
        if (depth <= 8) {
            // An indexed pixel becomes its table colour (black without a table).
            for (uint32_t v = 0; v < tableEntries(depth); ++v) {
                const VCD c = sourceTable != nullptr ? sourceTable[v] : VCD{0, 0, 0};
                ofIndex_[v] = ofSum_[3u * c.red + 6u * c.green + c.blue];
            }
        }
    }

    void row(const uint8_t *in, uint32_t w, uint8_t *out) const {
        switch (depth_) {
        case 24:
            for (uint32_t x = 0; x < w; ++x, in += 3) out[x] = ofSum_[3u * in[0] + 6u * in[1] + in[2]];
            break;
        case 32:
            for (uint32_t x = 0; x < w; ++x, in += 4) out[x] = ofSum_[3u * in[0] + 6u * in[1] + in[2]];
            break;
        case 8:
            for (uint32_t x = 0; x < w; ++x) out[x] = ofIndex_[in[x]];
            break;
        case 4:
            for (uint32_t x = 0; x < w; ++x) out[x] = ofIndex_[(x & 1) ? (in[x >> 1] & 0x0Fu) : (in[x >> 1] >> 4)];
            break;
        default:  // 1
            for (uint32_t x = 0; x < w; ++x) out[x] = ofIndex_[(in[x >> 3] >> (7 - (x & 7))) & 1u];
            break;
        }
    }

private:
    int16_t depth_;
    std::array<uint8_t, 2551> ofSum_{};
    std::array<uint8_t, 256> ofIndex_{};
};

// Diffuses one row of greys and writes its bits. `here` is the row in hand
// (read only: what it is dithered to is not kept), `next` the row below,
// which receives its error, or null for the last row. The order of the sums
// is that of the three-channel row: below right of j - 1, below of j, below
// left of j + 1, each clamped.
void ditherRow(const uint8_t *here, uint8_t *next, uint32_t width, const GreyChoices &t, uint8_t *bits) {
    if (width == 0) return;
    int32_t cur = here[0], prev = here[0];
    int32_t left = 0, under = next != nullptr ? next[0] : 0;
    uint32_t acc = 0;
    for (uint32_t j = 0; j + 1 < width; ++j) {
        acc = acc << 1 | t.bit[static_cast<size_t>(cur)];
        if ((j & 7) == 7) {
            bits[j >> 3] = static_cast<uint8_t>(acc);
            acc = 0;
        }
        // The pixel to the right is the next one in hand: clamped without a
        // table look-up (the same values as Range_Chk's), since each pixel
        // waits for this sum.
        const int32_t after = std::clamp(here[j + 1] + int32_t{t.right[static_cast<size_t>(cur)]}, 0, 255);
        if (next != nullptr) {
            under = Range_Chk[under + t.below[static_cast<size_t>(cur)]];
            if (j > 0) {
                left = Range_Chk[left + t.belowLeft[static_cast<size_t>(cur)]];
                next[j - 1] = static_cast<uint8_t>(left);
            }
            const int32_t underRight = Range_Chk[next[j + 1] + t.belowRight[static_cast<size_t>(cur)]];
            left = under;
            under = underRight;
        }
        prev = cur;
        cur = after;
    }
    if (next != nullptr && width >= 2) {
        next[width - 2] = static_cast<uint8_t>(left);
        next[width - 1] = static_cast<uint8_t>(under);
    }
    // The right edge repeats its neighbour's choice; a row of one pixel takes
    // its own.
    const uint32_t j = width - 1;
    acc = acc << 1 | t.bit[static_cast<size_t>(width == 1 ? here[0] : prev)];
    bits[j >> 3] = static_cast<uint8_t>(acc << (7 - (j & 7)));
}

}  // namespace

bool ditherSourceToOneBit(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth, ZHANDLE Hsrcrgb,
                          ZHANDLE Htable, uint16_t n, ZHANDLE &result) {
    if (_debug_color_res != 0 || w == 0 || h == 0 || n == 0) return false;
    if (src_depth != 1 && src_depth != 4 && src_depth != 8 && src_depth != 24 && src_depth != 32) return false;
    // The long way needs the working copy; where that could not be had the
    // answer is that failure, so that one picture never has two outcomes.
    if (bitmapSize64(w, h, 24) > UINT32_MAX) return false;
    Locked t(Htable);
    if (!t) return false;
    TableCopy entries(t.data(), t.size(), n);
    if (!greyEntries(entries.data(), n)) return false;

    const uint64_t size = bitmapSize64(w, h, 1);
    Owned out(size <= UINT32_MAX ? allocBytes(size) : 0);
    Locked bits(out.get());
    result = 0;
    if (!bits) return true;

    TableCopy sourceTable;
    if (src_depth <= 8) {
        Locked st(Hsrcrgb);
        if (st) sourceTable.assign(st.data(), st.size(), tableEntries(src_depth));
    }
    const Greyer greyer(src_depth, sourceTable.data());
    const GreyChoices choices(entries.data(), n);
    Locked src(Hdata);
    RowReader rows(src.data(), src.size(), bytesPerLine64(w, src_depth));
    std::vector<uint8_t> here(w), next(w);
    const uint64_t outBpl = bytesPerLine64(w, 1);
    greyer.row(rows.row(0), w, here.data());
    for (uint32_t i = 0; i < h; ++i) {
        const bool last = i + 1 == h;
        if (!last) greyer.row(rows.row(i + 1), w, next.data());
        ditherRow(here.data(), last ? nullptr : next.data(), w, choices, bits.data() + i * outBpl);
        here.swap(next);
    }
    result = out.release();
    return true;
}

}  // namespace mivo4::color
