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
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <tmmintrin.h>
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
// Every part fits a signed byte (at most 111 either way): the four go
// together in one word, right in the low byte, then below, below left and
// below right.
struct GreyChoices {
    static constexpr int kLow = -128, kHigh = 383;
    std::array<uint32_t, kHigh - kLow + 1> parts{};
    std::array<int8_t, kHigh - kLow + 1> right{};
    std::array<uint8_t, kHigh - kLow + 1> bits{};

    GreyChoices(const VCD *table, uint16_t n) {
        NearestFinder finder(table, n);
        std::vector<uint8_t> bitOfIndex(n);
        // The conversion finds each chosen colour's index again and keeps its
        // lowest bit; for duplicated entries that is the first of them.
        for (uint16_t k = 0; k < n; ++k)
            bitOfIndex[k] = static_cast<uint8_t>(finder.find(table[k].red, table[k].green, table[k].blue) & 1);
        auto byte = [](int32_t v) { return static_cast<uint32_t>(static_cast<uint8_t>(static_cast<int8_t>(v))); };
        for (int s = kLow; s <= kHigh; ++s) {
            const int v = std::clamp(s, 0, 255);
            const auto g = static_cast<uint8_t>(v);
            const int32_t index = finder.find(g, g, g);
            const int32_t e = v - table[index].red;
            const int32_t q8 = e / 8;
            const int32_t q7 = (7 * e) / 16;
            const auto at = static_cast<size_t>(s - kLow);
            bits[at] = bitOfIndex[static_cast<size_t>(index)];
            right[at] = static_cast<int8_t>(q7);
            parts[at] = byte(q7) | byte(q7 - q8) << 8 | byte(q7 - 2 * q8) << 16 | byte(q7 - 3 * q8) << 24;
        }
    }
    const uint32_t *partsOf() const { return parts.data() - kLow; }
    const int8_t *rightOf() const { return right.data() - kLow; }
    const uint8_t *bitOf() const { return bits.data() - kLow; }
};

// The tenth of 3 a + 6 b + c for the byte triples of a row, eight at a time,
// as far as whole 16-byte loads stay inside the row's 3 w bytes; gives how
// many pixels it did (none without the instructions). The tenth comes from a
// multiply by 6554 / 65536, exact for sums up to 2550.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
[[gnu::target("ssse3")]] uint32_t tenthsOfTriplesSsse3(const uint8_t *in, uint32_t w, uint8_t *out) {
    const __m128i pick = _mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1);
    const __m128i weights = _mm_setr_epi8(3, 6, 3, 6, 3, 6, 3, 6, 1, 0, 1, 0, 1, 0, 1, 0);
    const __m128i tenth = _mm_set1_epi16(6554);
    uint32_t x = 0;
    for (; 3 * uint64_t{x} + 28 <= 3 * uint64_t{w}; x += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 3 * size_t{x}));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 3 * size_t{x} + 12));
        const __m128i sa = _mm_maddubs_epi16(_mm_shuffle_epi8(a, pick), weights);  // 3a + 6b, then c
        const __m128i sb = _mm_maddubs_epi16(_mm_shuffle_epi8(b, pick), weights);
        const __m128i sum = _mm_add_epi16(_mm_unpacklo_epi64(sa, sb), _mm_unpackhi_epi64(sa, sb));
        const __m128i v = _mm_mulhi_epu16(sum, tenth);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + x), _mm_packus_epi16(v, v));
    }
    return x;
}

uint32_t tenthsOfTriples(const uint8_t *in, uint32_t w, uint8_t *out) {
    static const bool usable = __builtin_cpu_supports("ssse3");
    return usable ? tenthsOfTriplesSsse3(in, w, out) : 0;
}
#else
uint32_t tenthsOfTriples(const uint8_t *, uint32_t, uint8_t *) { return 0; }
#endif

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
        plainTenth_ = true;
        for (int s = 0; s <= 2550; ++s) {
            ofSum_[static_cast<size_t>(s)] = greys[3 * static_cast<size_t>(s / 10)];
            plainTenth_ = plainTenth_ && ofSum_[static_cast<size_t>(s)] == s / 10;
        }
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
        case 24: {
            const uint32_t done = plainTenth_ ? tenthsOfTriples(in, w, out) : 0;
            in += 3 * size_t{done};
            for (uint32_t x = done; x < w; ++x, in += 3) out[x] = ofSum_[3u * in[0] + 6u * in[1] + in[2]];
            break;
        }
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
    bool plainTenth_ = false;  // no threshold: the grey is the weighted sum's tenth
    std::array<uint8_t, 2551> ofSum_{};
    std::array<uint8_t, 256> ofIndex_{};
};

