// Scaling by replication and decimation: no filtering, so pixel values
// (indices or colours) pass through unchanged and no colour table changes.
//
// Ratios are doubles and products are truncated toward zero, exactly as the
// picture sizes of earlier versions came out; in particular a replication
// whose last product falls short of the destination size leaves the first
// columns or the top rows as they were (zero in a new bitmap).
#include "export/raster/scale.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

using namespace mivo4::color;

namespace {

bool vertical(uint32_t sy, uint32_t dy) { return dy > sy; }

}  // namespace

namespace mivo4::color {

bool shrinkOverflows(uint32_t sy, uint32_t dy) {
    if (dy == 0) return false;
    const double ratio = static_cast<double>(sy) / dy;
    return truncProduct(dy, ratio) > kMaxCount16;
}

bool stretchXOverflows(uint32_t sx, uint32_t dx) {
    if (sx == 0) return false;
    const double ratio = static_cast<double>(dx) / sx;
    return truncProduct(sx, ratio) > kMaxCount16;
}

RowScaler::RowScaler(int16_t depth, uint32_t sx, uint32_t dx, Mode mode)
    : depth_(depth), dx_(dx), dbpl_(bytesPerLine64(dx, depth)),
      replicate_(mode == Mode::ByRatio ? dx > sx : mode == Mode::Replicate), from_(dx, kUnwritten) {
    if (!replicate_) {
        // Decimation: destination pixel k takes source pixel truncate(k * sx / dx),
        // and the right edge always shows the source's right edge.
        const double ratio = static_cast<double>(sx) / dx;
        uint64_t prevfactor = 0, xx = 0;
        for (uint64_t j = 1; j <= dx; ++j) {
            const uint64_t factor = static_cast<uint32_t>(truncProduct(j, ratio));
            const uint64_t step = factor - prevfactor;
            prevfactor = factor;
            if (j < dx) {
                from_[j - 1] = xx < sx ? static_cast<int64_t>(xx) : kZero;
                xx += step;
            } else {
                from_[j - 1] = sx > 0 ? int64_t{sx} - 1 : kZero;
            }
        }
    } else {
        // Replication from the right edge leftwards: source pixel x is
        // repeated truncate((sx - x) * r) - truncate((sx - x - 1) * r) times.
        const double ratio = static_cast<double>(dx) / sx;
        int64_t pos = int64_t{dx} - 1;
        int32_t prevfactor = 0;
        for (int64_t x = int64_t{sx} - 1; x >= 0; --x) {
            const auto factor = static_cast<int16_t>(truncProduct(static_cast<uint64_t>(sx - x), ratio));
            const int32_t n = factor - prevfactor;
            prevfactor = factor;
            for (int32_t k = 0; k < n && pos >= 0; ++k) from_[static_cast<size_t>(pos--)] = x;
        }
    }
    for (uint64_t k = 0; k < dx && identity_; ++k) identity_ = from_[k] == static_cast<int64_t>(k);
}

// The per-pixel loops through rlGetPixel/rlSetPixel, run at the debug level
// where each pixel write is traced.
void RowScaler::scalePlain(const uint8_t *src, uint8_t *dst) const {
    const auto bpl = static_cast<uint32_t>(dbpl_);
    if (!replicate_) {
        for (uint64_t k = 0; k < dx_; ++k) {
            const int64_t x = from_[k];
            uint32_t v = x >= 0 ? rlGetPixel(src, 0, static_cast<uint32_t>(x), 0, depth_) : 0;
            rlSetPixel(dst, bpl, static_cast<uint32_t>(k), 0, depth_, v, nullptr, nullptr, 0);
        }
    } else {
        for (int64_t k = int64_t{dx_} - 1; k >= 0; --k) {
            const int64_t x = from_[static_cast<size_t>(k)];
            if (x == kUnwritten) continue;
            uint32_t v = x >= 0 ? rlGetPixel(src, 0, static_cast<uint32_t>(x), 0, depth_) : 0;
            rlSetPixel(dst, bpl, static_cast<uint32_t>(k), 0, depth_, v, nullptr, nullptr, 0);
        }
    }
}

void RowScaler::scale(const uint8_t *src, uint8_t *dst) const {
    if (tracesPixels()) {
        scalePlain(src, dst);
        return;
    }
    const int32_t d = depth_;
    if (!isSupportedDepth(d)) return;
    if (d % 8 == 0) {
        // Whole bytes per pixel: copy bytes, not values.
        const size_t bytes = static_cast<size_t>(d / 8);
        if (identity_) {
            std::memcpy(dst, src, bytes * dx_);
            return;
        }
        for (uint64_t k = 0; k < dx_; ++k) {
            const int64_t x = from_[k];
            if (x == kUnwritten) continue;
            uint8_t *out = dst + k * bytes;
            if (x == kZero)
                std::memset(out, 0, bytes);
            else if (bytes == 3) {
                const uint8_t *in = src + static_cast<size_t>(x) * 3;
                out[0] = in[0];
                out[1] = in[1];
                out[2] = in[2];
            } else {
                std::memcpy(out, src + static_cast<size_t>(x) * bytes, bytes);
            }
        }
        return;
    }
    // One and four bits: only the pixel's own bits change, so neighbours
    // sharing its byte keep what they hold.
    if (identity_) {
        // Every pixel from its own place (the one-row stretch of an odd height
        // does this for every row): whole bytes copied, and in a last partial
        // byte only the bits of the row's pixels.
        const uint64_t bits = dx_ * static_cast<uint64_t>(d);
        const auto whole = static_cast<size_t>(bits / 8);
        std::memcpy(dst, src, whole);
        if (bits % 8 != 0) {
            const auto ours = static_cast<uint8_t>(0xFFu << (8 - bits % 8));
            dst[whole] = static_cast<uint8_t>((dst[whole] & ~ours) | (src[whole] & ours));
        }
        return;
    }
    for (uint64_t k = 0; k < dx_; ++k) {
        const int64_t x = from_[k];
        if (x == kUnwritten) continue;
        storePixel(dst, k, d, x == kZero ? 0 : readPixel(src, static_cast<size_t>(x), d));
    }
}

int32_t shrinkRows(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                   uint32_t dy) {
    if (shrinkOverflows(sy, dy) || (dx > sx && stretchXOverflows(sx, dx))) return -1;
    const RowScaler scaler(depth, sx, dx);
    const uint64_t dbpl = scaler.destBytesPerLine();
    auto rowOut = [&](uint64_t k) { return dst + k * dbpl; };
    const double ratio = static_cast<double>(sy) / dy;
    int64_t ps = 0;
    int16_t prevfactor = 0;
    for (uint64_t j = 1; j <= dy; ++j) {
        // The row count is a 16-bit value (refused above when it would not fit).
        const auto factor = static_cast<int16_t>(truncProduct(j, ratio));
        const int32_t step = factor - prevfactor;
        prevfactor = factor;
        // The last destination row is first made from the last source row,
        // then made again from its regular source row. Where a replication
        // falls short, the first pass's left pixels remain.
        if (j == dy) scaler.scale(src.row(int64_t{sy} - 1), rowOut(j - 1));
        scaler.scale(src.row(ps), rowOut(j - 1));
        ps += step;
    }
    return 0;
}

int32_t stretchRows(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                    uint32_t dy) {
    if (dx > sx && stretchXOverflows(sx, dx)) return -1;
    const RowScaler scaler(depth, sx, dx);
    const uint64_t dbpl = scaler.destBytesPerLine();
    if (sy == 0) return 0;
    const double ratio = static_cast<double>(dy) / sy;
    // Filled from the bottom row upward: when the last product falls short
    // of dy, the top rows are never reached.
    int64_t row = int64_t{dy} - 1;
    int64_t prevfactor = 0;
    for (int64_t j = int64_t{sy} - 1; j >= 0; --j) {
        const int64_t factor = truncProduct(static_cast<uint64_t>(sy - j), ratio);
        const int64_t n = factor - prevfactor;
        prevfactor = factor;
        if (n <= 0 || row < 0) continue;
        uint8_t *scaled = dst + static_cast<uint64_t>(row) * dbpl;
        scaler.scale(src.row(j), scaled);
        --row;
        // The scaled row is copied whole into the rows above it.
        for (int64_t k = 1; k < n && row >= 0; ++k, --row)
            std::memcpy(dst + static_cast<uint64_t>(row) * dbpl, dst + static_cast<uint64_t>(row + 1) * dbpl,
                        dbpl);
    }
    return 0;
}

ZHANDLE scaleBitmap(ZHANDLE hData, int16_t depth, uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh) try {
    const bool stretch = vertical(sh, dh);
    if ((!stretch && shrinkOverflows(sh, dh)) || (dw > sw && stretchXOverflows(sw, dw))) return 0;
    const uint64_t size = bitmapSize64(dw, dh, depth);
    // Neither bitmap can be larger than a block can be.
    if (size > UINT32_MAX || bytesPerLine64(sw, depth) > UINT32_MAX) return 0;
    Owned result(allocBitmap(size));
    Locked out(result.get());
    if (!out) return 0;
    Locked in(hData);
    if (in) {
        // A source described larger than its block reads as 0 past the block.
        SourceRows rows(in.data(), in.size(), bytesPerLine64(sw, depth), sh);
        if (stretch)
            stretchRows(rows, out.data(), depth, sw, sh, dw, dh);
        else
            shrinkRows(rows, out.data(), depth, sw, sh, dw, dh);
    }
    return result.release();
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}

namespace {

// Horizontal scaling of sy whole rows, decimating or replicating by the
// routine's own rule whatever the sizes.
int32_t scaleEachRow(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                     RowScaler::Mode mode) {
    if (mode == RowScaler::Mode::Replicate && stretchXOverflows(sx, dx)) return -1;
    const RowScaler scaler(depth, sx, dx, mode);
    for (uint64_t y = 0; y < sy; ++y)
        scaler.scale(src.row(static_cast<int64_t>(y)), dst + y * scaler.destBytesPerLine());
    return 0;
}

int32_t runOp(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx, uint32_t dy,
              PointerOp op) {
    switch (op) {
    case PointerOp::Shrink: return shrinkRows(src, dst, depth, sx, sy, dx, dy);
    case PointerOp::Stretch: return stretchRows(src, dst, depth, sx, sy, dx, dy);
    case PointerOp::ShrinkX: return scaleEachRow(src, dst, depth, sx, sy, dx, RowScaler::Mode::Decimate);
    case PointerOp::StretchX: return scaleEachRow(src, dst, depth, sx, sy, dx, RowScaler::Mode::Replicate);
    }
    return 0;
}

}  // namespace

int32_t scalePointers(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                      uint32_t dy, PointerOp op) try {
    if (psrc == nullptr || pdst == nullptr) return 0;
    const uint64_t srcBpl = bytesPerLine64(sx, depth);
    const uint64_t dstSize = bitmapSize64(dx, dy, depth);
    const uint64_t srcDescribed = bitmapSize64(sx, sy, depth);
    if (srcDescribed > SIZE_MAX || dstSize > SIZE_MAX) return -1;
    // The caller vouches for plain memory; blocks of our own allocator are
    // known to the byte.
    const ZHANDLE srcBlock = GlobalHandle(psrc);
    const uint64_t srcSize = srcBlock != 0 ? GlobalSize(srcBlock) : srcDescribed;
    const ZHANDLE dstBlock = GlobalHandle(pdst);
    const uint64_t dstRoom = dstBlock != 0 ? GlobalSize(dstBlock) : dstSize;

    SourceRows rows(psrc, static_cast<size_t>(std::min(srcSize, srcDescribed)), srcBpl, sy);
    if (dstRoom >= dstSize) return runOp(rows, pdst, depth, sx, sy, dx, dy, op);
    // A destination block shorter than described: scale into a full-size
    // copy and keep what fits.
    std::vector<uint8_t> whole;
    try {
        whole.assign(pdst, pdst + dstRoom);
        whole.resize(static_cast<size_t>(dstSize), 0);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    const int32_t rc = runOp(rows, whole.data(), depth, sx, sy, dx, dy, op);
    std::memcpy(pdst, whole.data(), static_cast<size_t>(dstRoom));
    return rc;
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return -1;
}

}  // namespace mivo4::color
