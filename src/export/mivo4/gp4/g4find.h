// Word-at-a-time search for changing elements in a row of one-bit pixels
// (most significant bit first, a set bit is white). The coder spends most of
// its time here, so rows are scanned 64 pixels per step: a big-endian 64-bit
// window is loaded at the byte that holds the start pixel, shifted so that the
// start pixel is the top bit, and the first pixel of the other colour is found
// with one count-leading-zeros.
//
// No search reads past the `size` bytes it is given: windows that would reach
// beyond them are assembled byte by byte. Bits past `width` may hold anything;
// every result is clamped to `width`, so they never count.
#pragma once

#include <cstdint>
#include <cstring>
#include <utility>

namespace mivo4::g4 {

// Bytes that hold `width` pixels.
constexpr uint32_t RowBytes(uint32_t width) { return (width >> 3) + ((width & 7) != 0 ? 1 : 0); }

// Eight bytes from `index` as a big-endian word; bytes at or past `size` read as 0.
inline uint64_t LoadWindow(const uint8_t *row, uint64_t index, uint32_t size) {
    if (index + 8 <= size) {
        uint64_t v;
        std::memcpy(&v, row + index, 8);
        return __builtin_bswap64(v);
    }
    uint64_t v = 0;
    for (uint64_t i = index; i < index + 8; ++i) v = (v << 8) | (i < size ? row[i] : 0u);
    return v;
}

// The pixel at `pos`: true when white (its bit is set).
inline bool PixelWhite(const uint8_t *row, uint32_t pos) {
    return ((row[pos >> 3] >> (7 - (pos & 7))) & 1u) != 0;
}

// First position at or after `pos` whose pixel is not of the colour `white`,
// or `width` when the rest of the row is all of that colour.
inline uint32_t FindOther(const uint8_t *row, uint32_t size, uint32_t pos, uint32_t width,
                          bool white) {
    // Looking for a clear bit in a white run: flip, so that the target is a set bit.
    const uint64_t flip = white ? ~uint64_t{0} : 0;
    uint64_t p = pos;
    while (p < width) {
        uint32_t shift = static_cast<uint32_t>(p & 7);
        // Flipped before the shift, so the zeros shifted in can never match.
        uint64_t w = (LoadWindow(row, p >> 3, size) ^ flip) << shift;
        if (w != 0) {
            uint64_t found = p + static_cast<uint64_t>(__builtin_clzll(w));
            return found < width ? static_cast<uint32_t>(found) : width;
        }
        p += 64 - shift;
    }
    return width;
}

// The next changing element after `a0` whose left neighbour has the colour
// `white` and which itself has the other colour, or `width`. At a0 = 0 the
// colour before the row is white (the imaginary pixel left of pixel 0), so a
// black pixel 0 is itself a changing element; elsewhere an element exactly at
// a0 is never returned.
inline uint32_t NextChange(const uint8_t *row, uint32_t size, uint32_t a0, bool white,
                           uint32_t width) {
    if (a0 >= width) return width;
    bool here = a0 == 0 ? true : PixelWhite(row, a0);
    uint32_t p = FindOther(row, size, a0, width, here);
    if (p >= width || here == white) return p;
    // The run at a0 was of the other colour: skip the run of `white` that follows.
    return FindOther(row, size, p, width, white);
}

// True when the first `width` pixels of the two rows are the same.
inline bool SameRow(const uint8_t *a, const uint8_t *b, uint32_t width) {
    uint32_t full = width >> 3;
    if (std::memcmp(a, b, full) != 0) return false;
    uint32_t rest = width & 7;
    if (rest == 0) return true;
    uint8_t mask = static_cast<uint8_t>(0xFF00u >> rest);
    return ((a[full] ^ b[full]) & mask) == 0;
}

// Number of changing elements of a row: positions whose pixel differs from its
// left neighbour, the imaginary white pixel left of pixel 0 included.
inline uint32_t CountChanges(const uint8_t *row, uint32_t size, uint32_t width) {
    uint32_t count = 0;
    uint64_t before = 1;  // white
    for (uint64_t p = 0; p < width; p += 64) {
        uint64_t w = LoadWindow(row, p >> 3, size);
        uint64_t changes = w ^ ((w >> 1) | (before << 63));
        uint64_t valid = width - p;
        if (valid < 64) changes &= ~uint64_t{0} << (64 - valid);
        count += static_cast<uint32_t>(__builtin_popcountll(changes));
        before = w & 1;
    }
    return count;
}

}  // namespace mivo4::g4

