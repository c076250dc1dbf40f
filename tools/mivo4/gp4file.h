// Looking inside GP4 files: the header's records and the coded picture,
// decoded by libtiff's CCITT decoder (someone else's, so that our coder is
// checked independently).
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace mivo4::host {

struct Gp4Header {
    std::vector<std::string> records;  // the sixteen records, trailing blanks removed
    bool wellFormed = false;           // 2048 bytes of printable ASCII
    std::optional<uint32_t> width, height, density;
};

Gp4Header parseGp4Header(const std::vector<uint8_t> &file);

// A one-bit picture, rows of (width + 7) / 8 bytes, top row first, a set bit
// black.
struct Bilevel {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> bits;
    size_t stride() const { return (width + 7) / 8; }
    bool black(uint32_t x, uint32_t y) const { return (bits[stride() * y + x / 8] >> (7 - x % 8)) & 1; }
};

struct DecodeResult {
    std::optional<Bilevel> picture;  // set when rows decoded without complaint
    std::string problem;             // libtiff's complaint otherwise
};

// Decodes a T.6 stream of exactly width x height pixels.
DecodeResult decodeG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height);

// Whether the coded data holds more than `height` rows: decoding one row
// more must run out of data.
bool codesMoreRows(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height);

// Writers of a decoded picture; name is used in messages only.
bool writePbm(const Bilevel &b, FILE *f, const std::string &name, std::string &error);
bool writePng(const Bilevel &b, FILE *f, const std::string &name, std::string &error);

std::vector<uint8_t> readWholeFile(const std::string &path, std::string &error);

}  // namespace mivo4::host
