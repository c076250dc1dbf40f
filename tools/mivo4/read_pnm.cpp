// The portable anymap formats, P1 to P6, read by this program itself.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "image.h"

namespace mivo4::host {

namespace {

class PnmFile {
public:
    // A file by name, or one in memory read through a memory stream.
    PnmFile(const PictureSource &source)
        : path_(source.name),
          f_(source.inMemory ? openBytes(source.bytes) : std::fopen(source.name.c_str(), "rb"), &std::fclose),
          memorySize_(source.inMemory ? source.bytes.size() : 0), inMemory_(source.inMemory) {
        if (!f_) throw ReadError(path_ + ": cannot open: " + std::strerror(errno));
    }
    [[noreturn]] void fail(const std::string &why) const { throw ReadError(path_ + ": " + why); }

    int get() { return std::getc(f_.get()); }

    // Skips blanks and comments (from "#" to the end of the line).
    int skipSpace() {
        int c = get();
        for (;;) {
            if (c == '#') {
                while (c != '\n' && c != '\r' && c != EOF) c = get();
            } else if (c != EOF && std::isspace(c)) {
                c = get();
            } else {
                return c;
            }
        }
    }

    // Bytes left in the file from the current position.
    uint64_t remaining() {
        if (inMemory_) {
            long here = std::ftell(f_.get());
            return here >= 0 && static_cast<uint64_t>(here) < memorySize_ ? memorySize_ - static_cast<uint64_t>(here) : 0;
        }
        long here = 0;
        off_t size = 0;
        if (!inRegularFile(here, size)) return UINT64_MAX;
        return size > here ? static_cast<uint64_t>(size - here) : 0;
    }

    // A decimal number of the header or of a plain (ASCII) raster.
    uint32_t number(const char *what) {
        int c = skipSpace();
        if (c == EOF) fail(std::string("ends before the ") + what);
        if (!std::isdigit(c)) fail(std::string("expected a number for the ") + what);
        uint64_t v = 0;
        while (c != EOF && std::isdigit(c)) {
            v = v * 10 + static_cast<uint64_t>(c - '0');
            if (v > 0xFFFFFFFFu) fail(std::string("the ") + what + " is too large");
            c = get();
        }
        if (c != EOF && !std::isspace(c) && c != '#') fail(std::string("bad character after the ") + what);
        if (c == '#') std::ungetc(c, f_.get());
        return static_cast<uint32_t>(v);
    }

    // The header is read through the stream, a character at a time; a binary
    // raster of a regular file is then read past it, a quarter megabyte a
    // call, into a buffer the rows are copied from while it is still in the
    // cache. (The stream's own buffer is a page: a system call every few
    // thousand pixels. Reading straight into the rows copies each byte once,
    // but in a way that leaves the rows out of the cache, and reading them
    // again later costs more than the copy saved.)
    void startRaster() {
        long at = 0;
        off_t size = 0;
        if (inMemory_ || !inRegularFile(at, size)) return;
        offset_ = static_cast<off_t>(at);
        chunk_.reset(new uint8_t[kChunk]);
    }

    // Raster bytes: whole rows, or the samples of one.
    void bytes(uint8_t *to, size_t n) {
        if (!chunk_) {
            if (std::fread(to, 1, n, f_.get()) != n) fail("the picture data is cut short");
            return;
        }
        while (n > 0) {
            if (used_ == have_) refill();
            const size_t take = std::min(n, have_ - used_);
            std::memcpy(to, chunk_.get() + used_, take);
            to += take, used_ += take, n -= take;
        }
    }

private:
    static constexpr size_t kChunk = size_t{256} << 10;

    // Where the stream stands in the file and the file's size, when it reads
    // a regular file (not a pipe, a device or bytes in memory).
    bool inRegularFile(long &at, off_t &size) {
        struct stat st;
        at = std::ftell(f_.get());
        if (at < 0 || fstat(fileno(f_.get()), &st) != 0 || !S_ISREG(st.st_mode)) return false;
        size = st.st_size;
        return true;
    }

    void refill() {
        for (;;) {
            const ssize_t n = pread(fileno(f_.get()), chunk_.get(), kChunk, offset_);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) fail(std::string("cannot read: ") + std::strerror(errno));
            if (n == 0) fail("the picture data is cut short");
            offset_ += n;
            have_ = static_cast<size_t>(n), used_ = 0;
            return;
        }
    }

