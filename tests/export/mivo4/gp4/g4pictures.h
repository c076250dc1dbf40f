// One-bit test pictures for the Group 4 coder, and libtiff as the oracle:
// libtiff's own Group 4 encoder for the expected bits, its decoder to read
// our bits back. Shared by the tests and the benchmark; header-only.
//
// Pictures use the coder's convention: a set bit is white. libtiff is told
// PHOTOMETRIC_MINISWHITE, where a set bit is black, so its data is inverted.
#pragma once

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace g4test {

struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;        // bytes per row
    std::vector<uint8_t> bits;  // set = white

    Picture() = default;
    Picture(uint32_t w, uint32_t h, bool whiteFill = true)
        : width(w), height(h), stride((w + 7) / 8), bits(size_t{stride} * h, whiteFill ? 0xFF : 0x00) {}

    uint8_t *Row(uint32_t y) { return bits.data() + size_t{y} * stride; }
    const uint8_t *Row(uint32_t y) const { return bits.data() + size_t{y} * stride; }
    bool White(uint32_t x, uint32_t y) const { return (Row(y)[x >> 3] >> (7 - (x & 7))) & 1; }
    void Set(uint32_t x, uint32_t y, bool white) {
        uint8_t m = static_cast<uint8_t>(0x80u >> (x & 7));
        if (white) Row(y)[x >> 3] |= m; else Row(y)[x >> 3] &= static_cast<uint8_t>(~m);
    }
    void Span(uint32_t x0, uint32_t x1, uint32_t y, bool white) {  // [x0, x1)
        for (uint32_t x = x0; x < x1 && x < width; ++x) Set(x, y, white);
    }
    void FillRow(uint32_t y, bool white) { std::memset(Row(y), white ? 0xFF : 0, stride); }
};

// Deterministic generator (splitmix64), the same on every platform.
struct Rng {
    uint64_t s;
    explicit Rng(uint64_t seed) : s(seed) {}
    uint64_t Next() {
        uint64_t z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint32_t Below(uint32_t n) { return n == 0 ? 0 : static_cast<uint32_t>(Next() % n); }
    bool Chance(uint32_t percent) { return Below(100) < percent; }
};

inline Picture Noise(uint32_t w, uint32_t h, uint32_t blackPercent, uint64_t seed) {
    Picture p(w, h);
    Rng r(seed);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) p.Set(x, y, !r.Chance(blackPercent));
    return p;
}

// Fills the pad bits past the width with noise: the coder must ignore them.
inline void DirtyPadding(Picture &p, uint64_t seed) {
    Rng r(seed);
    uint32_t rest = p.width & 7;
    if (rest == 0) return;
    uint8_t pad = static_cast<uint8_t>(0xFFu >> rest);
    for (uint32_t y = 0; y < p.height; ++y) {
        uint8_t &b = p.Row(y)[p.stride - 1];
        b = static_cast<uint8_t>((b & ~pad) | (r.Next() & pad));
    }
}

// A text-like page: lines of "words" of glyph-sized boxes with strokes, at the
// proportions of 12-point type at the given resolution.
inline Picture TextPage(uint32_t w, uint32_t h, uint32_t dpi, uint64_t seed) {
    Picture p(w, h);
    Rng r(seed);
    const uint32_t margin = dpi;            // one inch
    const uint32_t glyphH = dpi * 10 / 72;  // cap height of 12 pt type
    const uint32_t glyphW = glyphH * 6 / 10;
    const uint32_t lineStep = dpi * 14 / 72;
    const uint32_t stroke = std::max<uint32_t>(1, dpi / 100);
    for (uint32_t top = margin; top + glyphH + margin < h; top += lineStep) {
        if (r.Chance(8)) continue;  // an empty line now and then
        uint32_t x = margin + (r.Chance(15) ? glyphW * 4 : 0);
        uint32_t lineEnd = w - margin - (r.Chance(20) ? r.Below(w / 2) : 0);
        while (x + glyphW < lineEnd) {
            uint32_t letters = 1 + r.Below(9);
            for (uint32_t l = 0; l < letters && x + glyphW < lineEnd; ++l) {
                uint32_t gw = glyphW * (6 + r.Below(6)) / 10;
                uint32_t strokes = 2 + r.Below(3);
                for (uint32_t s = 0; s < strokes; ++s) {
                    if (r.Chance(50)) {  // vertical stroke
                        uint32_t sx = x + r.Below(gw);
                        uint32_t y0 = top + r.Below(glyphH / 2), y1 = top + glyphH - r.Below(glyphH / 3);
                        for (uint32_t y = y0; y < y1; ++y) p.Span(sx, sx + stroke, y, false);
                    } else {  // horizontal stroke
                        uint32_t sy = top + r.Below(glyphH);
                        for (uint32_t y = sy; y < sy + stroke && y < h; ++y) p.Span(x, x + gw, y, false);
                    }
                }
                x += gw + stroke * 2;
            }
            x += glyphW;  // word space
        }
    }
    return p;
}

