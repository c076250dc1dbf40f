// What the GP4 driver keeps between its open and its close.
#pragma once

#include <mivo4/output.h>

namespace mivo4::gp4 {

struct DriverState {
    LPPLATFORMESCAPE escapeEntry = nullptr;  // the platform filter's escape entry
    uint8_t *memoryOutput = nullptr;  // locked pointer of a memory-block output; the stream
                                      // rewrites it whenever the block grows
};

DriverState &Driver();

}  // namespace mivo4::gp4