namespace mivo4::g4 {

// The changing elements a coding step needs, found in one of two ways. Both
// give, for a0 and the colour of the current run:
//   a1  the next changing element of the coding row (NextChange on the row),
//   b1  the next changing element of the reference row of the other colour,
//   b2  the one after b1, and
//   a2  the one after a1;
// the reference row of the first row of a picture is all white (b1 = b2 = width).

// Searches the rows themselves at every step. Needs no memory of its own.
class RowSearch {
public:
    RowSearch(uint32_t width, uint32_t size) : width_(width), size_(size) {}
    void BeginBand(const uint8_t *ref) { ref_ = ref; }
    void BeginRow(const uint8_t *row) { row_ = row; }
    void EndRow() { ref_ = row_; }
    // A row equal to its reference row was coded without BeginRow: the
    // reference row stays, it has the same pixels.
    void EndSameRow() {}
    uint32_t RefChanges() const { return ref_ != nullptr ? CountChanges(ref_, size_, width_) : 0; }
    void Step(uint32_t a0, bool white, uint32_t &a1, uint32_t &b1, uint32_t &b2) {
        a1 = NextChange(row_, size_, a0, white, width_);
        if (ref_ != nullptr) {
            b1 = NextChange(ref_, size_, a0, white, width_);
            b2 = NextChange(ref_, size_, b1, !white, width_);
        } else {
            b1 = b2 = width_;
        }
    }
    uint32_t A2(uint32_t a1, bool white) const { return NextChange(row_, size_, a1, !white, width_); }
    void AfterPass() {}
    void AfterVertical() {}
    void AfterHorizontal() {}

private:
    uint32_t width_, size_;
    const uint8_t *row_ = nullptr;
    const uint8_t *ref_ = nullptr;
};

// Lists the changing elements of each row once, 64 pixels per step, and then
// codes from the lists: every search becomes a short walk along an ascending
// list. Element i of a list is a change to black when i is even (the row
// starts white) and to white when i is odd; three copies of the width close
// each list so that the walks need no bounds checks. The list of a finished
// row is the reference list of the next.
//
// On the coding row no walk is needed at all: the pixels from a0 up to a1
// have the colour of the current run, so a1 is always the element after the
// last one coded. A pass leaves it in place, a vertical step moves past a1 and
// a horizontal step past a1 and a2.
class ListSearch {
public:
    // Entries of the two lists: a row has at most `width` changing elements;
    // the three closing entries and the unconditional stores of List need the
    // slack.
    static uint64_t ListEntries(uint32_t width) { return uint64_t{width} + 4 + kSlack; }
    static uint64_t Entries(uint32_t width) { return 2 * ListEntries(width); }

    // `lists` holds Entries(width) entries.
    ListSearch(uint32_t width, uint32_t size, uint32_t *lists)
        : width_(width), size_(size), cur_(lists), ref_(lists + ListEntries(width)) {}

    void BeginBand(const uint8_t *ref) {
        if (ref != nullptr) {
            refCount_ = List(ref, ref_);
        } else {
            refCount_ = 0;
            Close(ref_, 0);
        }
    }
    void BeginRow(const uint8_t *row) {
        curCount_ = List(row, cur_);
        ia_ = ib_ = 0;
    }
    void EndRow() {
        std::swap(cur_, ref_);
        refCount_ = curCount_;
    }
    void EndSameRow() {}  // the row's list is the reference list already
    uint32_t RefChanges() const { return refCount_; }

