// Test support for the colour library: bitmaps held by handle, random
// pictures, and a plain per-pixel model of conversion, dithering, scaling and
// flipping written straight from the routines' definitions, one
// rlGetPixel/rlSetPixel call per pixel. The library's faster paths are
// checked against it.
#pragma once

#include <gtest/gtest.h>
#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <vector>

#include "zep_xxxx/memdebug.h"

// Colour-table entries compare and print by value in the tests.
inline bool operator==(const VCD &a, const VCD &b) {
    return a.red == b.red && a.green == b.green && a.blue == b.blue;
}
inline void PrintTo(const VCD &c, std::ostream *os) {
    *os << "(" << int{c.red} << "," << int{c.green} << "," << int{c.blue} << ")";
}

namespace colortest {

using Bytes = std::vector<uint8_t>;

inline uint32_t bpl(uint32_t w, int depth) { return rlBytesPerLine(w, static_cast<int16_t>(depth)); }

// A new block holding the given bytes.
inline ZHANDLE toHandle(const Bytes &bytes) {
    ZHANDLE h = GlobalAlloc(GHND, static_cast<uint32_t>(bytes.size()));
    if (h != 0 && !bytes.empty()) std::memcpy(GlobalLock(h), bytes.data(), bytes.size());
    return h;
}

inline ZHANDLE toHandle(const std::vector<VCD> &table) {
    Bytes b(table.size() * 3);
    if (!table.empty()) std::memcpy(b.data(), table.data(), b.size());
    return toHandle(b);
}

// The bytes of a block (empty for handle 0).
inline Bytes fromHandle(ZHANDLE h) {
    auto *p = static_cast<const uint8_t *>(GlobalLock(h));
    if (p == nullptr) return {};
    return Bytes(p, p + GlobalSize(h));
}

inline std::vector<VCD> tableFromHandle(ZHANDLE h) {
    Bytes b = fromHandle(h);
    std::vector<VCD> t(b.size() / 3);
    if (!t.empty()) std::memcpy(t.data(), b.data(), t.size() * 3);
    return t;
}

// Frees handles at scope exit.
struct Handles {
    std::vector<ZHANDLE> list;
    ZHANDLE add(ZHANDLE h) {
        list.push_back(h);
        return h;
    }
    ~Handles() {
        for (ZHANDLE h : list) GlobalFree(h);
    }
};

// Random pixels for every depth; padding bytes are random too, so that no
// routine may read them as pixels.
inline Bytes randomBitmap(std::mt19937 &rng, uint32_t w, uint32_t h, int depth) {
    Bytes b(size_t{bpl(w, depth)} * h);
    for (auto &v : b) v = static_cast<uint8_t>(rng());
    return b;
}

// A picture of few colours, as real pictures repeat colours: values from a
// small palette, with greys among them.
inline Bytes palettedBitmap(std::mt19937 &rng, uint32_t w, uint32_t h, int depth, int colours) {
    std::vector<uint32_t> palette(static_cast<size_t>(colours));
    for (auto &c : palette) {
        uint32_t v = rng();
        if (rng() % 3 == 0) {
            uint32_t g = v & 0xFF;
            v = (g << 24) | (g << 16) | (g << 8) | (v >> 24);
        }
        c = v;
    }
    Bytes b(size_t{bpl(w, depth)} * h);
    for (auto &v : b) v = static_cast<uint8_t>(rng());
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            uint32_t v = palette[rng() % palette.size()];
            if (depth < 24) v &= (1u << depth) - 1;
            else if (depth == 24) v &= 0xFFFFFF00u;
            rlSetPixel(b.data(), bpl(w, depth), x, y, static_cast<int16_t>(depth), v, nullptr, nullptr, 0);
        }
    return b;
}

inline std::vector<VCD> randomTable(std::mt19937 &rng, size_t n) {
    std::vector<VCD> t(n);
    for (auto &e : t) {
        e = VCD{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng())};
        switch (rng() % 4) {
        case 0: e.green = e.blue = e.red; break;                                     // an exact grey
        case 1: e.green = static_cast<uint8_t>(std::min(255, e.red + 3)); break;     // near grey
        default: break;
        }
    }
    if (n > 3) t[n - 1] = t[rng() % (n - 1)];  // a duplicate entry
    return t;
}

