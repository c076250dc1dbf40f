// Shared internals of the colour library: blocks held by handle, bounded
// views of bitmaps, raw pixel stores, and a memoised nearest-colour search.
#pragma once

#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "zep_xxxx/meminternal.h"

namespace mivo4::color {

// ---------------------------------------------------------------- sizes

// Row size in bytes, in 64 bits so that no caller's arithmetic wraps.
constexpr uint64_t bytesPerLine64(uint32_t w, int16_t depth) {
    if (depth <= 0) return 0;
    uint64_t bits = uint64_t{w} * static_cast<uint64_t>(depth);
    uint64_t bytes = bits / 8 + (bits % 8 != 0 ? 1 : 0);
    return (bytes + 3) & ~uint64_t{3};
}

constexpr uint64_t bitmapSize64(uint32_t w, uint32_t h, int16_t depth) {
    uint64_t bpl = bytesPerLine64(w, depth);
    if (bpl != 0 && h > UINT64_MAX / bpl) return UINT64_MAX;
    return bpl * h;
}

constexpr bool isSupportedDepth(int32_t depth) {
    return depth == 1 || depth == 4 || depth == 8 || depth == 24 || depth == 32;
}

// 2^depth entries of a table for an indexed depth; 0 for depths that have no
// table of a size one could hold (true colour or nonsense).
constexpr uint32_t tableEntries(int32_t depth) {
    return depth >= 0 && depth <= 16 ? (1u << depth) : 0;
}

// ---------------------------------------------------------------- memory

// A block of n bytes, moveable and zero-filled; 0 when it cannot be had or
// when n does not fit the allocator's 32-bit sizes.
inline ZHANDLE allocBytes(uint64_t n) {
    if (n <= static_cast<uint64_t>(INT32_MAX)) return rlGetMemory(1, static_cast<int32_t>(n));
    if (n <= UINT32_MAX) return GlobalAlloc(GHND, static_cast<uint32_t>(n));
    return 0;
}

// A block for a bitmap that the caller writes whole: as allocBytes, its
// pages put in place at once.
inline ZHANDLE allocBitmap(uint64_t n) {
    ZHANDLE h = allocBytes(n);
    mivo4::mem::Prefault(h);
    return h;
}

// Locks a handle for the guard's lifetime. A handle that cannot be locked
// gives a null pointer and size 0.
class Locked {
public:
    explicit Locked(ZHANDLE h) : h_(h) {
        p_ = static_cast<uint8_t *>(rlLockMemory(h));
        size_ = p_ != nullptr ? GlobalSize(h) : 0;
    }
    ~Locked() {
        if (p_ != nullptr) rlUnlockMemory(h_);
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

    uint8_t *data() const { return p_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return p_ != nullptr; }
    template <class T>
    T *as() const {
        return reinterpret_cast<T *>(p_);
    }

private:
    ZHANDLE h_;
    uint8_t *p_ = nullptr;
    size_t size_ = 0;
};

// Owns a handle until released: every early return frees what was made.
class Owned {
public:
    Owned() = default;
    explicit Owned(ZHANDLE h) : h_(h) {}
    ~Owned() { rlFreeNewData(h_); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;

    ZHANDLE get() const { return h_; }
    ZHANDLE release() {
        ZHANDLE h = h_;
        h_ = 0;
        return h;
    }
    void reset(ZHANDLE h = 0) {
        rlFreeNewData(h_);
        h_ = h;
    }

private:
    ZHANDLE h_ = 0;
};

// ---------------------------------------------------------------- pixels

constexpr uint32_t packRGB(uint8_t r, uint8_t g, uint8_t b) {
    return uint32_t{r} << 24 | uint32_t{g} << 16 | uint32_t{b} << 8;
}
constexpr uint32_t packVCD(const VCD &c) { return packRGB(c.red, c.green, c.blue); }

// Reads pixel x of a row: the same value rlGetPixel answers.
inline uint32_t readPixel(const uint8_t *row, size_t x, int32_t depth) {
    switch (depth) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    case 4: return (x & 1) ? (row[x >> 1] & 0x0Fu) : (row[x >> 1] >> 4);
    case 8: return row[x];
    case 24: {
        const uint8_t *p = row + 3 * x;
        return packRGB(p[0], p[1], p[2]);
    }
    case 32: {
        const uint8_t *p = row + 4 * x;
        return packRGB(p[0], p[1], p[2]) | p[3];
    }
    default: return 0;
    }
}

// Stores a value into pixel x of a row as rlSetPixel does when neither a map
// nor a table is given: only the pixel's own bits change.
inline void storePixel(uint8_t *row, size_t x, int32_t depth, uint32_t v) {
    switch (depth) {
    case 1: {
        uint8_t bit = static_cast<uint8_t>(0x80u >> (x & 7));
        uint8_t &b = row[x >> 3];
        b = static_cast<uint8_t>((b & ~bit) | ((v & 1u) ? bit : 0));
        break;
    }
    case 4: {
        uint8_t &b = row[x >> 1];
        if (x & 1)
            b = static_cast<uint8_t>((b & 0xF0u) | (v & 0x0Fu));
        else
            b = static_cast<uint8_t>((b & 0x0Fu) | ((v & 0x0Fu) << 4));
        break;
    }
    case 8: row[x] = static_cast<uint8_t>(v); break;
    case 24: {
        uint8_t *p = row + 3 * x;
        p[0] = static_cast<uint8_t>(v >> 24);
        p[1] = static_cast<uint8_t>(v >> 16);
        p[2] = static_cast<uint8_t>(v >> 8);
        break;
    }
    case 32: {
        uint8_t *p = row + 4 * x;
        p[0] = static_cast<uint8_t>(v >> 24);
        p[1] = static_cast<uint8_t>(v >> 16);
        p[2] = static_cast<uint8_t>(v >> 8);
        p[3] = static_cast<uint8_t>(v);
        break;
    }
    default: break;
    }
}

// ---------------------------------------------------------------- bounded rows

// Rows of a bitmap whose block may be shorter than the size its caller
// describes. The block reads as if it were followed by zero bytes, so a row
// that runs past the block's end comes back padded with zeros and nothing
// beyond the block is ever read.
class RowReader {
public:
    RowReader(const uint8_t *base, size_t size, uint64_t bpl)
        : base_(base), size_(base != nullptr ? size : 0), bpl_(bpl) {}