// A photo-like page (smooth shading, rings and edges) dithered to one bit by
// Floyd-Steinberg error diffusion.
inline Picture DitheredPhoto(uint32_t w, uint32_t h, uint64_t seed) {
    Rng r(seed);
    std::vector<float> grey(size_t{w} * h);
    const double cx = w * 0.4, cy = h * 0.45;
    const double phase = static_cast<double>(r.Below(1000)) / 100.0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            double dx = x - cx, dy = y - cy;
            double d = std::sqrt(dx * dx + dy * dy);
            double v = 0.5 + 0.25 * std::sin(d / 40.0 + phase) + 0.2 * (double(x) / w - 0.5) +
                       0.15 * std::cos(double(y) / 97.0) * std::sin(double(x) / 131.0);
            if (x > w * 3 / 4 && y > h / 2) v = v * 0.4 + 0.55;  // a bright patch with a hard edge
            grey[size_t{y} * w + x] = static_cast<float>(std::clamp(v, 0.0, 1.0));
        }
    Picture p(w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            float &g = grey[size_t{y} * w + x];
            bool whitePixel = g >= 0.5f;
            p.Set(x, y, whitePixel);
            float err = g - (whitePixel ? 1.0f : 0.0f);
            if (x + 1 < w) grey[size_t{y} * w + x + 1] += err * 7 / 16;
            if (y + 1 < h) {
                if (x > 0) grey[size_t{y + 1} * w + x - 1] += err * 3 / 16;
                grey[size_t{y + 1} * w + x] += err * 5 / 16;
                if (x + 1 < w) grey[size_t{y + 1} * w + x + 1] += err * 1 / 16;
            }
        }
    return p;
}

// ---- libtiff in memory -------------------------------------------------------

struct MemFile {
    std::vector<uint8_t> data;
    uint64_t pos = 0;
};

inline tsize_t MemRead(thandle_t h, tdata_t buf, tsize_t n) {
    auto *m = static_cast<MemFile *>(h);
    if (m->pos >= m->data.size()) return 0;
    size_t k = std::min<size_t>(static_cast<size_t>(n), m->data.size() - m->pos);
    std::memcpy(buf, m->data.data() + m->pos, k);
    m->pos += k;
    return static_cast<tsize_t>(k);
}
inline tsize_t MemWrite(thandle_t h, tdata_t buf, tsize_t n) {
    auto *m = static_cast<MemFile *>(h);
    if (m->pos + n > m->data.size()) m->data.resize(m->pos + n);
    std::memcpy(m->data.data() + m->pos, buf, static_cast<size_t>(n));
    m->pos += n;
    return n;
}
inline toff_t MemSeek(thandle_t h, toff_t off, int whence) {
    auto *m = static_cast<MemFile *>(h);
    uint64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m->pos : m->data.size();
    m->pos = base + off;
    return m->pos;
}
inline int MemClose(thandle_t) { return 0; }
inline toff_t MemSize(thandle_t h) { return static_cast<MemFile *>(h)->data.size(); }
inline int MemMap(thandle_t, tdata_t *, toff_t *) { return 0; }
inline void MemUnmap(thandle_t, tdata_t, toff_t) {}

inline TIFF *OpenMem(MemFile &m, const char *mode) {
    m.pos = 0;
    return TIFFClientOpen("memory", mode, static_cast<thandle_t>(&m), MemRead, MemWrite, MemSeek,
                          MemClose, MemSize, MemMap, MemUnmap);
}

inline void SetG4Fields(TIFF *t, uint32_t w, uint32_t h) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, h);
}

inline void QuietLibtiff() {
    TIFFSetWarningHandler(nullptr);
    TIFFSetErrorHandler(nullptr);
}

// libtiff's data for a picture: inverted bits (set = black), `stride` bytes a row.
inline std::vector<uint8_t> ForLibtiff(const Picture &p) {
    std::vector<uint8_t> inv(p.bits.size());
    for (size_t i = 0; i < inv.size(); ++i) inv[i] = static_cast<uint8_t>(~p.bits[i]);
    return inv;
}

