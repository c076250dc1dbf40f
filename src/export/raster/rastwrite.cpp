// A single cell array's way out: the cell bitmap is brought to the output
// size and depth that the sink asks for (shrunk, converted, stretched) and
// written through the sink as one band. Whether it is shrunk or stretched is
// decided by the heights alone; widths follow.
#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>
#include <mivo4/util.h>

#include "export/mivo4/gp4/gp4out.h"
#include "export/raster/cells.h"
#include "export/raster/device.h"
#include "export/mivo4/expstat.h"
#include "export/raster/element.h"
#include "zep_xxxx/truncate.h"

#include <cstdlib>
#include <cstring>

namespace {

// The output sizes the format can hold: the header's sizes are 16-bit.
constexpr int32_t kLargestSide = 65535;

// Progress of this picture, reported to the host after each stage; a
// non-zero answer abandons the work without an error.
class Progress {
public:
    explicit Progress(const MoRastData &s) {
        if (s.lpExport != nullptr) {
            getset_ = s.lpExport->GetSet_Status;
            dialog_ = s.lpExport->hDialog;
        }
    }
    // Adds `step` percent and reports; false when the host asked to stop.
    bool add(int32_t step) {
        temp_ += step;
        return report();
    }
    // Reports at least 50 percent before the coding starts.
    bool atLeastHalf() {
        if (temp_ >= 50) return true;
        temp_ = 50;
        return report();
    }

private:
    bool report() const {
        if (getset_ == nullptr) return true;
        return CallGetSet_Status(getset_, dialog_, 0, 0, 0, temp_, 0, 0) == 0;
    }
    LPGETSETSTATUS getset_ = nullptr;
    intptr_t dialog_ = 0;
    int32_t temp_ = 0;
};

// Replaces `current` with `made` when the colour library made a new bitmap.
void take(ZHANDLE &current, ZHANDLE made) {
    if (made == 0 || made == current) return;
    rlFreeNewData(current);
    current = made;
}

}  // namespace

