#pragma once

#include <mivo4/raster.h>

#include <algorithm>
#include <cstdint>

namespace mivo4 {

// Size of the raster driver's state record block: 1224 bytes on the hosts the
// record was laid out for, more where addresses take 8 bytes.
inline constexpr uint32_t kEMDataSize = std::max<uint32_t>(1224, sizeof(MoRastData));

}  // namespace mivo4
