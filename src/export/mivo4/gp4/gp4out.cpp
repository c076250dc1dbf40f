#include "export/mivo4/gp4/gp4out.h"

#include <mivo4/memory.h>
#include <mivo4/stream.h>

namespace mivo4::gp4 {

namespace {
constexpr uint32_t kCreateForWriting = ZEP_OPEN_CREATE | ZEP_OPEN_WRITE;
}

void ClearBandState(Gp4_SetupData &s) {
    s.gp4_FGC = 0;
    s.gp4_BitOffset = 0;
    s.gp4_stateInfoSaved = 0;
    GlobalFree(s.gp4_refLine);
    s.gp4_refLine = 0;
}

Output OpenOutput(const Gp4_SetupData &s, const EXPORT_OPTIONS *x, const char *name, uint8_t **memory) {
    Output out;
    if (s.pIOCBProc != nullptr) {
        IOINFO info{};
        info.lplpBuffer = reinterpret_cast<uint8_t **>(x != nullptr ? x->FileHandle : 0);
        info.pIOProc = s.pIOCBProc;
        out.stream = zepOpen(name, &info, kCreateForWriting);
        return out;
    }
    if (name != nullptr && name[0] != '\0') {
        out.stream = zepOpen(name, nullptr, kCreateForWriting);
        if (out.stream == 0) out.failure = Output::Failure::NotOpened;
        return out;
    }
    ZHANDLE block = GlobalAlloc(GHND, 1);
    *memory = static_cast<uint8_t *>(GlobalLock(block));
    if (*memory == nullptr) {
        out.failure = Output::Failure::NoMemoryBlock;
        return out;
    }
    IOINFO info{};
    info.lplpBuffer = memory;
    info.lBuffer = 0;
    info.dwExpSize = 4096;
    out.stream = zepOpen(nullptr, &info, kCreateForWriting);
    if (out.stream == 0) {
        GlobalUnlock(block);
        GlobalFree(block);
        *memory = nullptr;
        out.failure = Output::Failure::NotOpened;
        return out;
    }
    out.memoryBlock = block;
    return out;
}

}  // namespace mivo4::gp4