void RasterWriteCellData(ZHANDLE hBuffer, uint32_t src_width, uint32_t src_height, int32_t DPI, int16_t src_depth,
                         int16_t src_colorformat) {
    MoRastData *s = mivo4::driver::State();
    // No setup to size the output by, or no output to write to (the device's
    // open failed and was reported): nothing is rendered.
    if (s == nullptr || lpRaster == nullptr || s->hFile == 0) return;
    Progress progress(*s);
    // The export status at the device's close goes by this picture.
    mivo4::driver::DeviceOutput &device = mivo4::driver::Device();
    device.pictured = true;
    device.rendered = 0;

    // The size asked for: the device window in inches, or the cells in pixels
    // when the driver has no metric scale.
    double w = src_width, h = src_height;
    if (DPI != 0) {
        const VVRect &wn = s->dtr.wn;
        w = static_cast<double>(std::llabs(int64_t{mivo4::TruncateToInt32(wn.p2.x)} - mivo4::TruncateToInt32(wn.p1.x)) + 1) / DPI;
        h = static_cast<double>(std::llabs(int64_t{mivo4::TruncateToInt32(wn.p2.y)} - mivo4::TruncateToInt32(wn.p1.y)) + 1) / DPI;
    }
    int16_t d = src_depth;
    // The driver's scale is proposed as the picture's resolution, as a drawing
    // procedure reports its source's.
    uint32_t dpi = static_cast<uint32_t>(DPI);
    int16_t outputFormat = 0;
    uint8_t banding = 0;
    QueryCellFormat(&w, &h, &d, &dpi, &outputFormat, &banding);
    const int32_t outW = mivo4::TruncateToInt32(w), outH = mivo4::TruncateToInt32(h);
    // A picture the header cannot describe is not written at all.
    if (outW > kLargestSide || outH > kLargestSide) {
        mivo4::exportstatus::Begin(static_cast<uint32_t>(outW), static_cast<uint32_t>(outH));
        return;
    }
    const bool empty = outW <= 0 || outH <= 0;

    ZHANDLE image = 0;    // the newest bitmap made here
    ZHANDLE hTable = 0;   // the colour table made here
    const auto finish = [&] {
        rlFreeNewData(image);
        rlFreeNewData(hTable);
    };
    // The host asked to stop: abandoned without an error of the driver.
    const auto stopped = [&] {
        device.rendered = RASTER_ERR_STOPPED;
        finish();
    };

    if (!empty && outH < static_cast<int64_t>(src_height)) {
        image = rlShrinkBitmap(hBuffer, src_depth, src_width, src_height, static_cast<uint32_t>(outW),
                               static_cast<uint32_t>(outH));
        if (!progress.add(20)) return stopped();
    }
    if (src_depth < 24) {
        hTable = rlGetMemory(768, 1);
        if (auto *table = static_cast<uint8_t *>(rlLockMemory(hTable))) {
            std::memcpy(table, s->ColorTable, sizeof s->ColorTable);
            rlUnlockMemory(hTable);
        }
    }
    if (!empty && (src_colorformat == 2 || src_colorformat == 3) && d < src_depth) {
        const ZHANDLE target = image != 0 ? image : hBuffer;
        if (src_colorformat == 2) rlCMYKtoRGB(target, static_cast<uint32_t>(outW), static_cast<uint32_t>(outH));
        else rlALPHAtoRGB(target, static_cast<uint32_t>(outW), static_cast<uint32_t>(outH));
        src_depth = 24;
        src_colorformat = 1;
    }
    if (!empty && d != src_depth) {
        // The conversion hands back the table of the new depth; the copy made
        // above stays ours to free.
        const ZHANDLE copied = hTable;
        if (image != 0) {
            take(image, rlChangeColorResolution(image, static_cast<uint32_t>(outW), static_cast<uint32_t>(outH),
                                                src_depth, d, &hTable));
        } else {
            image = rlChangeColorResolution(hBuffer, src_width, src_height, src_depth, d, &hTable);
            if (image == hBuffer) image = 0;  // converted in place: still the caller's
        }
        if (hTable != copied) rlFreeNewData(copied);
        src_colorformat = d > 23 ? 1 : 0;
        if (!progress.add(20)) return stopped();
    }
    if (!empty && outputFormat == 2 && d == 32) {
        rlRGB4toCMYK(image != 0 ? image : hBuffer, static_cast<uint32_t>(outW), static_cast<uint32_t>(outH));
        src_colorformat = 2;
    }
    if (!empty && outH > static_cast<int64_t>(src_height)) {
        take(image, rlStretchBitmap(image != 0 ? image : hBuffer, d, src_width, src_height,
                                    static_cast<uint32_t>(outW), static_cast<uint32_t>(outH)));
        if (!progress.add(20)) return stopped();
    }

    const auto *table = static_cast<const VCD *>(rlLockMemory(hTable));
    if (!progress.atLeastHalf()) return stopped();
    // Every picture starts a fresh band state for the coder.
    mivo4::gp4::ClearBandState(*lpRaster);
    const uint32_t width = empty ? 0 : static_cast<uint32_t>(outW), height = empty ? 0 : static_cast<uint32_t>(outH);
    uint32_t unused = 0;
    BeginCellBitmap(s->hFile, width, height, d, table != nullptr ? table : s->ColorTable, &unused);
    if (!empty) device.rendered = WriteCellBits(s->hFile, image != 0 ? image : hBuffer, width, height, d, src_colorformat, 0);
    EndCellBitmap(s->hFile, 0);
    // As at the end of a bitmap export or of an image, the reference row of
    // the finished picture is released: nothing else would free it.
    GlobalFree(lpRaster->gp4_refLine);
    lpRaster->gp4_refLine = 0;
    rlUnlockMemory(hTable);
    finish();
}