// Writes a one-strip Group 4 TIFF of `inverted` (see ForLibtiff) into `file`.
inline bool LibtiffWriteG4(MemFile &file, const std::vector<uint8_t> &inverted, uint32_t w,
                           uint32_t h) {
    file.data.clear();
    TIFF *t = OpenMem(file, "w");
    if (t == nullptr) return false;
    SetG4Fields(t, w, h);
    bool ok = TIFFWriteEncodedStrip(t, 0, const_cast<uint8_t *>(inverted.data()),
                                    static_cast<tmsize_t>(inverted.size())) >= 0;
    TIFFClose(t);
    return ok;
}

// The raw strip libtiff's Group 4 encoder writes for the picture (EOFB included).
inline std::vector<uint8_t> LibtiffStrip(const Picture &p) {
    QuietLibtiff();
    MemFile file;
    if (!LibtiffWriteG4(file, ForLibtiff(p), p.width, p.height)) return {};
    TIFF *t = OpenMem(file, "r");
    if (t == nullptr) return {};
    uint64_t *counts = nullptr;
    std::vector<uint8_t> strip;
    if (TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &counts) && counts != nullptr) {
        strip.resize(static_cast<size_t>(counts[0]));
        tmsize_t got = TIFFReadRawStrip(t, 0, strip.data(), static_cast<tmsize_t>(strip.size()));
        strip.resize(got < 0 ? 0 : static_cast<size_t>(got));
    }
    TIFFClose(t);
    return strip;
}

inline bool BitAt(const std::vector<uint8_t> &bytes, uint64_t i) {
    return (bytes[i >> 3] >> (7 - (i & 7))) & 1;
}

// What our coder must write for a libtiff strip: the strip's bits up to its
// EOFB (two EOL codes, 000000000001 twice), the last byte zero-filled.
struct Expected {
    std::vector<uint8_t> bytes;
    uint64_t bits = 0;
    bool eofbFound = false;
};

inline Expected WithoutEofb(const std::vector<uint8_t> &strip) {
    Expected e;
    // The EOFB ends with a 1 and only zero fill follows it.
    uint64_t total = uint64_t{strip.size()} * 8;
    uint64_t last = total;
    while (last > 0 && !BitAt(strip, last - 1)) --last;
    if (last < 24) return e;
    uint64_t end = last - 24;
    static const char kEofb[] = "000000000001000000000001";
    for (uint64_t i = 0; i < 24; ++i)
        if (BitAt(strip, end + i) != (kEofb[i] == '1')) return e;
    e.eofbFound = true;
    e.bits = end;
    e.bytes.assign(strip.begin(), strip.begin() + static_cast<ptrdiff_t>((end + 7) / 8));
    if (end & 7) e.bytes.back() &= static_cast<uint8_t>(0xFF00u >> (end & 7));
    return e;
}

// Decodes a bare Group 4 stream with libtiff (wrapped in a one-strip TIFF) into
// a picture in the coder's convention; an empty picture when libtiff fails.
inline Picture LibtiffDecode(const std::vector<uint8_t> &stream, uint32_t w, uint32_t h) {
    QuietLibtiff();
    MemFile file;
    TIFF *t = OpenMem(file, "w");
    if (t == nullptr) return {};
    SetG4Fields(t, w, h);
    TIFFWriteRawStrip(t, 0, const_cast<uint8_t *>(stream.data()), static_cast<tmsize_t>(stream.size()));
    TIFFClose(t);
    t = OpenMem(file, "r");
    if (t == nullptr) return {};
    Picture p(w, h);
    tmsize_t got = TIFFReadEncodedStrip(t, 0, p.bits.data(), static_cast<tmsize_t>(p.bits.size()));
    TIFFClose(t);
    if (got != static_cast<tmsize_t>(p.bits.size())) return {};
    for (auto &b : p.bits) b = static_cast<uint8_t>(~b);
    return p;
}

// True when the first `width` pixels of every row agree.
inline bool SamePixels(const Picture &a, const Picture &b) {
    if (a.width != b.width || a.height != b.height) return false;
    for (uint32_t y = 0; y < a.height; ++y)
        for (uint32_t x = 0; x < a.width; ++x)
            if (a.White(x, y) != b.White(x, y)) return false;
    return true;
}

}  // namespace g4test