// Pixel values of a bitmap, row by row.
inline std::vector<uint32_t> pixels(const Bytes &b, uint32_t w, uint32_t h, int depth) {
    std::vector<uint32_t> v;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            v.push_back(rlGetPixel(b.data(), bpl(w, depth), x, y, static_cast<int16_t>(depth)));
    return v;
}

// ------------------------------------------------------------------ plain model

// Depth conversion as defined: the colour map, then rlGetPixel and
// rlSetPixel for every pixel in row order.
inline Bytes plainConvert(const Bytes &src, uint32_t w, uint32_t h, int sdepth, int ddepth,
                          const std::vector<VCD> *srcTable, const std::vector<VCD> *dstTable) {
    Bytes out(size_t{bpl(w, ddepth)} * h, 0);
    const uint16_t n = dstTable != nullptr ? static_cast<uint16_t>(dstTable->size()) : 0;
    ZHANDLE hmap = rlBuildColormap(srcTable != nullptr ? srcTable->data() : nullptr, static_cast<int16_t>(sdepth),
                                   dstTable != nullptr ? dstTable->data() : nullptr, static_cast<int16_t>(ddepth), n);
    auto *map = static_cast<const uint32_t *>(GlobalLock(hmap));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            rlSetPixel(out.data(), bpl(w, ddepth), x, y, static_cast<int16_t>(ddepth),
                       rlGetPixel(src.data(), bpl(w, sdepth), x, y, static_cast<int16_t>(sdepth)), map,
                       dstTable != nullptr ? dstTable->data() : nullptr, n);
    rlFreeColormap(hmap);
    return out;
}

// Nearest colour, written from its definition: greys (channels within 4)
// match only exact-grey entries and colours only coloured ones; the first
// smallest distance wins; 0 when nothing qualifies.
inline int plainNearest(int r, int g, int b, const std::vector<VCD> &t, size_t n) {
    auto near = [](int a, int c) { return a - c <= 4 && c - a <= 4; };
    bool grey = near(r, g) && near(g, b) && near(r, b);
    long best = -1;
    int index = 0;
    for (size_t j = 0; j < n && j < t.size(); ++j) {
        bool entryGrey = t[j].red == t[j].green && t[j].green == t[j].blue;
        if (entryGrey != grey) continue;
        long d = long(b - t[j].blue) * (b - t[j].blue) + long(g - t[j].green) * (g - t[j].green) +
                 long(r - t[j].red) * (r - t[j].red);
        if (best < 0 || d < best) {
            best = d;
            index = static_cast<int>(j);
        }
    }
    return index;
}

