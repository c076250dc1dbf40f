// Open device (function code 1): a fresh error stack, the device-open state
// and the output stream, in one of three ways: the host's stream callback when
// the setup has one, else the connection name as a file, else a growing memory
// block that is handed to the host when the device is closed.
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/stream.h>

#include "export/mivo4/expstat.h"
#include "export/raster/device.h"
#include "export/raster/element.h"

namespace mivo4::driver {

DeviceOutput &Device() {
    static DeviceOutput device;
    return device;
}

void ReleaseMemoryOutput(bool keep) {
    DeviceOutput &d = Device();
    if (!d.toMemory) return;
    d.toMemory = false;
    // The block moved each time it grew: its final handle is the one of the
    // pointer the stream left here.
    ZHANDLE block = d.memory != nullptr ? GlobalHandle(d.memory) : 0;
    d.memory = nullptr;
    MoRastData *s = State();
    EXPORT_OPTIONS *x = s != nullptr ? s->lpExport : nullptr;
    if (keep && x != nullptr && block != 0) {
        GlobalUnlock(block);
        x->hMF = block;
        return;
    }
    if (x != nullptr) x->hMF = 0;
    GlobalUnlock(block);
    GlobalFree(block);
}

}  // namespace mivo4::driver

namespace {

constexpr uint32_t kCreateForWriting = ZEP_OPEN_CREATE | ZEP_OPEN_WRITE;

HZEPIO openCallback(const MoRastData &s, const Rast_SetupData &setup) {
    IOINFO info{};
    // The host's own stream travels in the description's first field.
    info.lplpBuffer = reinterpret_cast<uint8_t **>(s.lpExport != nullptr ? s.lpExport->FileHandle : 0);
    info.pIOProc = setup.pIOCBProc;
    return zepOpen(s.szFileName, &info, kCreateForWriting);
}

HZEPIO openMemory() {
    mivo4::driver::DeviceOutput &d = mivo4::driver::Device();
    ZHANDLE block = GlobalAlloc(GHND, 1);
    d.memory = static_cast<uint8_t *>(GlobalLock(block));
    if (d.memory == nullptr) {
        GlobalFree(block);
        push_er(RASTER_ERR_MEMORY);
        return 0;
    }
    IOINFO info{};
    info.lplpBuffer = &d.memory;
    info.lBuffer = 0;
    info.dwExpSize = 4096;
    HZEPIO h = zepOpen(nullptr, &info, kCreateForWriting);
    if (h == 0) {
        GlobalUnlock(block);
        GlobalFree(block);
        d.memory = nullptr;
        push_er(RASTER_ERR_OUTPUT);
        return 0;
    }
    d.toMemory = true;
    return h;
}

}  // namespace

void *d_opdv(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    d_empes(data);
    s->dvrstate = DVR_DEVICE_OPEN;
    // A device session is an export as far as the host's status inquiry goes.
    mivo4::exportstatus::Start();
    mivo4::driver::Device().pictured = false;
    mivo4::driver::Device().rendered = 0;
    const Rast_SetupData *setup = lpSetup;
    if (setup != nullptr && setup->pIOCBProc != nullptr) {
        // A host that refuses the open is not reported here.
        s->hFile = openCallback(*s, *setup);
    } else if (s->szFileName[0] != '\0') {
        s->hFile = zepOpen(s->szFileName, nullptr, kCreateForWriting);
        if (s->hFile == 0) push_er(RASTER_ERR_OUTPUT);
    } else {
        s->hFile = openMemory();
    }
    // The coder completes a band's last partly filled byte through the setup's
    // stream of the driver path.
    if (lpSetup != nullptr) lpSetup->FileHandle = s->hFile;
    return data;
}
