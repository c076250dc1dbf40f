// Depth conversion: every pixel of a bitmap rewritten at another depth, the
// per-index work hoisted into a colour map.
//
// The conversion is defined pixel by pixel (read a value, write it through
// the map or the nearest table entry). It runs here a row at a time: a row is
// decoded into values, each value is turned into what the pixel write would
// store (looked up once per source index for indexed sources, memoised per
// colour for true colour), and the row is encoded in one pass. The output is
// the same, bit for bit; at the pixel-tracing debug level the plain per-pixel
// loop runs instead so that its trace is printed.
#include <mivo4/color.h>

#include <cstdio>
#include <vector>

#include <new>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

namespace {

bool colourMapNeeded(int16_t depth) { return depth != 24 && depth >= 0 && depth <= 16; }

bool printsRows() { return _debug_color_res != 0 && _debug_color_res <= 2; }

// Decodes pixels [0, w) of a row into values, as rlGetPixel reads them.
void decodeRow(const uint8_t *row, uint32_t w, int16_t depth, uint32_t *out) {
    switch (depth) {
    case 1:
        for (uint32_t x = 0; x < w; ++x) out[x] = (row[x >> 3] >> (7 - (x & 7))) & 1u;
        break;
    case 4:
        for (uint32_t x = 0; x < w; ++x) out[x] = (x & 1) ? (row[x >> 1] & 0x0Fu) : (row[x >> 1] >> 4);
        break;
    case 8:
        for (uint32_t x = 0; x < w; ++x) out[x] = row[x];
        break;
    case 24:
        for (uint32_t x = 0; x < w; ++x, row += 3) out[x] = packRGB(row[0], row[1], row[2]);
        break;
    case 32:
        for (uint32_t x = 0; x < w; ++x, row += 4) out[x] = packRGB(row[0], row[1], row[2]) | row[3];
        break;
    default:
        std::fill(out, out + w, 0u);
        break;
    }
}

// Encodes w stored values into a zero-filled row: each pixel's own bits only.
void encodeRow(const uint32_t *v, uint32_t w, int16_t depth, uint8_t *row) {
    switch (depth) {
    case 1: {
        uint32_t x = 0;
        for (; x + 8 <= w; x += 8) {
            uint32_t b = 0;
            for (uint32_t k = 0; k < 8; ++k) b = b << 1 | (v[x + k] & 1u);
            row[x >> 3] = static_cast<uint8_t>(b);
        }
        for (; x < w; ++x)
            if (v[x] & 1u) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (0x80u >> (x & 7)));
        break;
    }
    case 4:
        for (uint32_t x = 0; x < w; ++x) {
            uint32_t n = v[x] & 0x0Fu;
            row[x >> 1] = static_cast<uint8_t>(row[x >> 1] | ((x & 1) ? n : n << 4));
        }
        break;
    case 8:
        for (uint32_t x = 0; x < w; ++x) row[x] = static_cast<uint8_t>(v[x]);
        break;
    case 24:
        for (uint32_t x = 0; x < w; ++x, row += 3) {
            row[0] = static_cast<uint8_t>(v[x] >> 24);
            row[1] = static_cast<uint8_t>(v[x] >> 16);
            row[2] = static_cast<uint8_t>(v[x] >> 8);
        }
        break;
    case 32:
        for (uint32_t x = 0; x < w; ++x, row += 4) {
            row[0] = static_cast<uint8_t>(v[x] >> 24);
            row[1] = static_cast<uint8_t>(v[x] >> 16);
            row[2] = static_cast<uint8_t>(v[x] >> 8);
            row[3] = static_cast<uint8_t>(v[x]);
        }
        break;
    default:
        break;
    }
}

// What one pixel write stores for a source value, given the map and the
// destination table: the same choices rlSetPixel makes.
class PixelRule {
public:
    PixelRule(int16_t dst_depth, const uint32_t *map, const VCD *table, uint16_t n)
        : depth_(dst_depth), map_(map), table_(table), n_(n), nearest_(table, n) {}

    uint32_t operator()(uint32_t v) {
        uint32_t value = v;
        if (map_ != nullptr) {
            value = map_[v];
        } else if (table_ != nullptr && depth_ < 24) {
            int32_t i = nearest_.find(static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16),
                                      static_cast<uint8_t>(v >> 8));
            value = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(i)));
        }
        if ((depth_ == 24 || depth_ == 32) && table_ != nullptr)
            value = (value < n_ ? packVCD(table_[value]) : value) & 0xFFFFFF00u;
        return value;
    }

private:
    int16_t depth_;
    const uint32_t *map_;
    const VCD *table_;
    uint16_t n_;
    NearestFinder nearest_;
};

struct Conversion {
    RowReader &src;
    uint8_t *dst;
    uint64_t dstBpl;
    uint32_t w, h;
    int16_t srcDepth, dstDepth;
    const uint32_t *map;
    const VCD *table;
    uint16_t n;
};

