// The table of libjpeg's part (the JPEG reader): their module's one entry.
#include "codecs.h"

extern "C" __attribute__((visibility("default"))) const mivo4::host::CodecEntries *mivo4JpegEntries() {
    using namespace mivo4::host;
    static const CodecEntries table{.size = sizeof(CodecEntries), .readJpeg = &codec::readJpeg};
    return &table;
}
