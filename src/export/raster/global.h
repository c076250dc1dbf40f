#pragma once

#include <cstdint>

namespace mivo4 {

// Size of the raster driver's state record block.
inline constexpr uint32_t kEMDataSize = 1224;

}  // namespace mivo4
