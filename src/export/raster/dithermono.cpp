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
#include <cstddef>
#include <array>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "export/raster/colorlib.h"

namespace mivo4::color {

namespace {

bool greyEntries(const VCD *t, uint16_t n) {
    for (uint16_t k = 0; k < n; ++k)
        if (t[k].red != t[k].green || t[k].green != t[k].blue) return false;
    return n > 0;
}

// What a pixel in hand decides: the bit it is written as, and the parts of its
// error that go right (7/16), below (5/16), below left (3/16) and below right
// (1/16), truncated as the diffusion truncates them. They are kept for every
// sum a pixel can hold before it is clamped (a grey plus the part its left
// neighbour passes on, -111 to 366), each the entry of the clamped grey: the
// sum that every pixel waits for then needs one look-up and one addition.
struct GreyChoices {
    static constexpr int kLow = -128, kHigh = 383;
    struct Parts {
        int16_t right, below, belowLeft, belowRight;
    };
    std::array<Parts, kHigh - kLow + 1> parts{};
    std::array<uint8_t, kHigh - kLow + 1> bits{};

    GreyChoices(const VCD *table, uint16_t n) {
        NearestFinder finder(table, n);
        std::vector<uint8_t> bitOfIndex(n);
        // The conversion finds each chosen colour's index again and keeps its
        // lowest bit; for duplicated entries that is the first of them.
        for (uint16_t k = 0; k < n; ++k)
            bitOfIndex[k] = static_cast<uint8_t>(finder.find(table[k].red, table[k].green, table[k].blue) & 1);
        for (int s = kLow; s <= kHigh; ++s) {
            const int v = std::clamp(s, 0, 255);
            const auto g = static_cast<uint8_t>(v);
            const int32_t index = finder.find(g, g, g);
            const int32_t e = v - table[index].red;
            const int32_t q8 = e / 8;
            const int32_t q7 = (7 * e) / 16;
            const auto at = static_cast<size_t>(s - kLow);
            bits[at] = bitOfIndex[static_cast<size_t>(index)];
            parts[at] = {static_cast<int16_t>(q7), static_cast<int16_t>(q7 - q8), static_cast<int16_t>(q7 - 2 * q8),
                         static_cast<int16_t>(q7 - 3 * q8)};
        }
    }
    const Parts *partsOf() const { return parts.data() - kLow; }
    const uint8_t *bitOf() const { return bits.data() - kLow; }
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

// Diffuses rows of greys and writes their bits.
//
// A row goes in two passes. The first follows the one thing each pixel waits
// for: the sum of its grey and the part its left neighbour passes on. It is
// carried unclamped (the tables answer for the clamped grey), writes the
// bits, and sets aside the three parts each pixel passes to the row below,
// lined up with the pixel of that row that receives them: below right of
// j - 1, below of j, below left of j + 1. Parts no pixel passes (from the
// first pixel to its lower left, from the last pixel, which is not diffused)
// are zero, which leaves a grey as it is. The second pass adds them to the
// row below, eight pixels at a time, in the order of the three-channel row,
// each sum clamped (the same values as Range_Chk's).
//
// Two rows go together: the second row's first pass runs in the same loop as
// the first row's, a few blocks of eight behind, on pixels the first row has
// already finished; each row's sums then wait on their own row only.
class RowDiffuser {
public:
    RowDiffuser(uint32_t width, const GreyChoices &t)
        : width_(width), parts_(t.partsOf()), bitOf_(t.bitOf()), padded_(roundUp(width) + 8),
          lower_(padded_), upper_(padded_) {}

    // Room a row of greys needs past its width (the second pass works in
    // blocks of eight).
    size_t paddedWidth() const { return padded_; }

    // One row: `here` is the row in hand (read only: what it is dithered to
    // is not kept); `next` the row below, padded to paddedWidth(), or null for
    // the last row.
    void row(const uint8_t *here, uint8_t *next, uint8_t *bits) {
        Row r = start(here, bits, upper_);
        const uint32_t n = width_ - 1;  // the pixels that pass error on
        for (uint32_t j = 0; j < n; ++j) step(r, j);
        finish(r);
        if (next != nullptr) addParts(next, upper_, 0, roundUp(width_));
    }

    // Two rows: `here` and `below` (the row below it, whose greys `here`'s
    // parts complete), and `next`, the row below both. All padded.
    void rowPair(const uint8_t *here, uint8_t *below, uint8_t *next, uint8_t *bitsHere, uint8_t *bitsBelow) {
        const uint32_t n = width_ - 1;  // the pixels that pass error on
        const size_t all = roundUp(width_);
        Row a = start(here, bitsHere, upper_);
        Row b{};
        bool bStarted = false;
        uint32_t aDone = 0, bDone = 0;  // pixels through the first pass
        size_t whole = 0, wholeNext = 0;  // pixels of `below` and of `next` that are whole
        while (bDone < n) {
            const uint32_t aEnd = std::min(aDone + 8, n);
            // Pixel j of `below` waits for its right neighbour's grey to be whole.
            if (!bStarted && whole >= 2) {
                b = start(below, bitsBelow, lower_);
                bStarted = true;
            }
            const uint32_t bEnd =
                bStarted ? std::max(bDone, std::min(bDone + 8, static_cast<uint32_t>(std::min<size_t>(n, whole - 1))))
                         : bDone;
            if (aEnd - aDone == 8 && bEnd - bDone == 8) {
                for (uint32_t k = 0; k < 8; ++k) {
                    step(a, aDone + k);
                    step(b, bDone + k);
                }
            } else {
                for (uint32_t j = aDone; j < aEnd; ++j) step(a, j);
                for (uint32_t j = bDone; j < bEnd; ++j) step(b, j);
            }
            aDone = aEnd;
            bDone = bEnd;
            whole = addWhole(below, upper_, whole, aDone, n, all);
            if (bStarted) wholeNext = addWhole(next, lower_, wholeNext, bDone, n, all);
        }
        finish(a);
        addParts(below, upper_, whole, all);
        if (!bStarted) b = start(below, bitsBelow, lower_);
        finish(b);
        addParts(next, lower_, wholeNext, all);
    }

private:
    // Where a row's parts wait for the row below. Indexed from -1: the first
    // pixel's below left lands before the row; the places no pixel writes
    // stay zero.
    struct Parts {
        explicit Parts(size_t padded) : fromLeft(padded + 1, 0), fromAbove(padded + 1, 0), fromRight(padded + 1, 0) {}
        std::vector<int16_t> fromLeft, fromAbove, fromRight;
    };
    // A row in its first pass.
    struct Row {
        const uint8_t *here;
        uint8_t *bits;
        int16_t *fromLeft, *fromAbove, *toLowerLeft;  // toLowerLeft[j]: fromRight[j - 1]
        intptr_t cur, prev;
        uint32_t acc;
    };