// Diffuses rows of greys and writes their bits.
//
// A row goes in two passes. The first follows the one thing each pixel waits
// for: the sum of its grey and the part its left neighbour passes on. It is
// carried unclamped (the tables answer for the clamped grey), writes the
// bits, and sets aside each pixel's word of parts. The second adds to each
// pixel of the row below, eight at a time, below right of its upper left
// neighbour, below of the pixel above and below left of its upper right
// neighbour, in the order of the three-channel row, each sum clamped (the
// same values as Range_Chk's). Words no pixel sets (before the row, and the
// last pixel's, which is not diffused) are zero, which leaves a grey as it
// is.
//
// Two rows go together: the second row's first pass runs in the same loop as
// the first row's, some blocks of eight behind, on pixels the first row has
// already finished; each row's sums then wait on their own row only.
class RowDiffuser {
public:
    RowDiffuser(uint32_t width, const GreyChoices &t)
        : width_(width), parts_(t.partsOf()), right_(t.rightOf()), bitOf_(t.bitOf()),
          padded_(roundUp(width) + 8), upper_(padded_ + 2, 0), lower_(padded_ + 2, 0) {}

    // Room a row of greys needs past its width (the second pass works in
    // blocks of eight).
    size_t paddedWidth() const { return padded_; }

    // One row: `here` is the row in hand (read only: what it is dithered to
    // is not kept); `next` the row below, padded to paddedWidth(), or null for
    // the last row.
    void row(const uint8_t *here, uint8_t *next, uint8_t *bits) {
        Row r = start(here, bits, upper_);
        run(r, 0, width_ - 1);
        finish(r);
        if (next != nullptr) addParts(next, upper_.data() + 1, 0, roundUp(width_));
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
            // Pixel j of `below` waits for its right neighbour's grey to be
            // whole; its blocks of eight start at multiples of eight, as a's.
            if (!bStarted && whole >= 2) {
                b = start(below, bitsBelow, lower_);
                bStarted = true;
            }
            uint32_t bEnd = bDone;
            if (bStarted) {
                const auto ready = static_cast<uint32_t>(std::min<size_t>(n, whole - 1));
                bEnd = std::max(bDone, std::min(bDone + 8, ready == n ? n : ready & ~7u));
            }
            if (aEnd - aDone == 8 && bEnd - bDone == 8) {
                uint32_t accA = 0, accB = 0;
                for (uint32_t k = 0; k < 8; ++k) {
                    accA = accA << 1 | step(a, aDone + k);
                    accB = accB << 1 | step(b, bDone + k);
                }
                a.bits[aDone >> 3] = static_cast<uint8_t>(accA);
                b.bits[bDone >> 3] = static_cast<uint8_t>(accB);
            } else {
                run(a, aDone, aEnd);
                if (bEnd > bDone) run(b, bDone, bEnd);
            }
            aDone = aEnd;
            bDone = bEnd;
            whole = addWhole(below, upper_, whole, aDone, n, all);
            if (bStarted) wholeNext = addWhole(next, lower_, wholeNext, bDone, n, all);
        }
        finish(a);
        addParts(below, upper_.data() + 1, whole, all);
        if (!bStarted) b = start(below, bitsBelow, lower_);
        finish(b);
        addParts(next, lower_.data() + 1, wholeNext, all);
    }

