// TIFF pictures through libtiff: bilevel, grey, palette and RGB strips are
// read row by row into place; everything else goes through libtiff's RGBA
// reader.
#include <tiffio.h>

#include <cmath>
#include <cstdint>
#include <span>
#include <cstdarg>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "codecs.h"
#include "image.h"
#include "membudget.h"

namespace mivo4::host {

namespace {

// libtiff reports through process-wide handlers; the last error is kept for
// the message the user sees. Readers run one at a time.
std::string lastTiffError;

void onError(const char *module, const char *fmt, va_list ap) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, ap);
    lastTiffError = text;
    (void)module;
}

void onWarning(const char *, const char *, va_list) {}

struct TiffCloser {
    void operator()(TIFF *t) const { TIFFClose(t); }
};

inline uint8_t from16(uint32_t v) { return static_cast<uint8_t>((v + 128) / 257); }

// A TIFF file already in memory, read by libtiff through client procedures;
// it is also "mapped", so that libtiff reads strips straight from it.
struct MemoryFile {
    std::span<const uint8_t> bytes;
    uint64_t at = 0;
};

tmsize_t memoryRead(thandle_t h, void *into, tmsize_t n) {
    auto *m = static_cast<MemoryFile *>(h);
    if (n <= 0 || m->at >= m->bytes.size()) return 0;
    const size_t count = static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(n), m->bytes.size() - m->at));
    std::memcpy(into, m->bytes.data() + m->at, count);
    m->at += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t memoryWrite(thandle_t, void *, tmsize_t) { return -1; }

toff_t memorySeek(thandle_t h, toff_t offset, int whence) {
    auto *m = static_cast<MemoryFile *>(h);
    const int64_t base = whence == SEEK_CUR ? static_cast<int64_t>(m->at)
                         : whence == SEEK_END ? static_cast<int64_t>(m->bytes.size())
                                              : 0;
    const int64_t delta = static_cast<int64_t>(offset);
    if ((delta < 0 && base + delta < 0) || (delta > 0 && base > INT64_MAX - delta)) return static_cast<toff_t>(-1);
    m->at = static_cast<uint64_t>(base + delta);
    return m->at;
}

int memoryClose(thandle_t) { return 0; }

toff_t memorySize(thandle_t h) { return static_cast<MemoryFile *>(h)->bytes.size(); }

int memoryMap(thandle_t h, void **base, toff_t *size) {
    auto *m = static_cast<MemoryFile *>(h);
    *base = const_cast<uint8_t *>(m->bytes.data());
    *size = m->bytes.size();
    return 1;
}

void memoryUnmap(thandle_t, void *, toff_t) {}

// Counts the pages and makes the asked one current: a page past the count is
// refused with the count.
template <class Fail>
void selectPage(TIFF *t, const PictureSource &source, Image &image, const Fail &fail) {
    const tdir_t pages = TIFFNumberOfDirectories(t);
    image.pages = pages > 0 ? pages : 1;
    if (source.page > image.pages)
        throw ReadError(source.name + ": has " + std::to_string(image.pages) + (image.pages == 1 ? " page" : " pages") +
                        "; --page " + std::to_string(source.page) + " is past the last");
    if (source.page > 1 && !TIFFSetDirectory(t, static_cast<tdir_t>(source.page - 1)))
        throw fail("cannot read page " + std::to_string(source.page));
}

}  // namespace