    uint64_t bytesPerLine() const { return bpl_; }

    // True when every byte of rows [0, rows) lies inside the block.
    bool covers(uint64_t rows) const { return rows == 0 || bpl_ * rows <= size_; }

    // The bytes of row y: straight from the block when the row lies inside
    // it, else a zero-padded copy (valid until the next call).
    const uint8_t *row(uint64_t y) {
        uint64_t off = y * bpl_;
        if (off + bpl_ <= size_) return base_ + off;
        if (scratch_.size() != bpl_) scratch_.assign(bpl_, 0);
        std::fill(scratch_.begin(), scratch_.end(), uint8_t{0});
        if (off < size_) std::memcpy(scratch_.data(), base_ + off, size_ - off);
        return scratch_.data();
    }

private:
    const uint8_t *base_;
    size_t size_;
    uint64_t bpl_;
    std::vector<uint8_t> scratch_;
};

// A colour table as read from a block: entries that lie beyond the block's
// end read as black, so a short table never sends a read outside its block.
class TableCopy {
public:
    TableCopy() = default;
    TableCopy(const uint8_t *p, size_t size, size_t entries) { assign(p, size, entries); }
    void assign(const uint8_t *p, size_t size, size_t entries) {
        present_ = p != nullptr;
        v_.assign(entries, VCD{0, 0, 0});
        if (p != nullptr) std::memcpy(v_.data(), p, std::min(size, entries * sizeof(VCD)));
    }
    const VCD *data() const { return present_ ? v_.data() : nullptr; }
    size_t size() const { return v_.size(); }

private:
    std::vector<VCD> v_;
    bool present_ = false;
};

// ---------------------------------------------------------------- nearest colour

// rlNearestRGBIndex for one table, remembered. Exact greys (the case of every
// pixel of a greyed row) go through a 256-entry table filled on first use;
// other colours through a direct-mapped cache keyed by the whole colour. Every
// answer is the plain search's own answer for that colour.
class NearestFinder {
public:
    NearestFinder(const VCD *table, int32_t n) : table_(table), n_(n) {
        grey_.fill(-1);
        keys_.assign(kCacheSize, 0);
        values_.assign(kCacheSize, 0);
    }

    int32_t find(uint8_t r, uint8_t g, uint8_t b) {
        if (r == g && g == b) {
            int32_t &slot = grey_[r];
            if (slot < 0) slot = rlNearestRGBIndex(r, g, b, table_, n_);
            return slot;
        }
        uint32_t key = (uint32_t{r} << 16 | uint32_t{g} << 8 | b) + 1;  // 0 marks empty
        uint32_t at = (key * 2654435761u) >> (32 - kCacheBits);
        if (keys_[at] != key) {
            keys_[at] = key;
            values_[at] = rlNearestRGBIndex(r, g, b, table_, n_);
        }
        return values_[at];
    }

private:
    static constexpr uint32_t kCacheBits = 14;
    static constexpr uint32_t kCacheSize = 1u << kCacheBits;
    const VCD *table_;
    int32_t n_;
    std::array<int32_t, 256> grey_{};
    std::vector<uint32_t> keys_;
    std::vector<int32_t> values_;
};

// ---------------------------------------------------------------- debug

// Pixel writes print their position above this level.
inline bool tracesPixels() { return _debug_color_res > 3; }

}  // namespace mivo4::color
