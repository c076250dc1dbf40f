// Feeds arbitrary bytes, read as a driver trace, through a whole driver
// session: initialise with a setup, every element in order (cells of
// negative-precision cell arrays from the record after them), terminate.
// The output goes to a memory block or a file, alternately. Nothing may
// crash, and no block of the module may be left behind.
//
// A host may ask the driver for bitmaps of up to 4 GiB, which it then
// allocates and renders: a legitimate request, but one that makes every run
// slow and trips the fuzzer's memory limit. Cell arrays and images that
// declare bitmaps above 1 MiB are therefore not sent here; the sizes beyond
// (up to the 32-bit limit and past it) are pinned by the unit tests.
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "trace.h"
#include "zep_xxxx/memdebug.h"

namespace {

int32_t keepGoing(intptr_t, int32_t, int32_t, intptr_t, intptr_t, intptr_t, intptr_t) { return 0; }

constexpr uint64_t kLargestBitmap = 1u << 20;

int32_t int32At(const std::vector<uint8_t> &e, size_t at) {
    int32_t v = 0;
    if (e.size() >= at + 4) std::memcpy(&v, e.data() + at, 4);
    return v;
}

uint64_t bitmapBytes(int64_t w, int64_t h, int32_t precision) {
    const int64_t bits = precision == DVR_PRECISION_ONE_BIT ? 1 : std::llabs(int64_t{precision});
    if (w <= 0 || h <= 0) return 0;
    return static_cast<uint64_t>(w) * static_cast<uint64_t>(h) * static_cast<uint64_t>(std::min<int64_t>(bits, 64)) / 8;
}

// The bitmap an element asks the driver to make.
uint64_t declaredBitmap(const std::vector<uint8_t> &e) {
    const int32_t code = int32At(e, 0);
    if (code == 1033)
        return bitmapBytes(int32At(e, DVR_CA_SIZE_X), int32At(e, DVR_CA_SIZE_Y), int32At(e, DVR_CA_PRECISION));
    if (code == 1034 && int32At(e, DVR_GDP_FUNCTION) == DVR_GDP_BEGIN_IMAGE) {
        const int64_t points = int32At(e, DVR_GDP_NUMPTS);
        if (points < 0 || points > 100000) return 0;
        const size_t record = DVR_GDP_POINTS + static_cast<size_t>(points) * DVR_GDP_POINT_SIZE + 4;
        return bitmapBytes(int32At(e, record), int32At(e, record + 4), int32At(e, record + 8));
    }
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<mivo4::host::TraceElement> trace;
    try {
        trace = mivo4::host::parseTrace(data, size);
    } catch (const mivo4::host::TraceError &) {
        return 0;
    }
    static const std::string file = "/tmp/mivo4_driver_fuzz_" + std::to_string(getpid()) + ".cal";
    const uint32_t live = mivo4::mem::LiveHandles();
    ZHANDLE setup = CreateSetup(0, nullptr, nullptr, nullptr);
    if (setup == 0) return 0;
    // Every colour mode, so that the colour adjustments of tables and cells
    // run; a small output box at a low resolution, so that the many pictures
    // a session may write stay quick.
    if (auto *record = static_cast<Gp4_SetupData *>(GlobalLock(setup))) {
        record->nColorMode = COLOR_MODE_FIRST + static_cast<int32_t>(data[size - 1] % 5);
        record->PrintWidth = record->PrintHeight = 0.5;
        record->XResolution = record->YResolution = 100;
    }

    size_t largest = 4096;
    for (const auto &e : trace) largest = std::max(largest, e.bytes.size());
    std::vector<char> connect(144, '\0');
    if (size % 2 == 0) std::strncpy(connect.data(), file.c_str(), connect.size() - 1);
    EXPORT_OPTIONS options{};
    options.GetSet_Status = keepGoing;
    options.hDialog = 1;
    uint32_t support[64] = {};
    VInitDriver init{};
    init.connect = connect.data();
    init.elbufsz = static_cast<uint32_t>(largest);
    init.setup = setup;
    init.export_ = &options;
    init.InqSupData = support;
    if (RASTER_dd_entry32(0, DVR_FN_INITIALISE, &init) == 0 && init.elbuf != nullptr) {
        auto *buffer = static_cast<uint8_t *>(init.elbuf);
        for (const auto &e : trace) {
            if (declaredBitmap(e.bytes) > kLargestBitmap) continue;
            std::copy(e.bytes.begin(), e.bytes.end(), buffer);
            // The address goes at its place even when the element ends
            // before it, so that no address of an earlier run stays there.
            if (e.pointerCells) {
                const auto address = reinterpret_cast<uintptr_t>(e.cells.empty() ? nullptr : e.cells.data());
                std::memcpy(buffer + DVR_CA_CELLS, &address, sizeof address);
            }
            RASTER_dd_entry32(0, DVR_FN_ELEMENT, buffer);
        }
        RASTER_dd_entry32(0, DVR_FN_TERMINATE, nullptr);
    }
    GlobalFree(options.hMF);
    DestroySetup(setup);
    unlink(file.c_str());
    if (mivo4::mem::LiveHandles() != live) std::abort();  // a block of the module was lost
    return 0;
}
