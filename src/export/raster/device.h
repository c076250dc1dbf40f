// The output device of the raster driver: the stream opened by the open-device
// element and, for the memory way, the block the stream writes into.
#pragma once

#include <mivo4/types.h>

#include <cstdint>

namespace mivo4::driver {

struct DeviceOutput {
    // The locked pointer of a memory-way block. The stream keeps the address
    // of this variable and rewrites it whenever the block grows, so it lives
    // as long as the driver does, not on the stack of the open-device element.
    uint8_t *memory = nullptr;
    bool toMemory = false;  // the device was opened the memory way
    // For the export status at close: whether a picture was output since the
    // device opened, and the answer of the last one's band loop (0, or 901
    // when the host stopped it).
    bool pictured = false;
    int32_t rendered = 0;
};

DeviceOutput &Device();

// Hands the finished memory block to the host in its export options (hMF),
// or frees it when there is no one to hand it to or the output was dropped.
void ReleaseMemoryOutput(bool keep);

}  // namespace mivo4::driver
