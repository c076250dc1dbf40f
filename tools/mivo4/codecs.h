// The host's parts that need the picture libraries (libpng, libjpeg, libtiff):
// the PNG, JPEG and TIFF readers, libtiff's Group 4 decoder and the PNG
// writer. The program loads them from a module of their own
// (mivo4-codecs.so) the first time a job needs one, so that a job that does
// not (a PNM picture exported without the check, the driver path, `info`
// without decoding) neither loads nor maps those libraries and theirs. The
// tests and fuzz targets link them in.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "gp4file.h"
#include "image.h"

namespace mivo4::host {

// libtiff's decoder of one T.6 stream, row by row.
struct G4State;

namespace codec {
Image readPng(const PictureSource &source, const PixelAllocator &alloc);
Image readJpeg(const PictureSource &source, const PixelAllocator &alloc);
Image readTiff(const PictureSource &source, const PixelAllocator &alloc);
DecodeResult decodeG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height);
// Null never: a state whose problem is set when the stream cannot be opened.
G4State *openG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t rows, std::string &problem);
bool nextG4(G4State *state, uint8_t *row, uint32_t y, std::string &problem);
void closeG4(G4State *state);
bool writePng(const Bilevel &b, FILE *f, const std::string &name, std::string &error);
std::unique_ptr<BilevelWriter> pngWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name);
}  // namespace codec

struct CodecEntries {
    uint32_t size;  // sizeof(CodecEntries) of the build that made the table
    decltype(&codec::readPng) readPng;
    decltype(&codec::readJpeg) readJpeg;
    decltype(&codec::readTiff) readTiff;
    decltype(&codec::decodeG4) decodeG4;
    decltype(&codec::openG4) openG4;
    decltype(&codec::nextG4) nextG4;
    decltype(&codec::closeG4) closeG4;
    decltype(&codec::writePng) writePng;
    decltype(&codec::pngWriter) pngWriter;
};

// The table: linked in, or loaded on first use. Null, with why set, when the
// module cannot be loaded.
const CodecEntries *codecEntries(std::string &why);

}  // namespace mivo4::host

// The module's one entry: its table.
extern "C" const mivo4::host::CodecEntries *mivo4CodecEntries();
