// PNG pictures through libpng.
#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csetjmp>
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

struct PngReader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::string message;
    ~PngReader() {
        if (png != nullptr) png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr);
    }
};

void onError(png_structp png, png_const_charp message) {
    auto *reader = static_cast<PngReader *>(png_get_error_ptr(png));
    reader->message = message;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

// A PNG file already in memory, read by libpng through its read callback.
struct MemoryReader {
    std::span<const uint8_t> bytes;
    size_t at;
};

void readFromMemory(png_structp png, png_bytep into, size_t length) {
    auto *m = static_cast<MemoryReader *>(png_get_io_ptr(png));
    if (length > m->bytes.size() - m->at) png_error(png, "the file ends early");
    std::memcpy(into, m->bytes.data() + m->at, length);
    m->at += length;
}

}  // namespace

Image codec::readPng(const PictureSource &source, const PixelAllocator &alloc) {
    const std::string &path = source.name;
    std::unique_ptr<FILE, int (*)(FILE *)> f(source.inMemory ? nullptr : std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!source.inMemory && !f) throw ReadError(path + ": cannot open: " + std::strerror(errno));
    MemoryReader memoryReader{source.bytes, 0};

    PngReader r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, onError, onWarning);
    if (r.png == nullptr) throw ReadError(path + ": not enough memory");
    r.info = png_create_info_struct(r.png);
    if (r.info == nullptr) throw ReadError(path + ": not enough memory");

    // Everything that libpng may abandon by longjmp lives outside this frame
    // or is trivially destructible; the C++ objects are made before setjmp.
    Image image;
    std::unique_ptr<uint8_t[]> scratch;
    std::vector<png_color> colours;
    std::vector<uint8_t> alphas;
    if (setjmp(png_jmpbuf(r.png))) throw ReadError(path + ": bad PNG: " + r.message);

    if (source.inMemory)
        png_set_read_fn(r.png, &memoryReader, readFromMemory);
    else
        png_init_io(r.png, f.get());
    png_set_user_limits(r.png, 0x7FFFFFFF, 0x7FFFFFFF);
    // Ancillary chunks (compressed text, profiles) are held whole: none may
    // take more than a small part of the budget.
    png_set_chunk_malloc_max(r.png, static_cast<png_alloc_size_t>(std::min<uint64_t>(memoryBudget() / 4, 64u << 20)));
    png_read_info(r.png, r.info);
    png_uint_32 width = 0, height = 0;
    int bitDepth = 0, colourType = 0, interlace = 0;
    png_get_IHDR(r.png, r.info, &width, &height, &bitDepth, &colourType, &interlace, nullptr, nullptr);

    png_uint_32 xres = 0, yres = 0;
    int unit = 0;
    if (png_get_pHYs(r.png, r.info, &xres, &yres, &unit) && unit == PNG_RESOLUTION_METER && xres > 0)
        image.dpi = static_cast<int>(std::lround(xres * 0.0254));

    const bool hasTrns = png_get_valid(r.png, r.info, PNG_INFO_tRNS) != 0;
    if (bitDepth == 16) {
#ifdef PNG_READ_SCALE_16_TO_8_SUPPORTED
        png_set_scale_16(r.png);
#else
        png_set_strip_16(r.png);
#endif
    }

    // What the picture becomes.
    enum { Bilevel, Indexed, Grey, GreyAlpha, Colour, ColourAlpha } kind;
    int depth = 8;
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        kind = Indexed;
        depth = bitDepth == 1 ? 1 : bitDepth == 8 ? 8 : 4;
        if (bitDepth == 2) png_set_packing(r.png);  // one pixel a byte, packed to 4 bits below
        png_colorp pal = nullptr;
        int count = 0;
        png_get_PLTE(r.png, r.info, &pal, &count);
        colours.assign(pal, pal + count);
        if (hasTrns) {
            png_bytep trans = nullptr;
            int n = 0;
            png_get_tRNS(r.png, r.info, &trans, &n, nullptr);
            alphas.assign(trans, trans + n);
        }
    } else if (colourType == PNG_COLOR_TYPE_GRAY && bitDepth == 1 && !hasTrns) {
        kind = Bilevel;
        depth = 1;
    } else if (colourType == PNG_COLOR_TYPE_GRAY || colourType == PNG_COLOR_TYPE_GRAY_ALPHA) {
        if (bitDepth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
        if (hasTrns) png_set_tRNS_to_alpha(r.png);
        kind = (colourType == PNG_COLOR_TYPE_GRAY_ALPHA || hasTrns) ? GreyAlpha : Grey;
    } else {
        if (hasTrns) png_set_tRNS_to_alpha(r.png);
        kind = (colourType == PNG_COLOR_TYPE_RGB_ALPHA || hasTrns) ? ColourAlpha : Colour;
        depth = 24;
    }
    const int passes = interlace != PNG_INTERLACE_NONE ? png_set_interlace_handling(r.png) : 1;
    png_read_update_info(r.png, r.info);

    const size_t rowBytes = png_get_rowbytes(r.png, r.info);
    const bool direct = kind == Bilevel || kind == Grey || kind == Colour ||
                        (kind == Indexed && bitDepth != 2);
    // Interlaced pictures that need converting are read whole first.
    const uint64_t scratchRows = passes > 1 ? height : 1;
    const uint64_t scratchBytes =
        direct && rowBytes <= Image::rowBytes(width, depth) ? 0 : uint64_t{rowBytes} * scratchRows;
    allocatePixels(image, path, width, height, depth, alloc, scratchBytes);
    switch (kind) {
    case Bilevel:
        image.palette = {Rgb{0, 0, 0}, Rgb{255, 255, 255}};
        break;
    case Indexed:
        image.palette.assign(size_t{1} << depth, Rgb{0, 0, 0});
        for (size_t i = 0; i < colours.size() && i < image.palette.size(); ++i) {
            uint32_t a = i < alphas.size() ? alphas[i] : 255;
            image.palette[i] = Rgb{overWhite(colours[i].red, a), overWhite(colours[i].green, a),
                                   overWhite(colours[i].blue, a)};
        }
        break;
    case Grey:
    case GreyAlpha:
        image.palette = greyPalette();
        break;
    default:
        break;
    }

    if (scratchBytes == 0) {
        // Rows arrive in the module's own layout: read them in place.
        for (int pass = 0; pass < passes; ++pass)
            for (uint32_t y = 0; y < height; reportRows(uint64_t{height} * pass + ++y, uint64_t{height} * passes)) png_read_row(r.png, image.row(y), nullptr);
    } else {
        // Not zero-filled: only the rows the data reaches are touched.
        scratch.reset(new (std::nothrow) uint8_t[static_cast<size_t>(scratchBytes)]);
        if (!scratch) throw ReadError(path + ": not enough memory to read the picture");
        for (int pass = 0; pass < passes; ++pass) {
            for (uint32_t y = 0; y < height; ++y) {
                reportRows(uint64_t{height} * pass + y, uint64_t{height} * passes);
                uint8_t *src = scratch.get() + (passes > 1 ? rowBytes * y : 0);
                png_read_row(r.png, src, nullptr);
                if (pass + 1 < passes) continue;
                uint8_t *dst = image.row(y);
                switch (kind) {
                case Indexed:  // 2-bit indices, unpacked to bytes, packed again as nibbles
                    for (uint32_t x = 0; x < width; ++x)
                        dst[x >> 1] |= static_cast<uint8_t>((src[x] & 15) << ((x & 1) ? 0 : 4));
                    break;
                case GreyAlpha:
                    for (uint32_t x = 0; x < width; ++x) dst[x] = overWhite(src[2 * x], src[2 * x + 1]);
                    break;
                case ColourAlpha:
                    for (uint32_t x = 0; x < width; ++x) {
                        const uint8_t *p = src + 4 * x;
                        dst[3 * x] = overWhite(p[0], p[3]);
                        dst[3 * x + 1] = overWhite(p[1], p[3]);
                        dst[3 * x + 2] = overWhite(p[2], p[3]);
                    }
                    break;
                default:
                    std::memcpy(dst, src, std::min(rowBytes, image.stride()));
                    break;
                }
            }
        }
    }
    png_read_end(r.png, nullptr);
    return image;
}

}  // namespace mivo4::host
