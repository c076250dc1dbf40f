// The host's parts that need the picture libraries, each in a module of its
// own: mivo4-png.so (libpng: the PNG reader and writer), mivo4-jpeg.so
// (libjpeg: the JPEG reader) and mivo4-tiff.so (libtiff: the TIFF reader and
// its Group 4 decoder). The program loads one the first time a job needs it,
// so that a job neither loads nor maps the libraries it does not use: a PNM
// picture exported without the check loads none, a JPEG one only libjpeg.
// The tests and fuzz targets link them in.
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

// A module's table: its own parts are set, the others null.
struct CodecEntries {
    uint32_t size = 0;  // sizeof(CodecEntries) of the build that made the table
    decltype(&codec::readPng) readPng = nullptr;
    decltype(&codec::readJpeg) readJpeg = nullptr;
    decltype(&codec::readTiff) readTiff = nullptr;
    decltype(&codec::decodeG4) decodeG4 = nullptr;
    decltype(&codec::openG4) openG4 = nullptr;
    decltype(&codec::nextG4) nextG4 = nullptr;
    decltype(&codec::closeG4) closeG4 = nullptr;
    decltype(&codec::writePng) writePng = nullptr;
    decltype(&codec::pngWriter) pngWriter = nullptr;
};

// The picture libraries, one module each (codecs_loaded.cpp names their
// files in this order).
enum class Codec { Png, Jpeg, Tiff };

// One module's table: linked in, or loaded on first use. Null, with why set,
// when the module cannot be loaded.
const CodecEntries *codecEntries(Codec which, std::string &why);

}  // namespace mivo4::host

// Each module's one entry: its table.
extern "C" const mivo4::host::CodecEntries *mivo4PngEntries();
extern "C" const mivo4::host::CodecEntries *mivo4JpegEntries();
extern "C" const mivo4::host::CodecEntries *mivo4TiffEntries();
