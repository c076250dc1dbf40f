// Layout descriptors: the walk that zepReadStruct and zepWriteStruct share,
// offered to the tests and fuzz targets so that they can size a caller's
// memory exactly as the routines will use it.
#pragma once

#include <cstdint>

namespace mivo4::zep {

// Bytes of memory that one record of the descriptor takes, tail padding
// included, as zepReadStruct (writing = false) or zepWriteStruct (writing =
// true) walks it; the two differ for unions, which only reading knows.
int64_t LayoutRecordSize(const char *descriptor, bool writing);

// The largest memory record a descriptor may describe. A field that would
// reach past it is refused like an unknown character.
inline constexpr int64_t kMaxRecordBytes = INT32_MAX;

}  // namespace mivo4::zep