    static FILE *openBytes(std::span<const uint8_t> bytes) {
        // The stream only reads; an empty buffer still needs a valid address.
        static const uint8_t none = 0;
        return fmemopen(const_cast<uint8_t *>(bytes.empty() ? &none : bytes.data()), bytes.size(), "rb");
    }
    std::string path_;
    std::unique_ptr<FILE, int (*)(FILE *)> f_;
    uint64_t memorySize_;
    bool inMemory_;
    std::unique_ptr<uint8_t[]> chunk_;  // set while a file's raster is read past the stream
    off_t offset_ = 0;
    size_t have_ = 0, used_ = 0;
};

// Scales a sample of 0..maxval to 0..255, rounding to nearest.
inline uint8_t scale8(uint32_t v, uint32_t maxval) {
    if (v > maxval) v = maxval;
    return maxval == 255 ? static_cast<uint8_t>(v)
                         : static_cast<uint8_t>((v * 255u + maxval / 2) / maxval);
}

}  // namespace

Image readPnm(const PictureSource &source, const PixelAllocator &alloc) {
    const std::string &path = source.name;
    PnmFile in(source);
    if (in.get() != 'P') in.fail("not a PNM file");
    int kind = in.get() - '0';
    if (kind < 1 || kind > 6) in.fail("not a PNM file of kind P1 to P6");
    uint32_t width = in.number("width");
    uint32_t height = in.number("height");
    uint32_t maxval = 1;
    if (kind != 1 && kind != 4) {
        maxval = in.number("maximum value");
        if (maxval == 0 || maxval > 65535) in.fail("maximum sample value must be 1 to 65535");
    }
    // number() consumed the single blank that ends the header.

    // A binary raster must be there in full: a damaged header that claims a
    // huge picture is refused before any memory is taken for it.
    checkPictureSize(path, width, height);
    if (kind >= 4) {
        const uint64_t samples = kind == 6 ? 3 : 1;
        const uint64_t rowBytes = kind == 4 ? (uint64_t{width} + 7) / 8 : uint64_t{width} * samples * (maxval > 255 ? 2 : 1);
        if (rowBytes * height > in.remaining()) in.fail("the picture data is cut short");
    }

    if (kind >= 4) in.startRaster();

    Image image;
    if (kind == 1 || kind == 4) {
        allocatePixels(image, path, width, height, 1, alloc);
        // A set bit is black, as in the file: the table says so.
        image.palette = {Rgb{255, 255, 255}, Rgb{0, 0, 0}};
        const size_t packed = (width + 7) / 8;
        const uint8_t lastMask = static_cast<uint8_t>(0xFF << ((8 - width % 8) % 8));
        for (uint32_t y = 0; y < height; ++y) {
            reportRows(y, height);
            uint8_t *row = image.row(y);
            if (kind == 4) {
                in.bytes(row, packed);
            } else {
                for (uint32_t x = 0; x < width; ++x) {
                    int c = in.skipSpace();
                    if (c != '0' && c != '1') in.fail(c == EOF ? "the picture data is cut short" : "a P1 pixel must be 0 or 1");
                    if (c == '1') row[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
                }
            }
            row[packed - 1] &= lastMask;  // bits past the last pixel stay clear
        }
        return image;
    }

    const bool colour = kind == 3 || kind == 6;
    const bool plain = kind == 2 || kind == 3;
    const uint32_t channels = colour ? 3 : 1;
    allocatePixels(image, path, width, height, colour ? 24 : 8, alloc);
    if (!colour) image.palette = greyPalette();
    const size_t samples = static_cast<size_t>(width) * channels;

    if (!plain && maxval == 255) {
        // The common case: rows are the module's rows less the padding.
        for (uint32_t y = 0; y < height; reportRows(++y, height)) in.bytes(image.row(y), samples);
        return image;
    }
    const size_t sampleBytes = maxval > 255 ? 2 : 1;
    std::vector<uint8_t> raw(plain ? 0 : samples * sampleBytes);
    for (uint32_t y = 0; y < height; ++y) {
        reportRows(y, height);
        uint8_t *row = image.row(y);
        if (plain) {
            for (size_t i = 0; i < samples; ++i) row[i] = scale8(in.number("sample"), maxval);
            continue;
        }
        in.bytes(raw.data(), raw.size());
        if (sampleBytes == 1) {
            for (size_t i = 0; i < samples; ++i) row[i] = scale8(raw[i], maxval);
        } else {
            for (size_t i = 0; i < samples; ++i)
                row[i] = scale8(static_cast<uint32_t>(raw[2 * i] << 8 | raw[2 * i + 1]), maxval);
        }
    }
    return image;
}

}  // namespace mivo4::host