Image codec::readTiff(const PictureSource &source, const PixelAllocator &alloc) {
    const std::string &path = source.name;
    TIFFErrorHandler oldError = TIFFSetErrorHandler(onError);
    TIFFErrorHandler oldWarning = TIFFSetWarningHandler(onWarning);
    struct Restore {
        TIFFErrorHandler e, w;
        ~Restore() {
            TIFFSetErrorHandler(e);
            TIFFSetWarningHandler(w);
        }
    } restore{oldError, oldWarning};
    lastTiffError.clear();
    auto fail = [&](const std::string &why) -> ReadError {
        return ReadError(path + ": " + why + (lastTiffError.empty() ? "" : ": " + lastTiffError));
    };

    // libtiff's own allocations (strips, tiles, tag arrays) stay within the
    // budget as well.
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions *)> options(TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
    if (!options) throw ReadError(path + ": not enough memory");
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(std::min<uint64_t>(memoryBudget(), INT64_MAX)));
    MemoryFile memoryFile{source.bytes, 0};
    std::unique_ptr<TIFF, TiffCloser> tif(
        source.inMemory ? TIFFClientOpenExt(path.c_str(), "r", &memoryFile, memoryRead, memoryWrite, memorySeek,
                                            memoryClose, memorySize, memoryMap, memoryUnmap, options.get())
                        : TIFFOpenExt(path.c_str(), "r", options.get()));
    if (!tif) throw fail("cannot read this TIFF file");
    TIFF *t = tif.get();
    Image image;
    selectPage(t, source, image, fail);

    uint32_t width = 0, height = 0;
    uint16_t bps = 1, spp = 1, photometric = PHOTOMETRIC_MINISWHITE, planar = PLANARCONFIG_CONTIG;
    uint16_t orientation = ORIENTATION_TOPLEFT, unit = RESUNIT_INCH;
    float xres = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &orientation);
    const bool hasPhotometric = TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric) != 0;
    if (!hasPhotometric) photometric = spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISWHITE;

    // Rows are read as stored; the orientation is turned upright afterwards
    // (or kept, as the user asks).
    if (orientation < ORIENTATION_TOPLEFT || orientation > ORIENTATION_LEFTBOT) orientation = ORIENTATION_TOPLEFT;
    image.orientation = orientation;
    auto turnWork = [&](int depth) { return orientationWork(source, orientation, width, height, depth); };
    if (TIFFGetField(t, TIFFTAG_XRESOLUTION, &xres) && xres > 0) {
        TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &unit);
        if (unit == RESUNIT_INCH) image.dpi = static_cast<int>(std::lround(xres));
        else if (unit == RESUNIT_CENTIMETER) image.dpi = static_cast<int>(std::lround(xres * 2.54));
    }

    uint16_t extraCount = 0;
    uint16_t *extraTypes = nullptr;
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
    const bool grey = photometric == PHOTOMETRIC_MINISWHITE || photometric == PHOTOMETRIC_MINISBLACK;
    const bool plainLayout = !TIFFIsTiled(t) && (planar == PLANARCONFIG_CONTIG || spp == 1);
    const bool rowByRow =
        plainLayout &&
        ((grey && spp == 1 && (bps == 1 || bps == 2 || bps == 4 || bps == 8 || bps == 16)) ||
         (photometric == PHOTOMETRIC_PALETTE && spp == 1 && (bps == 1 || bps == 2 || bps == 4 || bps == 8)) ||
         (photometric == PHOTOMETRIC_RGB && (spp == 3 || (spp == 4 && extraCount == 1)) &&
          (bps == 8 || bps == 16)));

    if (!rowByRow) {
        // Ink, luminance-chrominance, tiles, planes: libtiff turns them into
        // RGBA rows, in the stored order (asked for the file's own orientation).
        char why[1024] = "";
        if (!TIFFRGBAImageOK(t, why)) throw ReadError(path + ": unsupported TIFF: " + why);
        checkPictureSize(path, width, height);
        const uint64_t rgbaBytes = uint64_t{width} * height * 4;
        allocatePixels(image, path, width, height, 24, alloc, std::max(rgbaBytes, turnWork(24)));
        // Not zero-filled: a file whose data ends early stops the reading
        // (stop on the first error) before it touches the rest.
        std::unique_ptr<uint32_t[]> rgba(new (std::nothrow) uint32_t[static_cast<size_t>(rgbaBytes / 4)]);
        if (!rgba) throw ReadError(path + ": not enough memory to read the picture");
        if (!TIFFReadRGBAImageOriented(t, width, height, rgba.get(), orientation, 1))
            throw fail("cannot decode the TIFF picture");
        for (uint32_t y = 0; y < height; ++y) {
            reportRows(y, height);
            const uint32_t *src = rgba.get() + static_cast<size_t>(y) * width;
            uint8_t *dst = image.row(y);
            for (uint32_t x = 0; x < width; ++x) {
                // libtiff hands out colours already multiplied by their alpha.
                uint32_t p = src[x], back = 255 - TIFFGetA(p);
                dst[3 * x] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetR(p) + back));
                dst[3 * x + 1] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetG(p) + back));
                dst[3 * x + 2] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetB(p) + back));
            }
        }
        return image;
    }

    const tmsize_t scanline = TIFFScanlineSize(t);
    std::vector<uint8_t> line(static_cast<size_t>(scanline > 0 ? scanline : 0));
    auto readRow = [&](uint32_t y, uint8_t *into) {
        if (TIFFReadScanline(t, into, y, 0) < 0) throw fail("the picture data is damaged");
    };

    if (grey) {
        const bool whiteIsZero = photometric == PHOTOMETRIC_MINISWHITE;
        if (bps == 1) {
            allocatePixels(image, path, width, height, 1, alloc, turnWork(1));
            image.palette = whiteIsZero ? std::vector<Rgb>{{255, 255, 255}, {0, 0, 0}}
                                        : std::vector<Rgb>{{0, 0, 0}, {255, 255, 255}};
        } else {
            allocatePixels(image, path, width, height, 8, alloc, turnWork(8));
            image.palette = greyPalette();
            // 8-bit rows are kept as they are; the table says which end is white.
            if (whiteIsZero && bps == 8)
                for (int i = 0; i < 256; ++i) image.palette[i] = Rgb{uint8_t(255 - i), uint8_t(255 - i), uint8_t(255 - i)};
        }
        for (uint32_t y = 0; y < height; ++y) {
            reportRows(y, height);
            uint8_t *dst = image.row(y);
            if ((bps == 1 || bps == 8) && static_cast<size_t>(scanline) <= image.stride()) {
                readRow(y, dst);
                continue;
            }
            readRow(y, line.data());
            for (uint32_t x = 0; x < width; ++x) {
                uint32_t v;
                if (bps == 16) {
                    uint16_t s;
                    std::memcpy(&s, line.data() + 2 * x, 2);  // libtiff gives host order
                    v = from16(s);
                } else {
                    uint32_t maxv = (1u << bps) - 1;
                    uint32_t bit = x * bps;
                    uint32_t raw = (line[bit >> 3] >> (8 - bps - (bit & 7))) & maxv;
                    v = (raw * 255 + maxv / 2) / maxv;
                }
                dst[x] = static_cast<uint8_t>(whiteIsZero ? 255 - v : v);
            }
        }
        return image;
    }

    if (photometric == PHOTOMETRIC_PALETTE) {
        uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
        if (!TIFFGetField(t, TIFFTAG_COLORMAP, &r, &g, &b)) throw fail("palette picture without a colour map");
        const int depth = bps == 1 ? 1 : bps == 8 ? 8 : 4;
        allocatePixels(image, path, width, height, depth, alloc, turnWork(depth));
        const size_t entries = size_t{1} << bps;
        // Some writers store 8-bit values in the 16-bit map.
        bool eightBit = true;
        for (size_t i = 0; i < entries; ++i)
            if (r[i] > 255 || g[i] > 255 || b[i] > 255) eightBit = false;
        image.palette.assign(size_t{1} << depth, Rgb{0, 0, 0});
        for (size_t i = 0; i < entries; ++i)
            image.palette[i] = eightBit ? Rgb{uint8_t(r[i]), uint8_t(g[i]), uint8_t(b[i])}
                                        : Rgb{from16(r[i]), from16(g[i]), from16(b[i])};
        for (uint32_t y = 0; y < height; ++y) {
            reportRows(y, height);
            uint8_t *dst = image.row(y);
            if (bps != 2 && static_cast<size_t>(scanline) <= image.stride()) {
                readRow(y, dst);
                continue;
            }
            readRow(y, line.data());
            for (uint32_t x = 0; x < width; ++x) {
                uint32_t v = (line[x >> 2] >> (6 - 2 * (x & 3))) & 3;
                dst[x >> 1] |= static_cast<uint8_t>(v << ((x & 1) ? 0 : 4));
            }
        }
        return image;
    }

    // RGB, 8 or 16 bits, perhaps with alpha.
    allocatePixels(image, path, width, height, 24, alloc, turnWork(24));
    const uint16_t extra = spp == 4 && extraTypes != nullptr ? extraTypes[0] : EXTRASAMPLE_UNSPECIFIED;
    const bool premultiplied = extra == EXTRASAMPLE_ASSOCALPHA;
    const bool alpha = premultiplied || extra == EXTRASAMPLE_UNASSALPHA;
    for (uint32_t y = 0; y < height; ++y) {
        reportRows(y, height);
        uint8_t *dst = image.row(y);
        if (spp == 3 && bps == 8 && static_cast<size_t>(scanline) <= image.stride()) {
            readRow(y, dst);
            continue;
        }
        readRow(y, line.data());
        for (uint32_t x = 0; x < width; ++x) {
            uint32_t c[4] = {0, 0, 0, 255};
            for (uint32_t s = 0; s < spp; ++s) {
                if (bps == 8) {
                    c[s] = line[static_cast<size_t>(x) * spp + s];
                } else {
                    uint16_t v;
                    std::memcpy(&v, line.data() + 2 * (static_cast<size_t>(x) * spp + s), 2);
                    c[s] = from16(v);
                }
            }
            for (int k = 0; k < 3; ++k)
                dst[3 * x + k] = !alpha ? static_cast<uint8_t>(c[k])
                                 : premultiplied ? static_cast<uint8_t>(std::min<uint32_t>(255, c[k] + 255 - c[3]))
                                                 : overWhite(c[k], c[3]);
        }
    }
    return image;
}

}  // namespace mivo4::host
