// Cell array (function code 1033): rows of cells copied into the picture
// bitmap in the row order the device window asks for. Inside an image
// (between the begin-image and end-image primitives) the rows wait for the
// end of the image; outside one, the element is a picture of its own, written
// at once.
#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "export/raster/cells.h"
#include "export/raster/element.h"

#include <algorithm>
#include <cstring>

namespace {

using mivo4::driver::CellGeometry;

// Where the cells are and how many bytes of them can be read: inside the
// element up to the end of the element buffer, or at the host's address.
struct CellSource {
    const uint8_t *cells = nullptr;
    size_t room = 0;
};

CellSource findCells(const void *data, int32_t precision) {
    CellSource src;
    if (precision >= 0) {
        size_t room = mivo4::driver::ElementRoom(data);
        src.cells = static_cast<const uint8_t *>(data) + DVR_CA_CELLS;
        src.room = room == SIZE_MAX ? SIZE_MAX : (room > DVR_CA_CELLS ? room - DVR_CA_CELLS : 0);
        return src;
    }
    uintptr_t address = 0;
    mivo4::driver::ElementRead(data, DVR_CA_CELLS, &address, sizeof address);
    src.cells = reinterpret_cast<const uint8_t *>(address);
    src.room = src.cells != nullptr ? SIZE_MAX : 0;
    return src;
}

// Rows run upwards when the element's P to Q direction in y is opposite to
// the device window's.
bool inverted(const MoRastData &s, double py, double qy) {
    const VVRect &wn = s.dtr.wn;
    return (qy < py && wn.p2.y > wn.p1.y) || (qy > py && wn.p2.y < wn.p1.y);
}

}  // namespace

void *d_ca(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr || data == nullptr) return data;
    int32_t sizeX = 0, sizeY = 0, precision = 0;
    double py = 0, qy = 0;
    mivo4::driver::ElementRead(data, DVR_CA_SIZE_X, &sizeX, sizeof sizeX);
    mivo4::driver::ElementRead(data, DVR_CA_SIZE_Y, &sizeY, sizeof sizeY);
    mivo4::driver::ElementRead(data, DVR_CA_PRECISION, &precision, sizeof precision);
    mivo4::driver::ElementRead(data, DVR_CA_P + 8, &py, sizeof py);
    mivo4::driver::ElementRead(data, DVR_CA_Q + 8, &qy, sizeof qy);

    // No cells, or cells of a depth the colour library does not know: nothing
    // to place.
    const CellGeometry g = mivo4::driver::CellArrayGeometry(*s, sizeX, sizeY, precision);
    if (!g.valid) return data;
    const CellSource src = findCells(data, precision);

    if (s->bInCellArray == 0)
        s->hBuffer = g.bufferSize <= UINT32_MAX ? GlobalAlloc(GHND, static_cast<uint32_t>(g.bufferSize)) : 0;

    const bool up = inverted(*s, py, qy);
    int64_t rows = 0;
    if (up) {
        // The first row lands one row above the start, at CurrentScanLine - 1;
        // with a start of Height - 1 the top row stays as it was. A picture of
        // no rows has no start.
        if (s->CurrentScanLine == 0 && s->Height > 0) s->CurrentScanLine = static_cast<int32_t>(s->Height - 1);
        rows = std::min<int64_t>(sizeY, s->CurrentScanLine);
    } else {
        rows = std::min<int64_t>(sizeY, int64_t{s->Height} - s->CurrentScanLine);
    }
    if (s->hBuffer == 0) {
        push_er(RASTER_ERR_MEMORY);
        return data;
    }
    auto *bitmap = static_cast<uint8_t *>(GlobalLock(s->hBuffer));
    if (bitmap == nullptr) {
        push_er(RASTER_ERR_MEMORY);
        return data;
    }
    // Inside an image the rows are the image's rows; cells wider or deeper
    // than the image are cut to them. Nothing is written outside the block.
    const uint64_t blockSize = GlobalSize(s->hBuffer);
    const uint64_t dstStride = s->bInCellArray != 0 ? mivo4::driver::PaddedRowBytes(s->Width, s->BitsPerPixel)
                                                    : g.bytesPerRow;
    const uint64_t copyBytes = std::min<uint64_t>(g.bytesPerRow, dstStride);
    const uint64_t srcStride = g.bytesPerRow + g.garbageBytesPerRow;
    const int32_t step = up ? -1 : 1;
    for (int64_t y = 0; y < rows; ++y) {
        // An element that holds fewer rows than it claims gives the rows it holds.
        if (src.room != SIZE_MAX && (srcStride * y > src.room || src.room - srcStride * y < g.bytesPerRow)) break;
        const int64_t row = up ? int64_t{s->CurrentScanLine} - 1 : s->CurrentScanLine;
        const uint64_t at = static_cast<uint64_t>(row) * dstStride;
        if (row >= 0 && at < blockSize) {
            const uint64_t n = std::min(copyBytes, blockSize - at);
            std::memcpy(bitmap + at, src.cells + srcStride * y, n);
            if (g.bitsPerPixel == 24 && s->ColorMode != 0)
                rev_rgb(static_cast<uint32_t>(std::min<uint64_t>(g.pixelsPerRow, n / 3)), bitmap + at, s->ColorMode);
        }
        s->CurrentScanLine += step;
    }
    GlobalUnlock(s->hBuffer);
    if (s->bInCellArray != 0) return data;  // the end of the image writes it

    RasterWriteCellData(s->hBuffer, static_cast<uint32_t>(g.pixelsPerRow), static_cast<uint32_t>(sizeY), s->inch,
                        static_cast<int16_t>(g.bitsPerPixel), g.bitsPerPixel == 24 ? 1 : 0);
    // The field keeps the freed handle's value; the next cell array outside an
    // image allocates anew, and the handle table answers nothing for it.
    GlobalFree(s->hBuffer);
    return data;
}
