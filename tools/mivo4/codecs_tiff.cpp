// The table of libtiff's parts (the TIFF reader and the Group 4 decoder): their module's one entry.
#include "codecs.h"

extern "C" __attribute__((visibility("default"))) const mivo4::host::CodecEntries *mivo4TiffEntries() {
    using namespace mivo4::host;
    static const CodecEntries table{.size = sizeof(CodecEntries),
                                    .readTiff = &codec::readTiff,
                                    .decodeG4 = &codec::decodeG4,
                                    .openG4 = &codec::openG4,
                                    .nextG4 = &codec::nextG4,
                                    .closeG4 = &codec::closeG4};
    return &table;
}