private:
    // A row in its first pass. A whole block of eight bits is written at
    // once; `acc` holds those of a block begun and not ended.
    struct Row {
        const uint8_t *here;
        uint8_t *bits;
        uint32_t *words;  // [j]: pixel j's parts
        intptr_t cur, prev;
        uint32_t acc;
    };

    static size_t roundUp(uint32_t w) { return (size_t{w} + 7) & ~size_t{7}; }

    // Words are indexed from -1 (the upper left neighbour of the first pixel).
    static Row start(const uint8_t *here, uint8_t *bits, std::vector<uint32_t> &words) {
        return {here, bits, words.data() + 1, here[0], here[0], 0};
    }

    // Pixel j: sets its word aside, moves on to the next sum, gives its bit.
    uint32_t step(Row &r, uint32_t j) const {
        const intptr_t cur = r.cur;
        r.words[j] = parts_[cur];
        r.prev = cur;
        r.cur = r.here[j + 1] + intptr_t{right_[cur]};
        return bitOf_[cur];
    }

    void run(Row &r, uint32_t from, uint32_t to) const {
        for (uint32_t j = from; j < to; ++j) {
            r.acc = r.acc << 1 | step(r, j);
            if ((j & 7) == 7) {
                r.bits[j >> 3] = static_cast<uint8_t>(r.acc);
                r.acc = 0;
            }
        }
    }

    // The right edge repeats its neighbour's choice; a row of one pixel takes
    // its own.
    void finish(Row &r) const {
        const uint32_t j = width_ - 1;
        r.acc = r.acc << 1 | bitOf_[width_ == 1 ? r.here[0] : r.prev];
        r.bits[j >> 3] = static_cast<uint8_t>(r.acc << (7 - (j & 7)));
    }

    // Adds the parts to the blocks of eight of `next` that are whole once
    // `done` of the `n` diffusing pixels have set theirs aside; gives how far
    // `next` is then whole.
    size_t addWhole(uint8_t *next, const std::vector<uint32_t> &words, size_t added, uint32_t done, uint32_t n,
                    size_t all) const {
        // Pixel k is whole once pixel k + 1 has set its parts aside.
        const size_t whole = done == n ? all : (done >= 1 ? (size_t{done} - 1) & ~size_t{7} : 0);
        if (whole <= added) return added;
        addParts(next, words.data() + 1, added, whole);
        return whole;
    }

    // `w` indexed from -1, zero past the diffusing pixels.
    static void addParts(uint8_t *next, const uint32_t *w, size_t from, size_t to) {
#if defined(__SSE2__)
        const __m128i zero = _mm_setzero_si128(), top = _mm_set1_epi16(255);
        // Byte `field` of eight words from `at`, sign-extended to 16 bits.
        auto field = [](const uint32_t *at, int field) {
            __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
            __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at + 4));
            const __m128i up = _mm_cvtsi32_si128(24 - 8 * field);
            lo = _mm_sra_epi32(_mm_sll_epi32(lo, up), _mm_cvtsi32_si128(24));
            hi = _mm_sra_epi32(_mm_sll_epi32(hi, up), _mm_cvtsi32_si128(24));
            return _mm_packs_epi32(lo, hi);
        };
        for (size_t k = from; k < to; k += 8) {
            __m128i v = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(next + k)), zero);
            v = _mm_add_epi16(v, field(w + k - 1, 3));
            v = _mm_min_epi16(_mm_max_epi16(v, zero), top);
            v = _mm_add_epi16(v, field(w + k, 1));
            v = _mm_min_epi16(_mm_max_epi16(v, zero), top);
            v = _mm_add_epi16(v, field(w + k + 1, 2));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(next + k), _mm_packus_epi16(v, v));
        }
#else
        auto clampGrey = [](int32_t v) { return std::min(std::max(v, int32_t{0}), int32_t{255}); };
        auto part = [](uint32_t word, int field) { return int32_t{static_cast<int8_t>(word >> (8 * field))}; };
        for (size_t k = from; k < to; ++k)
            next[k] = static_cast<uint8_t>(clampGrey(
                clampGrey(clampGrey(next[k] + part(w[k - 1], 3)) + part(w[k], 1)) + part(w[k + 1], 2)));
#endif
    }

    uint32_t width_;
    const uint32_t *parts_;
    const int8_t *right_;
    const uint8_t *bitOf_;
    size_t padded_;
    std::vector<uint32_t> upper_, lower_;
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
    Owned out(size <= UINT32_MAX ? allocBitmap(size) : 0);
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
