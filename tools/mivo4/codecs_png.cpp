// The table of libpng's parts (the PNG reader and writer): their module's one entry.
#include "codecs.h"

extern "C" __attribute__((visibility("default"))) const mivo4::host::CodecEntries *mivo4PngEntries() {
    using namespace mivo4::host;
    static const CodecEntries table{.size = sizeof(CodecEntries), .readPng = &codec::readPng, .writePng = &codec::writePng, .pngWriter = &codec::pngWriter};
    return &table;
}
