// Pictures as the module takes them: rows padded to 4 bytes, bottom row
// first, depth 1, 4, 8 with a colour table or 24 (red, green, blue bytes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace mivo4::host {

struct Rgb {
    uint8_t red = 0, green = 0, blue = 0;
    bool operator==(const Rgb &) const = default;
};

// Where a reader puts the pixels: a zero-filled block of the asked size, or
// null when there is no memory for it. The command-line host hands out blocks of
// the module's own allocator, so the picture is read straight into the
// memory the module will take; tests hand out plain host memory.
using PixelAllocator = std::function<uint8_t *(size_t bytes)>;
// Gives back a block of the PixelAllocator's before its owner ends; empty
// when blocks live as long as their owner (a picture turned upright then
// holds both its blocks until the end).
using PixelRelease = std::function<void(uint8_t *pixels)>;

struct Image {
    int depth = 0;          // 1, 4, 8 or 24
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<Rgb> palette;  // 2^depth entries for depth 1, 4 and 8; empty for 24
    int dpi = 0;            // horizontal resolution from the file's metadata, 0 if none
    uint8_t *pixels = nullptr;  // height rows of stride() bytes, bottom row first
    int orientation = 1;    // where the stored rows go, TIFF/EXIF style 1-8; 1 is upright
    uint32_t pages = 1;     // pictures in the file (the pages of a multi-page TIFF)

    // Bytes of one row: whole bytes for the pixels, rounded up to 4.
    size_t stride() const { return rowBytes(width, depth); }
    size_t size() const { return stride() * height; }
    // Row y counted from the top of the picture.
    uint8_t *row(uint32_t y) const { return pixels + stride() * (height - 1 - y); }

    static size_t rowBytes(uint32_t width, int depth) {
        size_t bytes = (static_cast<size_t>(width) * static_cast<size_t>(depth) + 7) / 8;
        return (bytes + 3) & ~static_cast<size_t>(3);
    }
};

// A picture that cannot be read: the message says why, in a user's words.
struct ReadError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The picture formats this host reads, told apart by their first bytes.
enum class Format { Unknown, Png, Jpeg, Tiff, Pnm };
Format sniffFormat(const uint8_t *head, size_t n);

// What to read: a file by name, or a whole file already in memory (standard
// input, read once), and which of its pictures.
struct PictureSource {
    PictureSource() = default;
    explicit PictureSource(std::string path) : name(std::move(path)) {}
    std::string name;                // the path; for bytes in memory, what messages call them
    bool inMemory = false;           // read bytes, not the file name
    std::span<const uint8_t> bytes;  // the file's bytes when inMemory
    uint32_t page = 1;               // 1-based; a page past the file's count is refused
    // Turn the picture upright as its orientation (TIFF tag, JPEG EXIF) says;
    // else the rows come as stored, and Image::orientation says how they lie.
    bool orient = false;
    PixelRelease release;            // for the block a picture turned upright leaves
};

// Reads a PNG, JPEG, TIFF or PNM picture (P1-P6); throws ReadError.
Image readImage(const PictureSource &source, const PixelAllocator &alloc);
inline Image readImage(const std::string &path, const PixelAllocator &alloc) {
    return readImage(PictureSource(path), alloc);
}

Image readPng(const PictureSource &source, const PixelAllocator &alloc);
Image readJpeg(const PictureSource &source, const PixelAllocator &alloc);
Image readTiff(const PictureSource &source, const PixelAllocator &alloc);
Image readPnm(const PictureSource &source, const PixelAllocator &alloc);

// The work space turning a picture of this orientation upright takes: a
// second block for the orientations that swap width and height (5 to 8),
// nothing for the others (flipped in place). Readers count it against the
// memory budget when source.orient is set, as work space that comes after
// their own (theirs is freed before the turn). Throws ReadError when the
// picture fits the budget but the turn does not, naming --no-orient.
uint64_t orientationWork(const PictureSource &source, int orientation, uint32_t width, uint32_t height, int depth);

// Throws ReadError for sizes the module's bitmap record cannot hold.
void checkPictureSize(const std::string &path, uint32_t width, uint32_t height);

// Sets up width, height, depth and an allocated, zeroed pixel block; throws
// ReadError for sizes the module's bitmap record cannot hold and for pictures
// whose pixels and workBytes (the reader's own work space) are over the
// memory budget.
void allocatePixels(Image &image, const std::string &path, uint32_t width, uint32_t height,
                    int depth, const PixelAllocator &alloc, uint64_t workBytes = 0);

// How the readers treat damaged files.
struct ReadOptions {
    // A JPEG whose data ends early is read with the missing part filled in
    // by the decoder instead of being refused.
    bool allowTruncated = false;
    // Told the rows read so far and the rows to read, as a reader goes on
    // (for the progress bar); may be empty.
    std::function<void(uint64_t done, uint64_t total)> rowsRead;
};
ReadOptions &readOptions();

// Tells readOptions().rowsRead, if set: each reader's row loop calls it.
void reportRows(uint64_t done, uint64_t total);

// A grey ramp table of 256 entries.
std::vector<Rgb> greyPalette();

// Laying a partly transparent sample over white.
inline uint8_t overWhite(uint32_t value, uint32_t alpha) {
    return static_cast<uint8_t>((value * alpha + 255u * (255u - alpha) + 127u) / 255u);
}

// A 1-bit picture whose two colours are not black and white is widened to 4
// bits, so that the module's dithering decides its look (a 1-bit picture
// goes out bit for bit, whatever its table says).
void widenNonBilevel(Image &image, const PixelAllocator &alloc);

}  // namespace mivo4::host
