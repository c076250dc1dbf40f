// The driver's entries: the 16-bit-style one for the version and the address
// of the 32-bit entry, and the 32-bit one that initialises, dispatches
// elements and terminates.
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "export/raster/element.h"

#include <cstring>

int32_t RASTER_dd_entry(int16_t function, void *data, int32_t) {
    if (data == nullptr) return 0;
    if (function == DVR_FN16_VERSION) {
        uint32_t version = ZEPGetFilterVersion();
        std::memcpy(data, &version, sizeof version);
    } else if (function == DVR_FN16_ENTRY32) {
        // An address takes a full pointer: 8 bytes on a 64-bit host.
        LPDDENTRY32 entry = &RASTER_dd_entry32;
        std::memcpy(data, &entry, sizeof entry);
    }
    return 0;
}

int32_t dd_entry(int16_t function, void *data, int16_t size) {
    return RASTER_dd_entry(function, data, size);
}

namespace {

// One element: run its handler when the driver's state allows it. The result
// is the last code the handler pushed on the error stack, 0 when none.
int32_t dispatch(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return 0;  // not initialised: nothing to dispatch into
    s->errep.code = 0;
    if (s->dvrstate <= 0) return 0;
    // An element must hold at least its header; one cut off by the end of the
    // element buffer is ignored like an unknown code.
    if (mivo4::driver::ElementRoom(data) < DVR_ELEMENT_HEADER) return 0;
    int32_t code = 0;
    std::memcpy(&code, data, sizeof code);
    s->element = code;
    // Every element's answer starts at the beginning of the element buffer,
    // where the host reads it back after the call.
    s->readct = 0;
    getfunc(code)(data);  // its own return value says nothing about failure
    return s->errep.code;
}

}  // namespace

int32_t RASTER_dd_entry32(uint32_t, uint16_t function, void *data) {
    switch (function) {
    case DVR_FN_INITIALISE:
        // A driver that already has its record is running: a second
        // initialise changes nothing.
        if (lpEMData != nullptr) return 0;
        return RASTER_initdvr(static_cast<VInitDriver *>(data));
    case DVR_FN_NOTHING:
        return 0;
    case DVR_FN_ELEMENT:
        return dispatch(data);
    case DVR_FN_VERSION: {
        if (data == nullptr) return 0;
        uint32_t version = ZEPGetFilterVersion();
        std::memcpy(data, &version, sizeof version);
        return 4;
    }
    case DVR_FN_TERMINATE:
        if (auto *s = mivo4::driver::State()) s->errep.code = 0;
        return RASTER_termdvr();
    default:
        return 0;
    }
}

int32_t dd_entry32(uint32_t handle, uint32_t function, void *data, int32_t) {
    return RASTER_dd_entry32(handle, static_cast<uint16_t>(function), data);
}