    void Step(uint32_t a0, bool white, uint32_t &a1, uint32_t &b1, uint32_t &b2) {
        // On the reference row, elements at a0 itself do not count, except at
        // 0: the imaginary white pixel left of the row makes a black pixel 0 a
        // changing element. `from` never decreases within a row, so the walk
        // resumes where the last step's stopped. It keeps the first element at
        // or after `from` whatever its colour: one passed over for its colour
        // now can be the answer of the next step, once the colour has changed.
        uint32_t from = a0 == 0 ? 0 : a0 + 1;
        uint32_t parity = white ? 0 : 1;  // a change away from the current colour
        while (ref_[ib_] < from) ++ib_;
        uint32_t j = ib_ + ((ib_ & 1) ^ parity);
        a1 = cur_[ia_];
        b1 = ref_[j];
        b2 = ref_[j + 1];
    }
    uint32_t A2(uint32_t, bool) const { return cur_[ia_ + 1]; }
    void AfterPass() {}
    void AfterVertical() { ia_ += 1; }
    void AfterHorizontal() { ia_ += 2; }

    // For the coder's own walk over a row's steps (ListSteps in encode.cpp):
    // the two lists, and where the walk stands in each.
    const uint32_t *CodingList() const { return cur_; }
    const uint32_t *ReferenceList() const { return ref_; }
    uint32_t A1Index() const { return ia_; }
    uint32_t RefIndex() const { return ib_; }
    void SetIndexes(uint32_t ia, uint32_t ib) {
        ia_ = ia;
        ib_ = ib;
    }

private:
    static constexpr uint32_t kSlack = 4;

    void Close(uint32_t *list, uint32_t n) const {
        list[n] = list[n + 1] = list[n + 2] = width_;
    }
    // Eight bytes from `index` with pixel `8 * index + i` at bit i (bytes at
    // or past `size` read as 0): in this order the elements come out lowest
    // bit first, each found by a count of trailing zeros and cleared by
    // `changes &= changes - 1`, a shorter chain from one element to the next
    // than the leading zeros and shifted mask of the other order.
    static uint64_t LoadPixelOrder(const uint8_t *row, uint64_t index, uint32_t size) {
        uint64_t v = 0;
        if (index + 8 <= size) {
            std::memcpy(&v, row + index, 8);  // little-endian, as LoadWindow takes it
        } else {
            for (uint64_t i = index; i < index + 8 && i < size; ++i) v |= uint64_t{row[i]} << (8 * (i - index));
        }
        v = ((v >> 1) & 0x5555555555555555u) | ((v & 0x5555555555555555u) << 1);
        v = ((v >> 2) & 0x3333333333333333u) | ((v & 0x3333333333333333u) << 2);
        v = ((v >> 4) & 0x0F0F0F0F0F0F0F0Fu) | ((v & 0x0F0F0F0F0F0F0F0Fu) << 4);
        return v;
    }

    uint32_t List(const uint8_t *row, uint32_t *list) const {
        uint32_t n = 0;
        uint64_t before = 1;  // the imaginary white pixel
        for (uint64_t p = 0; p < width_; p += 64) {
            uint64_t w = LoadPixelOrder(row, p >> 3, size_);
            uint64_t changes = w ^ ((w << 1) | before);
            before = w >> 63;
            uint64_t valid = width_ - p;
            if (valid < 64) changes &= (uint64_t{1} << valid) - 1;
            if (changes == 0) continue;
            // Four stores at a time, whether or not four elements are left:
            // the extra stores land in the slack and are overwritten.
            uint32_t count = static_cast<uint32_t>(__builtin_popcountll(changes));
            uint32_t *out = list + n;
            const uint32_t base = static_cast<uint32_t>(p);
            for (uint32_t done = 0; done < count; done += 4, out += 4) {
                for (int k = 0; k < 4; ++k) {
                    out[k] = base + static_cast<uint32_t>(__builtin_ctzll(changes | uint64_t{1} << 63));
                    changes &= changes - 1;
                }
            }
            n += count;
        }
        Close(list, n);
        return n;
    }

    uint32_t width_, size_;
    uint32_t *cur_, *ref_;
    uint32_t curCount_ = 0, refCount_ = 0;
    uint32_t ia_ = 0;  // index of the next a1 in the coding row's list
    uint32_t ib_ = 0;  // first reference element at or after the last step's start
};

// Test hook: makes the coder use RowSearch even when it could have the lists'
// memory, so that both ways are checked. Not exported.
extern bool gForceRowSearch;
// Test hook: makes the coder take a row's steps one at a time through the
// search's interface even with the lists, instead of its own walk over them,
// so that the walk can be checked against the plain steps. Not exported.
extern bool gForceStepLoop;

}  // namespace mivo4::g4
