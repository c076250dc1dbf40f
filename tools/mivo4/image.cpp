#include "image.h"

#include <sys/mman.h>
#include <unistd.h>

#include "membudget.h"
#include "orient.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace mivo4::host {

namespace {

// The picture a reader is filling. Its rows are put in place a few megabytes
// ahead of the reader, a stretch at a time, rather than by a page fault at
// each first write (on some virtual machines a fault costs ten times as
// much); only ahead of rows actually read, so that a damaged file claiming a
// huge picture still takes no more memory than its data fills.
struct Filling {
    uint8_t *pixels = nullptr;
    size_t stride = 0;
    uint32_t height = 0;
    uint64_t ready = 0;  // rows [0, ready) are in place
} filling;

constexpr size_t kAhead = size_t{4} << 20;

void putInPlace(uint8_t *from, uint8_t *to) {
#ifdef MADV_POPULATE_WRITE
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t a = reinterpret_cast<uintptr_t>(from) & ~(page - 1);
    const uintptr_t b = (reinterpret_cast<uintptr_t>(to) + page - 1) & ~(page - 1);
    if (b > a) madvise(reinterpret_cast<void *>(a), b - a, MADV_POPULATE_WRITE);
#else
    (void)from, (void)to;
#endif
}

// Puts the next stretch of rows in place once the reader is near its end.
void prepareRows(uint64_t done) {
    Filling &f = filling;
    if (f.pixels == nullptr || f.ready >= f.height || done + 1 < f.ready) return;
    const uint64_t rows = std::max<uint64_t>(1, kAhead / std::max<size_t>(f.stride, 1));
    const uint64_t upTo = std::min<uint64_t>(f.height, done + rows);
    // Row y lies (height - 1 - y) rows from the start: later rows lower.
    putInPlace(f.pixels + f.stride * (f.height - upTo), f.pixels + f.stride * (f.height - f.ready));
    f.ready = upTo;
}

}  // namespace

Format sniffFormat(const uint8_t *head, size_t n) {
    static const uint8_t png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n >= 8 && std::memcmp(head, png, 8) == 0) return Format::Png;
    if (n >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF) return Format::Jpeg;
    if (n >= 4 && ((head[0] == 'I' && head[1] == 'I' && (head[2] == 42 || head[2] == 43) && head[3] == 0) ||
                   (head[0] == 'M' && head[1] == 'M' && head[2] == 0 && (head[3] == 42 || head[3] == 43))))
        return Format::Tiff;
    if (n >= 2 && head[0] == 'P' && head[1] >= '1' && head[1] <= '6') return Format::Pnm;
    return Format::Unknown;
}

Image readImage(const PictureSource &source, const PixelAllocator &alloc) {
    const std::string &path = source.name;
    uint8_t head[8] = {};
    size_t n = 0;
    if (source.inMemory) {
        n = std::min(sizeof head, source.bytes.size());
        if (n > 0) std::memcpy(head, source.bytes.data(), n);
    } else {
        std::unique_ptr<FILE, int (*)(FILE *)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
        if (!f) throw ReadError(path + ": cannot open: " + std::strerror(errno));
        n = std::fread(head, 1, sizeof head, f.get());
    }
    if (n == 0) throw ReadError(path + ": empty (no bytes to read)");
    const Format format = sniffFormat(head, n);
    if (format == Format::Unknown)
        throw ReadError(path + ": not a picture this program reads (PNG, JPEG, TIFF, PNM P1-P6)");
    // Only a TIFF has pages; anything else is page 1 of 1.
    if (format != Format::Tiff && source.page != 1)
        throw ReadError(path + ": has 1 page; --page " + std::to_string(source.page) + " asks for another");
    // Bytes held in memory count against the budget while the picture is decoded.
    HeldBytes held(source.inMemory ? source.bytes.size() : 0);
    Image image;
    // Read or not, nothing more to put in place.
    struct Done {
        ~Done() { filling = Filling{}; }
    } done;
    switch (format) {
    case Format::Png: image = readPng(source, alloc); break;
    case Format::Jpeg: image = readJpeg(source, alloc); break;
    case Format::Tiff: image = readTiff(source, alloc); break;
    case Format::Pnm: image = readPnm(source, alloc); break;
    case Format::Unknown: break;
    }
    // Upright before a two-colour picture is widened: the turn moves fewer bytes.
    if (source.orient) orientUpright(image, path, alloc, source.release);
    widenNonBilevel(image, alloc);
    return image;
}

