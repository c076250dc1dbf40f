// Pictures and outputs shared by the export tests that attack the module's
// boundary: host bitmaps of every depth, and the three ways an export can
// leave the module (a named file, a memory block, the host's stream).
#pragma once

#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "export/rowpadding.h"

namespace mivo4::test {

// A host-side bitmap of depth 1, 4, 8 or 24: random pixels (seeded), rows
// padded to 4 bytes, bottom row first, and a colour table for indexed depths.
struct HostPicture {
    ZEPRaster r{};
    HostPicture(uint16_t depth, uint16_t width, uint16_t height, uint32_t seed) {
        r.depth = depth;
        r.cx = width;
        r.cy = height;
        uint32_t stride = ((static_cast<uint32_t>(width) * depth + 7) / 8 + 3) & ~3u;
        r.hBuffer = GlobalAlloc(GHND, stride * height);
        auto *bits = static_cast<uint8_t *>(GlobalLock(r.hBuffer));
        std::mt19937 rng(seed);
        for (uint32_t i = 0; i < stride * height; ++i) bits[i] = static_cast<uint8_t>(rng());
        GlobalUnlock(r.hBuffer);
        if (depth <= 8) {
            uint32_t colours = 1u << depth;
            r.hColorTable = GlobalAlloc(GHND, colours * 3);
            auto *table = static_cast<VCD *>(GlobalLock(r.hColorTable));
            for (uint32_t c = 0; c < colours; ++c)
                table[c] = VCD{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                               static_cast<uint8_t>(rng())};
            if (depth == 1) {
                table[0] = VCD{255, 255, 255};
                table[1] = VCD{0, 0, 0};
            }
            GlobalUnlock(r.hColorTable);
        }
    }
    // Clears every bit past the pixels of each row, as readers leave them.
    void clearPadding() {
        clearRowPadding(static_cast<uint8_t *>(GlobalLock(r.hBuffer)), r.cx, r.cy, r.depth);
        GlobalUnlock(r.hBuffer);
    }
    ~HostPicture() {
        GlobalFree(r.hBuffer);
        GlobalFree(r.hColorTable);
    }
    HostPicture(const HostPicture &) = delete;
    HostPicture &operator=(const HostPicture &) = delete;
};

// The host's stream over a byte vector, for callback outputs. It notes the
// operations asked of it and the host stream handed to its open, and can be
// told to refuse every write.
struct HostStream {
    std::vector<uint8_t> data;
    int64_t pos = 0;
    bool failWrites = false;
    std::vector<int32_t> ops;
    intptr_t openHandle = 0;
};
inline HostStream *gHostStream = nullptr;

inline int32_t hostStreamProc(intptr_t handle, int32_t op, intptr_t a1, intptr_t a2) {
    HostStream &s = *gHostStream;
    s.ops.push_back(op);
    switch (op) {
    case ZEP_CB_OPEN:
        s.openHandle = handle;
        return 7;
    case ZEP_CB_WRITE: {
        if (s.failWrites) return -1;
        auto n = static_cast<size_t>(a2);
        if (s.data.size() < static_cast<size_t>(s.pos) + n) s.data.resize(static_cast<size_t>(s.pos) + n);
        std::memcpy(s.data.data() + s.pos, reinterpret_cast<const void *>(a1), n);
        s.pos += static_cast<int64_t>(n);
        return static_cast<int32_t>(n);
    }
    case ZEP_CB_READ: {
        auto n = std::min<size_t>(static_cast<size_t>(a2), s.data.size() - static_cast<size_t>(s.pos));
        std::memcpy(reinterpret_cast<void *>(a1), s.data.data() + s.pos, n);
        s.pos += static_cast<int64_t>(n);
        return static_cast<int32_t>(n);
    }
    case ZEP_CB_SEEK: {
        int32_t offset = 0;
        std::memcpy(&offset, reinterpret_cast<const void *>(a1), 4);
        int64_t base = a2 == 0 ? 0 : a2 == 1 ? s.pos : static_cast<int64_t>(s.data.size());
        s.pos = base + offset;
        return static_cast<int32_t>(s.pos);
    }
    default:
        return 0;
    }
}

// The bytes of a memory-block output: the data, then one end marker, then
// the zero fill of the growth step.
inline std::vector<uint8_t> memoryOutput(ZHANDLE hMF) {
    std::vector<uint8_t> bytes;
    if (auto *block = static_cast<const uint8_t *>(GlobalLock(hMF))) {
        bytes.assign(block, block + GlobalSize(hMF));
        GlobalUnlock(hMF);
        while (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
        if (!bytes.empty() && bytes.back() == 0xFF) bytes.pop_back();
    }
    return bytes;
}

}  // namespace mivo4::test
