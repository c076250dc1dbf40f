// The table of the picture libraries' parts, the one entry of their module.
#include "codecs.h"

extern "C" __attribute__((visibility("default"))) const mivo4::host::CodecEntries *mivo4CodecEntries() {
    using namespace mivo4::host;
    static const CodecEntries table{sizeof(CodecEntries), &codec::readPng,  &codec::readJpeg,
                                    &codec::readTiff,     &codec::decodeG4, &codec::openG4,
                                    &codec::nextG4,       &codec::closeG4,  &codec::writePng,
                                    &codec::pngWriter};
    return &table;
}
