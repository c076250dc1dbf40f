// The one way every picture leaves the module: measure it through its drawing
// procedure, negotiate the output with the sink, render it band by band into
// an offscreen, hand each band to the sink and report progress after each.
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/sink.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "export/dialog/cellsink.h"
#include "export/mivo4/expstat.h"

namespace {

// double to unsigned 32-bit by truncation. Values from 2^31 up convert by
// taking 2^31 off and setting the top bit, as the C library of the hosts
// this framework grew up on did; values it cannot represent (negative, from
// 2^32 up, not a number) are clamped instead of being undefined.
uint32_t toUnsigned(double v) {
    if (!(v > 0.0)) return 0;
    if (v >= 4294967295.0) return 0xFFFFFFFFu;
    if (v >= 2147483648.0) return static_cast<uint32_t>(static_cast<int32_t>(v - 2147483648.0)) | 0x80000000u;
    return static_cast<uint32_t>(static_cast<int32_t>(v));
}

// Frees the output colour table the drawing procedure left in the offscreen:
// it may have grown (and so moved) the one made here.
void freeColorTable(OFFSCREEN *o, VCD *made) {
    VCD *live = o != nullptr ? o->roColorTable : made;
    zepPtrGlobalFree(live);
    if (o != nullptr) o->roColorTable = nullptr;
}

}  // namespace

namespace mivo4::dialog {
CellSink &Sink() {
    static CellSink sink{QueryCellFormat, BeginCellBitmap, WriteCellBits, EndCellBitmap};
    return sink;
}
}  // namespace mivo4::dialog

int32_t OutputPicture(HZEPIO FileHandle, void *pData, LPDRAWCALLBACK DrawProc) {
    const mivo4::dialog::CellSink &sink = mivo4::dialog::Sink();
    int32_t RetVal = 0;
    uint32_t hDataDum = 0;
    uint8_t bandingSupported = 0;

    ZHANDLE hQuery = GlobalAlloc(GHND, sizeof(QUERYINFO));
    auto *q = static_cast<QUERYINFO *>(GlobalLock(hQuery));
    if (q == nullptr) return OUTPUT_NOTHING_RENDERED;  // no offscreen exists yet to end

    QueryPlatformOffscreen(q, pData, DrawProc);
    int16_t Precision = 0;
    int16_t rgbformat = q->colorformat;
    sink.query(&q->w, &q->h, &Precision, &q->dpi, &rgbformat, &bandingSupported);

    int16_t numcolors = 0;
    VCD *pColors = nullptr;
    if (Precision < 9) {
        numcolors = static_cast<int16_t>(1 << std::max<int16_t>(Precision, 0));
        // A table that cannot be had is passed on as none.
        pColors = static_cast<VCD *>(zepPtrGlobalAlloc(static_cast<uint32_t>(numcolors) * 3));
        // The picture goes on without its table; its export is not whole.
        if (pColors == nullptr) mivo4::exportstatus::NoMemory();
    }

    const uint32_t Width = toUnsigned(q->w);
    // The height is made even: a picture of odd height is output one row taller.
    const uint32_t MaxHeight = (toUnsigned(q->h) + 1) & ~1u;
    uint32_t BandHeight = MaxHeight;
    OFFSCREEN *o = InitPlatformOffscreen(Width, &BandHeight, Precision, numcolors, pColors, pData,
                                         DrawProc, &bandingSupported);
    if (BandHeight == 0) {
        RetVal = OUTPUT_NOTHING_RENDERED;
    } else {
        const double NumPasses = std::ceil(static_cast<double>(MaxHeight) / BandHeight);
        // The live table: the one the procedure left in the offscreen.
        int32_t orient = sink.begin(FileHandle, Width, MaxHeight, Precision, o->roColorTable, &hDataDum);
        int64_t Increment = BandHeight;
        int64_t StartLine = orient < 1 ? MaxHeight : 0;
        int64_t EndLine = StartLine + orient * Increment;
        for (uint32_t j = 0; j < NumPasses; ++j) {
            ZHANDLE hBuffer = DrawPlatformOffscreen(o, static_cast<uint32_t>(std::min(StartLine, EndLine)),
                                                    static_cast<uint32_t>(std::max(StartLine, EndLine)));
            RetVal = sink.write(FileHandle, hBuffer, Width, static_cast<uint32_t>(Increment), Precision,
                                   rgbformat, hDataDum);
            if (RetVal == 0) {
                int32_t Temp = static_cast<int32_t>((j + 1) * 100.0 / NumPasses);
                RetVal = UpdateStatus(Temp);
            }
            if (RetVal != 0) {
                // Stopped: the picture is left unfinished (no end is written) and
                // the caller's teardown deals with the stream; the offscreen ends
                // here. The table is freed too, so that nothing is lost.
                GlobalUnlock(hQuery);
                GlobalFree(hQuery);
                VCD *live = o->roColorTable;
                o->roColorTable = nullptr;
                TermPlatformOffscreen(o);
                zepPtrGlobalFree(live);
                return RetVal;
            }
            StartLine += orient * Increment;
            EndLine += orient * Increment;
            // Only the end is kept inside the picture: the last band is shorter
            // when the height is not a multiple of the band height.
            EndLine = std::clamp<int64_t>(EndLine, 0, MaxHeight);
            Increment = std::llabs(EndLine - StartLine);
        }
        sink.end(FileHandle, hDataDum);
    }
    freeColorTable(o, pColors);
    GlobalUnlock(hQuery);
    GlobalFree(hQuery);
    TermPlatformOffscreen(o);
    return RetVal;
}

int32_t get_rowsize(int16_t nx, int16_t prec) {
    int32_t n = static_cast<int32_t>(std::ceil(static_cast<double>(nx) * prec / 8.0));
    // One-bit rows are never padded.
    if (n % 4 != 0 && prec >= 2) n = ((n / 4) + 1) * 4;
    return n;
}
