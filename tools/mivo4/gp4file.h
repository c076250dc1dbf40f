// Looking inside GP4 files: the header's records and the coded picture,
// decoded by libtiff's CCITT decoder (someone else's, so that our coder is
// checked independently).
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mivo4::host {

struct Gp4Header {
    std::vector<std::string> records;  // the sixteen records, trailing blanks removed
    bool wellFormed = false;           // 2048 bytes of printable ASCII
    std::optional<uint32_t> width, height, density;
    // What is wrong with the records: numbers that do not fit, a record
    // given twice, one of rtype, rorient, rpelcnt, rdensty missing.
    std::vector<std::string> damage;
};

// Reads the first 2048 bytes of file (fewer give a header that is not well
// formed and has no size).
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

struct CodecEntries;
struct G4State;

// A T.6 stream decoded one row at a time, in the memory of one row.
class G4RowDecoder {
public:
    // rows: how many rows the decoder is told the picture has.
    G4RowDecoder(const std::vector<uint8_t> &coded, uint32_t width, uint32_t rows);
    ~G4RowDecoder();
    G4RowDecoder(const G4RowDecoder &) = delete;
    G4RowDecoder &operator=(const G4RowDecoder &) = delete;
    // Decodes the next row into row ((width + 7) / 8 bytes, a set bit
    // black); false, with problem() saying why, when it does not decode.
    bool next(uint8_t *row);
    const std::string &problem() const { return problem_; }

private:
    const CodecEntries *codecs_ = nullptr;  // where libtiff's decoder is (codecs.h)
    G4State *state_ = nullptr;
    std::string problem_;
    uint32_t row_ = 0;
};

// The stream checked row by row without holding the picture: whether it
// decodes to width x height pixels, how many of them are black, and whether
// it holds more rows than height. onRow, when given, sees each decoded row.
struct G4Check {
    bool decodes = false;
    std::string problem;
    uint64_t black = 0;
    bool moreRows = false;
};
G4Check checkG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height,
                const std::function<bool(const uint8_t *row)> &onRow = nullptr);

// Whether the coded data holds more than `height` rows: decoding one row
// more must run out of data.
bool codesMoreRows(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height);

// Writers of a decoded picture; name is used in messages only.
bool writePbm(const Bilevel &b, FILE *f, const std::string &name, std::string &error);
bool writePng(const Bilevel &b, FILE *f, const std::string &name, std::string &error);

// The same writers fed one row at a time (rows top first, a set bit black),
// so that a picture is written without being held whole.
class BilevelWriter {
public:
    virtual ~BilevelWriter() = default;
    virtual bool row(const uint8_t *bits) = 0;
    virtual bool finish() = 0;
    const std::string &error() const { return error_; }

protected:
    std::string error_;
};
std::unique_ptr<BilevelWriter> pbmWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name);
std::unique_ptr<BilevelWriter> pngWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name);

// A file the module has just written: its size, its first 2048 bytes (fewer
// when it is shorter) and, only when asked for, the coded data after them.
struct WrittenFile {
    uint64_t size = 0;
    std::vector<uint8_t> head, coded;
};
bool readWritten(const std::string &path, bool withCoded, WrittenFile &file, std::string &error);

// A GP4 file as info and decode take it: the header, then the coded data,
// read only once the header is sound and only up to the memory budget.
struct Gp4File {
    uint64_t size = 0;
    Gp4Header header;
    std::vector<uint8_t> coded;
};
// False with error set when the file cannot be read, is not a GP4 file
// (no header, no size) or its coded data is over the budget; a header with
// damage is loaded, its damage listed.
bool loadGp4File(const std::string &path, Gp4File &file, std::string &error);

}  // namespace mivo4::host