    static size_t roundUp(uint32_t w) { return (size_t{w} + 7) & ~size_t{7}; }

    static Row start(const uint8_t *here, uint8_t *bits, Parts &p) {
        return {here, bits, p.fromLeft.data() + 1, p.fromAbove.data() + 1, p.fromRight.data(), here[0], here[0], 0};
    }

    void step(Row &r, uint32_t j) const {
        const GreyChoices::Parts &p = parts_[r.cur];
        r.acc = r.acc << 1 | bitOf_[r.cur];
        if ((j & 7) == 7) {
            r.bits[j >> 3] = static_cast<uint8_t>(r.acc);
            r.acc = 0;
        }
        r.fromLeft[j + 1] = p.belowRight;
        r.fromAbove[j] = p.below;
        r.toLowerLeft[j] = p.belowLeft;
        r.prev = r.cur;
        r.cur = r.here[j + 1] + intptr_t{p.right};
    }

    // The right edge repeats its neighbour's choice; a row of one pixel takes
    // its own.
    void finish(Row &r) const {
        const uint32_t j = width_ - 1;
        r.acc = r.acc << 1 | bitOf_[width_ == 1 ? r.here[0] : r.prev];
        r.bits[j >> 3] = static_cast<uint8_t>(r.acc << (7 - (j & 7)));
    }

    // Adds the parts to the blocks of eight of `next` that are whole once
    // `done` of the `n` diffusing pixels have passed theirs on; gives how far
    // `next` is then whole.
    size_t addWhole(uint8_t *next, const Parts &p, size_t added, uint32_t done, uint32_t n, size_t all) const {
        // Pixel k is whole once pixel k + 1 has passed its parts on.
        const size_t whole = done == n ? all : (done >= 1 ? (size_t{done} - 1) & ~size_t{7} : 0);
        if (whole <= added) return added;
        addParts(next, p, added, whole);
        return whole;
    }

    void addParts(uint8_t *next, const Parts &p, size_t from, size_t to) const {
        const int16_t *a = p.fromLeft.data() + 1, *b = p.fromAbove.data() + 1, *c = p.fromRight.data() + 1;
#if defined(__SSE2__)
        const __m128i zero = _mm_setzero_si128(), top = _mm_set1_epi16(255);
        for (size_t k = from; k < to; k += 8) {
            __m128i v = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(next + k)), zero);
            v = _mm_add_epi16(v, _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + k)));
            v = _mm_min_epi16(_mm_max_epi16(v, zero), top);
            v = _mm_add_epi16(v, _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + k)));
            v = _mm_min_epi16(_mm_max_epi16(v, zero), top);
            v = _mm_add_epi16(v, _mm_loadu_si128(reinterpret_cast<const __m128i *>(c + k)));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(next + k), _mm_packus_epi16(v, v));
        }
#else
        auto clampGrey = [](int32_t v) { return std::min(std::max(v, int32_t{0}), int32_t{255}); };
        for (size_t k = from; k < to; ++k)
            next[k] = static_cast<uint8_t>(clampGrey(clampGrey(clampGrey(next[k] + a[k]) + b[k]) + c[k]));
#endif
    }

    uint32_t width_;
    const GreyChoices::Parts *parts_;
    const uint8_t *bitOf_;
    size_t padded_;
    Parts lower_, upper_;
};

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
    RowDiffuser diffuser(w, choices);
    std::vector<uint8_t> here(diffuser.paddedWidth()), below(diffuser.paddedWidth()), next(diffuser.paddedWidth());
    const uint64_t outBpl = bytesPerLine64(w, 1);
    greyer.row(rows.row(0), w, here.data());
    uint32_t i = 0;
    for (; i + 2 < h; i += 2) {
        greyer.row(rows.row(i + 1), w, below.data());
        greyer.row(rows.row(i + 2), w, next.data());
        diffuser.rowPair(here.data(), below.data(), next.data(), bits.data() + i * outBpl,
                         bits.data() + (i + 1) * outBpl);
        here.swap(next);
    }
    for (; i < h; ++i) {
        const bool last = i + 1 == h;
        if (!last) greyer.row(rows.row(i + 1), w, next.data());
        diffuser.row(here.data(), last ? nullptr : next.data(), bits.data() + i * outBpl);
        here.swap(next);
    }
    result = out.release();
    return true;
}

}  // namespace mivo4::color
