// Generalized drawing primitives (function code 1034): the image bracket.
// Begin image announces the image's size and depth and makes its bitmap;
// cell arrays fill its rows; end image renders it, with the driver's colour
// table, through the bitmap drawing procedure. Also the host's support
// inquiry for these primitives.
#include <mivo4/bitmap.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include "export/mivo4/gp4/gp4out.h"
#include "export/raster/cells.h"
#include "export/raster/device.h"
#include "export/raster/element.h"

#include <cstring>

// One support word per primitive identifier, indexed by the negated
// identifier; this driver declares none of them supported.
uint32_t GDPSupport[8] = {0, 0, 0, 0, 0, 0, 0, 0};

int32_t InqGDPSupport(int32_t GDPID) {
    if (GDPID >= 0 || GDPID < -7) return 0;
    return static_cast<int32_t>(GDPSupport[-GDPID]);
}

namespace {

// The bitmap's sides are 16-bit in the picture record that the end of the
// image renders.
constexpr int64_t kLargestSide = 65535;

// Releases the bitmap of an image that is still open.
void dropImage(MoRastData &s) {
    GlobalUnlock(s.hBuffer);
    GlobalFree(s.hBuffer);
    s.hBuffer = 0;
}

void beginImage(MoRastData &s, const void *data) {
    int32_t numPts = 0;
    mivo4::driver::ElementRead(data, DVR_GDP_NUMPTS, &numPts, sizeof numPts);
    // The data record follows the points and their data length; an element
    // that cannot hold them announces nothing.
    if (numPts < 0) return;
    const size_t record = DVR_GDP_POINTS + size_t{DVR_GDP_POINT_SIZE} * static_cast<uint32_t>(numPts) + 4;
    Vgdp_BeginCellArrayData b{};
    if (!mivo4::driver::ElementRead(data, record, &b, sizeof b)) return;

    // A second begin without an end: the first image's bitmap goes.
    if (s.bInCellArray != 0) dropImage(s);
    s.ColorSpecMode = static_cast<int16_t>(b.colr_mode);
    s.bInCellArray = 1;
    s.CurrentScanLine = 0;
    s.hBuffer = 0;
    s.Width = s.Height = s.BitsPerPixel = 0;

    const int64_t bits = mivo4::driver::BitsFromPrecision(b.precision);
    if (b.nx <= 0 || b.ny <= 0 || b.ny > kLargestSide || !mivo4::driver::KnownDepth(bits)) return;
    // The image's width comes from the device window, capped at nx.
    const int64_t width = mivo4::driver::WindowWidth(s, b.nx);
    if (width > kLargestSide) return;
    const uint64_t size = mivo4::driver::PaddedRowBytes(static_cast<uint64_t>(width), static_cast<uint64_t>(bits)) *
                          static_cast<uint64_t>(b.ny);
    if (size > UINT32_MAX) return;
    s.Width = static_cast<uint32_t>(width);
    s.Height = static_cast<uint32_t>(b.ny);
    s.BitsPerPixel = static_cast<uint32_t>(bits);
    // A failed allocation is not reported here; the cell arrays report it.
    s.hBuffer = GlobalAlloc(GHND, static_cast<uint32_t>(size));
}

void endImage(MoRastData &s) {
    s.bInCellArray = 0;
    // An image that got no bitmap has nothing to render.
    if (s.hBuffer == 0 || lpRaster == nullptr) return;
    // A device whose output could not be opened takes nothing: rendering to
    // it would only fail at the coder's first write, which leaves its output
    // block behind.
    if (s.hFile == 0) return dropImage(s);
    ZEPRaster r{};
    r.depth = static_cast<uint16_t>(s.BitsPerPixel);
    r.cx = static_cast<uint16_t>(s.Width);
    r.cy = static_cast<uint16_t>(s.Height);
    r.hBuffer = s.hBuffer;
    if (r.depth < 24) {
        const uint32_t entries = 1u << r.depth;
        r.hColorTable = GlobalAlloc(GHND, entries * 3);
        auto *table = static_cast<VCD *>(GlobalLock(r.hColorTable));
        if (table == nullptr) {
            push_er(RASTER_ERR_MEMORY);
            GlobalFree(r.hColorTable);
            dropImage(s);  // nothing can render it any more
            return;
        }
        std::memcpy(table, s.ColorTable, entries * 3);
        GlobalUnlock(r.hColorTable);
    }
    r.srcwidth = s.Width;
    r.srcheight = s.Height;
    r.srcdpi = static_cast<int16_t>(s.inch);

    // Every picture starts a fresh band state for the coder.
    mivo4::gp4::ClearBandState(*lpRaster);
    // Its result is not passed on; the export status keeps it.
    mivo4::driver::Device().pictured = true;
    mivo4::driver::Device().rendered = OutputPicture(s.hFile, &r, DrawExportCellData);
    // As at the end of a bitmap export, the reference row of the finished
    // picture is released.
    mivo4::gp4::ClearBandState(*lpRaster);

    GlobalFree(r.hColorTable);
    dropImage(s);
}

}  // namespace

void *d_gdp(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr || data == nullptr) return data;
    int32_t id = 0;
    mivo4::driver::ElementRead(data, DVR_GDP_FUNCTION, &id, sizeof id);
    if (id == DVR_GDP_BEGIN_IMAGE) beginImage(*s, data);
    else if (id == DVR_GDP_END_IMAGE) endImage(*s);
    return data;
}
