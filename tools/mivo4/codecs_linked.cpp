// The picture libraries' parts linked in (tests and fuzz targets).
#include "codecs.h"

namespace mivo4::host {

const CodecEntries *codecEntries(Codec which, std::string &) {
    switch (which) {
    case Codec::Png: return mivo4PngEntries();
    case Codec::Jpeg: return mivo4JpegEntries();
    case Codec::Tiff: break;
    }
    return mivo4TiffEntries();
}

}  // namespace mivo4::host