uint64_t orientationWork(const PictureSource &source, int orientation, uint32_t width, uint32_t height, int depth) {
    if (!source.orient || orientation < 5 || orientation > 8) return 0;
    // Sizes the module cannot take are refused as such, before any sum.
    checkPictureSize(source.name, width, height);
    const uint64_t pixels = uint64_t{Image::rowBytes(width, depth)} * height;
    const uint64_t turned = uint64_t{Image::rowBytes(height, depth)} * width;
    // A picture that fits once but not twice: say what would let it through.
    const uint64_t budget = memoryBudget(), held = HeldBytes::current();
    const bool fitsOnce = held <= budget && pixels <= budget - held;
    if (fitsOnce && turned > budget - held - pixels)
        throw ReadError(source.name + ": " + std::to_string(width) + " x " + std::to_string(height) +
                        " pixels need " + describeBytes(pixels + turned) + " of memory to be turned upright" +
                        (held > 0 ? " besides the " + describeBytes(held) + " of the file held in memory" : "") +
                        ", more than the limit of " + describeBytes(budget) +
                        " (--limit-memory); --no-orient exports them as stored");
    return turned;
}

void checkPictureSize(const std::string &path, uint32_t width, uint32_t height) {
    // The module's bitmap record holds 16-bit sizes.
    if (width > 65535 || height > 65535)
        throw ReadError(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                        " pixels; the largest picture the module takes is 65535 x 65535");
    if (width == 0 || height == 0) throw ReadError(path + ": the picture has no pixels");
}

ReadOptions &readOptions() {
    static ReadOptions options;
    return options;
}

void reportRows(uint64_t done, uint64_t total) {
    if (total == filling.height) prepareRows(done);
    if (const auto &told = readOptions().rowsRead) told(done, total);
}

void allocatePixels(Image &image, const std::string &path, uint32_t width, uint32_t height,
                    int depth, const PixelAllocator &alloc, uint64_t workBytes) {
    checkPictureSize(path, width, height);
    image.width = width;
    image.height = height;
    image.depth = depth;
    size_t bytes = image.size();
    checkMemoryBudget(path, width, height, uint64_t{bytes} + workBytes);
    // The module's blocks are addressed with 32-bit sizes.
    if (bytes > 0xFFFFFFF0u)
        throw ReadError(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                        " pixels at " + std::to_string(depth) +
                        " bits do not fit in one 4 GB block of the module's memory");
    image.pixels = alloc(bytes);
    if (image.pixels == nullptr) throw ReadError(path + ": not enough memory for the picture");
    filling = Filling{image.pixels, image.stride(), height, 0};
    prepareRows(0);
}

std::vector<Rgb> greyPalette() {
    std::vector<Rgb> p(256);
    for (int i = 0; i < 256; ++i) p[i] = Rgb{uint8_t(i), uint8_t(i), uint8_t(i)};
    return p;
}

void widenNonBilevel(Image &image, const PixelAllocator &alloc) {
    if (image.depth != 1 || image.palette.size() < 2) return;
    const Rgb black{0, 0, 0}, white{255, 255, 255};
    const Rgb &c0 = image.palette[0], &c1 = image.palette[1];
    if ((c0 == black && c1 == white) || (c0 == white && c1 == black)) return;
    Image wide = image;
    wide.pixels = nullptr;
    allocatePixels(wide, "picture", image.width, image.height, 4, alloc);
    for (uint32_t y = 0; y < image.height; ++y) {
        const uint8_t *src = image.row(y);
        uint8_t *dst = wide.row(y);
        for (uint32_t x = 0; x < image.width; ++x) {
            uint8_t bit = (src[x >> 3] >> (7 - (x & 7))) & 1;
            dst[x >> 1] |= static_cast<uint8_t>(bit << ((x & 1) ? 0 : 4));
        }
    }
    wide.palette.resize(16);  // entries past the two used ones stay black
    image = wide;
}

}  // namespace mivo4::host