inline int clamp255(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

// One row of error diffusion, from its definition.
inline void plainDitherLine(uint8_t *l1, uint8_t *l2, const std::vector<VCD> &t, size_t n, uint32_t w) {
    if (w == 0) return;
    int index = 0;
    for (uint32_t j = 0; j + 1 < w; ++j) {
        uint8_t *p = l1 + 3 * j;
        index = plainNearest(p[0], p[1], p[2], t, n);
        const uint8_t c[3] = {t[index].red, t[index].green, t[index].blue};
        for (int k = 0; k < 3; ++k) {
            int e = p[k] - c[k];
            int q8 = e / 8, q7 = 7 * e / 16;
            p[k] = c[k];
            l1[3 * (j + 1) + k] = static_cast<uint8_t>(clamp255(l1[3 * (j + 1) + k] + q7));
            if (l2 != nullptr) {
                l2[3 * j + k] = static_cast<uint8_t>(clamp255(l2[3 * j + k] + q7 - q8));
                if (j > 0) l2[3 * (j - 1) + k] = static_cast<uint8_t>(clamp255(l2[3 * (j - 1) + k] + q7 - 2 * q8));
                l2[3 * (j + 1) + k] = static_cast<uint8_t>(clamp255(l2[3 * (j + 1) + k] + q7 - 3 * q8));
            }
        }
    }
    if (w == 1) index = plainNearest(l1[0], l1[1], l1[2], t, n);
    uint8_t *last = l1 + 3 * (w - 1);
    last[0] = t[index].red;
    last[1] = t[index].green;
    last[2] = t[index].blue;
}

// Mode 3 of the monochrome adjustment with a given threshold.
inline void plainGrey(uint8_t *row, uint32_t w, uint32_t threshold) {
    for (uint32_t x = 0; x < w; ++x) {
        uint8_t *p = row + 3 * x;
        uint32_t grey = (3u * p[0] + 6u * p[1] + p[2]) / 10u;
        uint8_t v = static_cast<uint8_t>(grey > 249 ? grey : grey * (100u - threshold) / 100u);
        p[0] = p[1] = p[2] = v;
    }
}

// The whole dither onto a known table: working copy, greying for one bit,
// diffusion row by row, and the conversion that finds the indices again.
inline Bytes plainDither(const Bytes &src, uint32_t w, uint32_t h, int sdepth, int ddepth,
                         const std::vector<VCD> *srcTable, const std::vector<VCD> &table, size_t n,
                         uint32_t threshold) {
    Bytes copy = plainConvert(src, w, h, sdepth, 24, srcTable, nullptr);
    const uint32_t stride = bpl(w, 24);
    for (uint32_t i = 0; i < h; ++i) {
        uint8_t *l1 = copy.data() + size_t{i} * stride;
        uint8_t *l2 = i + 1 < h ? l1 + stride : nullptr;
        if (ddepth == 1) {
            if (i == 0) plainGrey(l1, w, threshold);
            if (l2 != nullptr) plainGrey(l2, w, threshold);
        }
        plainDitherLine(l1, l2, table, n, w);
    }
    std::vector<VCD> exact(table.begin(), table.begin() + static_cast<long>(std::min(n, table.size())));
    return plainConvert(copy, w, h, 24, ddepth, nullptr, &exact);
}

// Horizontal decimation of one row, from its definition.
inline void plainShrinkX(const uint8_t *s, uint8_t *d, int depth, uint32_t sx, uint32_t dx) {
    double ratio = double(sx) / dx;
    uint32_t prev = 0, xx = 0;
    for (uint32_t j = 1; j <= dx; ++j) {
        uint32_t factor = static_cast<uint32_t>(j * ratio);
        uint32_t step = factor - prev;
        prev = factor;
        if (j < dx) {
            rlSetPixel(d, 0, j - 1, 0, static_cast<int16_t>(depth), rlGetPixel(s, 0, xx, 0, static_cast<int16_t>(depth)),
                       nullptr, nullptr, 0);
            xx += step;
        } else {
            rlSetPixel(d, 0, dx - 1, 0, static_cast<int16_t>(depth),
                       rlGetPixel(s, 0, sx - 1, 0, static_cast<int16_t>(depth)), nullptr, nullptr, 0);
        }
    }
}

// Horizontal replication of one row, from its definition.
inline void plainStretchX(const uint8_t *s, uint8_t *d, int depth, uint32_t sx, uint32_t dx) {
    double ratio = double(dx) / sx;
    int pos = static_cast<int>(dx) - 1;
    int16_t prev = 0;
    for (int x = static_cast<int>(sx) - 1; x >= 0; --x) {
        int16_t factor = static_cast<int16_t>((sx - x) * ratio);
        int n = factor - prev;
        prev = factor;
        uint32_t v = rlGetPixel(s, 0, static_cast<uint32_t>(x), 0, static_cast<int16_t>(depth));
        for (int k = 0; k < n; ++k)
            rlSetPixel(d, 0, static_cast<uint32_t>(pos--), 0, static_cast<int16_t>(depth), v, nullptr, nullptr, 0);
    }
}

inline void plainRow(const uint8_t *s, uint8_t *d, int depth, uint32_t sx, uint32_t dx) {
    if (dx > sx)
        plainStretchX(s, d, depth, sx, dx);
    else
        plainShrinkX(s, d, depth, sx, dx);
}

// Whole-bitmap scaling from its definition: decimation top down when the
// height does not grow, else replication bottom up with row copies.
inline Bytes plainScale(const Bytes &src, int depth, uint32_t sx, uint32_t sy, uint32_t dx, uint32_t dy) {
    const uint32_t sb = bpl(sx, depth), db = bpl(dx, depth);
    Bytes out(size_t{db} * dy, 0);
    if (dy <= sy) {
        double ratio = double(sy) / dy;
        const uint8_t *ps = src.data();
        int16_t prev = 0;
        for (uint32_t j = 1; j <= dy; ++j) {
            int16_t factor = static_cast<int16_t>(j * ratio);
            int step = factor - prev;
            prev = factor;
            uint8_t *row = out.data() + size_t{j - 1} * db;
            if (j == dy) plainRow(src.data() + size_t{sy - 1} * sb, row, depth, sx, dx);
            plainRow(ps, row, depth, sx, dx);
            ps += step * static_cast<long>(sb);
        }
    } else {
        double ratio = double(dy) / sy;
        long row = static_cast<long>(dy) - 1;
        long prev = 0;
        for (long j = static_cast<long>(sy) - 1; j >= 0; --j) {
            long factor = static_cast<long>((sy - j) * ratio);
            long n = factor - prev;
            prev = factor;
            if (n > 0) {
                plainRow(src.data() + size_t(j) * sb, out.data() + size_t(row) * db, depth, sx, dx);
                --row;
                for (long k = 1; k < n; ++k, --row)
                    std::memcpy(out.data() + size_t(row) * db, out.data() + size_t(row + 1) * db, db);
            }
        }
    }
    return out;
}

// Mirroring from its definition, on a copy with one spare zero row after the
// bitmap so that the partner w - x of the last row has somewhere to be; the
// spare row is dropped afterwards, which is what "reads 0, never written"
// amounts to for a block that ends with the bitmap.
inline Bytes plainFlip(const Bytes &b, int depth, uint32_t w, uint32_t h, bool hort, bool vert) {
    const uint32_t stride = bpl(w, depth);
    Bytes m(b);
    m.resize(b.size() + stride + 8, 0);
    const auto dd = static_cast<int16_t>(depth);
    Bytes temp(stride);
    long p1 = 0, p2 = (static_cast<long>(h) - 1) * stride;
    for (uint32_t k = 0; k < (h + 1) / 2; ++k, p1 += stride, p2 -= stride) {
        if (vert) {
            std::memcpy(temp.data(), m.data() + p1, stride);
            std::memcpy(m.data() + p1, m.data() + p2, stride);
            std::memcpy(m.data() + p2, temp.data(), stride);
        }
        if (hort) {
            for (uint32_t x = 0; x < w / 2; ++x) {
                uint8_t *r1 = m.data() + p1, *r2 = m.data() + p2;
                uint32_t a = rlGetPixel(r1, 0, x, 0, dd), bb = rlGetPixel(r1, 0, w - x, 0, dd);
                uint32_t c = rlGetPixel(r2, 0, x, 0, dd), d = rlGetPixel(r2, 0, w - x, 0, dd);
                rlSetPixel(r1, 0, x, 0, dd, bb, nullptr, nullptr, 0);
                rlSetPixel(r1, 0, w - x, 0, dd, a, nullptr, nullptr, 0);
                rlSetPixel(r2, 0, x, 0, dd, d, nullptr, nullptr, 0);
                rlSetPixel(r2, 0, w - x, 0, dd, c, nullptr, nullptr, 0);
            }
        }
    }
    m.resize(b.size());
    return m;
}

// Drives every allocation of an operation to failure in turn: op runs once
// per failing allocation, then once with none failing (op checks its own
// outcome). The live-handle count must come back to where it was after each
// run: op frees what it keeps.
template <class Op>
void forEachAllocationFailure(Op op, int limit = 64) {
    for (int n = 1; n <= limit; ++n) {
        const uint32_t before = mivo4::mem::LiveHandles();
        mivo4::mem::FailNth(static_cast<uint32_t>(n));
        op();
        const bool delivered = !mivo4::mem::FailurePending();
        mivo4::mem::FailNth(0);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before) << "leak with allocation " << n << " failing";
        if (!delivered) return;
    }
    ADD_FAILURE() << "more allocations than expected";
}

// Keeps the current setup pointer and the debug level as a test found them.
struct GlobalsGuard {
    GlobalsGuard() : savedSetup(lpRaster), savedDebug(_debug_color_res) {}
    ~GlobalsGuard() {
        lpRaster = savedSetup;
        _debug_color_res = savedDebug;
    }
    GlobalsGuard(const GlobalsGuard &) = delete;
    GlobalsGuard &operator=(const GlobalsGuard &) = delete;
    Gp4_SetupData *savedSetup;
    int16_t savedDebug;
};

}  // namespace colortest
