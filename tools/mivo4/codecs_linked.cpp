// The picture libraries' parts linked in (tests and fuzz targets).
#include "codecs.h"

namespace mivo4::host {

const CodecEntries *codecEntries(std::string &) { return mivo4CodecEntries(); }

}  // namespace mivo4::host
