// The scaling engine behind the shrink and stretch routines.
#pragma once

#include <mivo4/color.h>

#include <cstdint>
#include <vector>

#include "export/raster/colorlib.h"

namespace mivo4::color {

// truncate(k * ratio) for the non-negative, finite products of the scalers.
inline int64_t truncProduct(uint64_t k, double ratio) {
    return static_cast<int64_t>(static_cast<double>(k) * ratio);
}

// Largest value of the 16-bit intermediate counts of the vertical
// decimation and the horizontal replication.
inline constexpr int64_t kMaxCount16 = 32767;

// True when the vertical decimation of sy rows to dy would carry a row
// count past 16 bits.
bool shrinkOverflows(uint32_t sy, uint32_t dy);
// True when the horizontal replication of sx pixels to dx would carry a
// pixel count past 16 bits.
bool stretchXOverflows(uint32_t sx, uint32_t dx);

// Source rows [0, sy) of a bitmap read through its block; rows outside that
// range, and bytes past the block's end, read as zeros.
class SourceRows {
public:
    SourceRows(const uint8_t *base, size_t size, uint64_t bpl, uint64_t rows)
        : reader_(base, size, bpl), rows_(rows), bpl_(bpl) {}
    const uint8_t *row(int64_t y) {
        if (y < 0 || static_cast<uint64_t>(y) >= rows_) {
            if (zeros_.size() != bpl_) zeros_.assign(bpl_, 0);
            return zeros_.data();
        }
        return reader_.row(static_cast<uint64_t>(y));
    }

private:
    RowReader reader_;
    uint64_t rows_;
    uint64_t bpl_;
    std::vector<uint8_t> zeros_;
};

// Scales single rows of sx pixels to dx: decimation when dx <= sx,
// replication otherwise. The source pixel of each destination pixel depends
// only on sx and dx, so it is worked out once and reused for every row.
class RowScaler {
public:
    enum class Mode { ByRatio, Decimate, Replicate };
    RowScaler(int16_t depth, uint32_t sx, uint32_t dx, Mode mode = Mode::ByRatio);
    bool replicates() const { return replicate_; }
    void scale(const uint8_t *src, uint8_t *dst) const;
    uint64_t destBytesPerLine() const { return dbpl_; }

private:
    static constexpr int64_t kUnwritten = -1;  // the replication fell short here
    static constexpr int64_t kZero = -2;       // the source pixel does not exist: reads 0
    void scalePlain(const uint8_t *src, uint8_t *dst) const;

    int16_t depth_;
    uint32_t dx_;
    uint64_t dbpl_;
    bool replicate_;
    bool identity_ = true;
    std::vector<int64_t> from_;
};

// Vertical decimation and replication of whole bitmaps (dst holds dy rows of
// rlBytesPerLine(dx, depth) bytes). Each answers 0, or -1 when refused.
int32_t shrinkRows(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                   uint32_t dy);
int32_t stretchRows(SourceRows &src, uint8_t *dst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                    uint32_t dy);

// The stretch of a bitmap to the same width and more rows where that only
// repeats its first row (one row more, as an odd height is made even): the
// result is the source's own rows with the new ones put in front of them
// (ExtendInFront), byte for byte what rlStretchBitmap makes, without a copy
// of the picture. *copyInstead is set, and 0 returned, when the stretch is
// another or the source's block cannot take rows in front (or its rows carry
// bits past their pixels, which a stretched copy clears); the caller then
// stretches as usual. Otherwise the result is the view, or 0 when it could
// not be allocated. The view shows the source's bytes for as long as it
// lives: it is for reading, not for drawing on.
ZHANDLE stretchInFront(ZHANDLE hData, int16_t depth, uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh,
                       bool *copyInstead);

// The common body of rlShrinkBitmap and rlStretchBitmap.
ZHANDLE scaleBitmap(ZHANDLE hData, int16_t depth, uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh);

// Runs a whole-bitmap pointer routine against the blocks the pointers name,
// when they are the data of blocks of the module's allocator: reads stop at
// the source block's end and writes at the destination block's end.
enum class PointerOp { Shrink, Stretch, ShrinkX, StretchX };
int32_t scalePointers(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy,
                      uint32_t dx, uint32_t dy, PointerOp op);

}  // namespace mivo4::color