void endRow(uint32_t) {
    if (printsRows()) std::fprintf(stderr, ".");
}

// The defining loop: one rlGetPixel and one rlSetPixel per pixel.
void convertPlain(Conversion &c) {
    for (uint32_t y = 0; y < c.h; ++y) {
        const uint8_t *row = c.src.row(y);
        for (uint32_t x = 0; x < c.w; ++x)
            rlSetPixel(c.dst, static_cast<uint32_t>(c.dstBpl), x, y, c.dstDepth,
                       rlGetPixel(row, 0, x, 0, c.srcDepth), c.map, c.table, c.n);
        endRow(y);
    }
}

void convertRows(Conversion &c) {
    if (!isSupportedDepth(c.dstDepth)) {
        // Nothing is written at a depth the pixel writer does not know.
        for (uint32_t y = 0; y < c.h; ++y) endRow(y);
        return;
    }
    const bool trueColourCopy = c.map == nullptr && c.table == nullptr &&
                                (c.srcDepth == 24 || c.srcDepth == 32) && c.srcDepth == c.dstDepth;
    std::vector<uint32_t> values(c.w);
    PixelRule rule(c.dstDepth, c.map, c.table, c.n);

    // For an indexed source every value the row can hold is looked up once.
    std::vector<uint32_t> byIndex;
    const bool indexed = c.srcDepth == 1 || c.srcDepth == 4 || c.srcDepth == 8;
    if (indexed) {
        byIndex.resize(tableEntries(c.srcDepth));
        for (uint32_t v = 0; v < byIndex.size(); ++v) byIndex[v] = rule(v);
    }
    const uint32_t unreadValue = indexed || isSupportedDepth(c.srcDepth) ? 0 : rule(0);

    for (uint32_t y = 0; y < c.h; ++y) {
        const uint8_t *in = c.src.row(y);
        uint8_t *out = c.dst + y * c.dstBpl;
        if (trueColourCopy) {
            std::memcpy(out, in, size_t{c.w} * (c.srcDepth / 8));
        } else {
            decodeRow(in, c.w, c.srcDepth, values.data());
            if (indexed) {
                for (uint32_t x = 0; x < c.w; ++x) values[x] = byIndex[values[x]];
            } else if (!isSupportedDepth(c.srcDepth)) {
                std::fill(values.begin(), values.end(), unreadValue);
            } else if (c.map != nullptr || c.table != nullptr) {
                uint32_t last = 0, lastOut = 0;
                bool haveLast = false;
                for (uint32_t x = 0; x < c.w; ++x) {
                    uint32_t v = values[x];
                    if (!haveLast || v != last) {
                        last = v;
                        lastOut = rule(v);
                        haveLast = true;
                    }
                    values[x] = lastOut;
                }
            }
            encodeRow(values.data(), c.w, c.dstDepth, out);
        }
        endRow(y);
    }
}

}  // namespace

ZHANDLE rlConvertBitmapDepth(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                             int16_t dst_depth, ZHANDLE Hrgb, ZHANDLE Hpnew_rgb,
                             uint16_t num_pnew_rgb) try {
    Locked src(Hdata), srcTable(Hrgb), dstTable(Hpnew_rgb);
    const uint64_t size = bitmapSize64(w, h, dst_depth);
    Owned result(size <= UINT32_MAX ? allocBitmap(size) : 0);
    {
        Locked out(result.get());
        if (out) {
            if (_debug_color_res != 0)
                std::fprintf(stderr, "Allocated %d bytes of new memory for the destination bitmap\n",
                             static_cast<int>(size));
            // Tables are read through their blocks: entries past a block's end read black.
            TableCopy srcT, dstT;
            if (srcTable) srcT.assign(srcTable.data(), srcTable.size(), std::max(tableEntries(src_depth), 1u));
            if (dstTable) dstT.assign(dstTable.data(), dstTable.size(), std::max<size_t>(num_pnew_rgb, 1));
            Owned hmap(rlBuildColormap(srcT.data(), src_depth, dstT.data(), dst_depth, num_pnew_rgb));
            if (colourMapNeeded(src_depth) && hmap.get() == 0) {
                // Without its map an indexed source cannot be converted: stop.
                result.reset();
            } else {
                Locked map(hmap.get());
                if (printsRows())
                    std::fprintf(stderr, "Converted bits. Each (.) represents one scan line\n");
                if (src) {
                    RowReader reader(src.data(), src.size(), bytesPerLine64(w, src_depth));
                    Conversion c{reader, out.data(), bytesPerLine64(w, dst_depth), w, h, src_depth,
                                 dst_depth, map.as<uint32_t>(), dstT.data(), num_pnew_rgb};
                    if (tracesPixels())
                        convertPlain(c);
                    else
                        convertRows(c);
                }
            }
        }
    }
    if (_debug_color_res != 0) std::fprintf(stderr, "\nColor resolution conversion complete\n");
    return result.release();
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}
