// The cell bitmap sink: the narrow way by which a rendered picture reaches the
// GP4 writer, whatever produced it. It negotiates the output format, writes
// the CALS header, and hands each bottom-up padded band to the Group 4 coder
// as top-down packed rows, one at a time.
#include <mivo4/display.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>
#include <mivo4/stream.h>

#include <algorithm>
#include <cstring>

#include "export/mivo4/expstat.h"
#include "export/mivo4/gp4/rowfeed.h"

void QueryCellFormat(double *Width, double *Height, int16_t *Depth, uint32_t *dpi, int16_t *,
                     uint8_t *bandingSupported) {
    Gp4_SetupData *s = lpRaster;
    if (s != nullptr && Width != nullptr && Height != nullptr) {
        bool proposed = dpi != nullptr && *dpi != 0;
        if (s->SizeMode == SIZE_USER && proposed) {
            s->PrintWidth = *Width;
            s->PrintHeight = *Height;
        } else if (s->SizeMode == SIZE_SCREEN) {
            double w = 0, h = 0;
            int16_t xdpi = 0, ydpi = 0;
            GetDisplayInfo(&w, &h, &xdpi, &ydpi);
            if (xdpi != 0) {
                s->PrintWidth = w;
                s->PrintHeight = h;
            }
        }
        if (s->ResMode == RES_USER && proposed)
            s->XResolution = s->YResolution = static_cast<int16_t>(*dpi);

        double target[2] = {s->PrintWidth, s->PrintHeight};
        // A fixed box unless the caller explicitly proposed no resolution; then,
        // as for every other size mode, the picture's own size (in points).
        if (!(s->SizeMode == SIZE_USER && (dpi == nullptr || *dpi != 0)))
            RasterAdjustAspect(target, *Width / 72.0, *Height / 72.0);
        if (s->XResolution != 0) {
            *Width = target[0] * s->XResolution;
            *Height = target[1] * s->YResolution;
            if (dpi != nullptr) *dpi = static_cast<uint32_t>(static_cast<int32_t>(s->XResolution));
        }
    }
    if (Depth != nullptr) *Depth = 1;
    if (bandingSupported != nullptr) *bandingSupported = 1;
    if (Width != nullptr && Height != nullptr) mivo4::exportstatus::Sized(*Width, *Height);
}

int32_t BeginCellBitmap(HZEPIO hFile, uint32_t Width, uint32_t Height, int16_t, const VCD *lpCTable,
                        uint32_t *) {
    Gp4_SetupData *s = lpRaster;
    // The header states the sizes in 16 bits: a picture it cannot describe is
    // not written at all (not even its header), rather than written under a
    // size that is not its own. The bands that follow are refused.
    if (!mivo4::exportstatus::Begin(Width, Height)) return -1;
    GP4_HEADER header{};
    header.wRasterType = 1;
    header.wImageWidth = static_cast<uint16_t>(Width);
    header.wImageHeight = static_cast<uint16_t>(Height);
    header.wOrientPelPath = 0;
    header.wOrientLineProgress = 270;
    header.wDensity = s != nullptr ? static_cast<uint16_t>(s->XResolution) : 0;
    // The first colour of the band table decides the meaning of a clear bit.
    if (lpCTable != nullptr && s != nullptr) s->gp4_FGC = lpCTable[0].red;
    WriteGp4Hdr(hFile, &header);
    zepSeek(hFile, GP4_HEADER_SIZE, 0);
    if (mivo4::exportstatus::StreamInError(hFile)) mivo4::exportstatus::StreamFailed(hFile);
    return -1;  // bands arrive bottom row first
}

namespace {

// The rows of a bottom-up padded band, top row first and without the padding,
// as the coder asks for them. A row that needs no change is coded where it
// lies; one that reaches past a band block shorter than its rows (which reads
// as zero beyond its end), or that must be inverted, is made in one of two
// rows of room, alternately, so that the row above stays as it was.
struct BandRows {
    const uint8_t *band;
    uint64_t available, packedRow, paddedRow;
    uint32_t height;
    bool invert;
    uint8_t *room[2];

    static const uint8_t *Row(void *context, uint32_t r) {
        auto *b = static_cast<BandRows *>(context);
        const uint64_t from = static_cast<uint64_t>(b->height - 1 - r) * b->paddedRow;
        const uint64_t n = from < b->available ? std::min(b->packedRow, b->available - from) : 0;
        if (!b->invert && n == b->packedRow) return b->band + from;
        uint8_t *out = b->room[r & 1];
        if (n > 0) std::memcpy(out, b->band + from, n);
        std::memset(out + n, 0, b->packedRow - n);
        if (b->invert) gp4FlipMonochromeBits(out, static_cast<uint32_t>(b->packedRow), 1, 1);
        return out;
    }
};

}  // namespace

int32_t WriteCellBits(HZEPIO hFile, ZHANDLE hBuffer, uint32_t Width, uint32_t Height,
                      int16_t BitsPerPixel, int16_t, uint32_t) {
    namespace status = mivo4::exportstatus;
    // A picture whose header could not be written takes no rows.
    if (status::Refused()) return 300;
    if (hBuffer == 0) {
        status::NoMemory();  // the band that should have come could not be had
        return 300;
    }
    const auto *band = static_cast<const uint8_t *>(GlobalLock(hBuffer));
    if (band == nullptr) {
        status::NoMemory();
        return 300;
    }
    uint64_t packedRow = (static_cast<uint64_t>(Width) * static_cast<uint16_t>(BitsPerPixel) + 7) / 8;
    uint64_t paddedRow = (packedRow + 3) & ~uint64_t{3};
    uint64_t total = packedRow * Height;
    if (total > UINT32_MAX) {
        GlobalUnlock(hBuffer);
        status::NoMemory();
        return 300;
    }
    // Two rows of room (one for a band of one row): the row being coded and
    // the one above it, which the coder keeps as its reference.
    ZHANDLE hWork = GlobalAlloc(GHND, static_cast<uint32_t>(packedRow * std::min<uint32_t>(Height, 2)));
    auto *rows = static_cast<uint8_t *>(GlobalLock(hWork));
    if (rows == nullptr) {
        GlobalUnlock(hBuffer);
        status::NoMemory();
        return 300;
    }
    // The coder takes a set bit as white; with a table whose first colour is
    // white, a clear bit is white, so the band is inverted.
    const Gp4_SetupData *s = lpRaster;
    BandRows feed{band, GlobalSize(hBuffer), packedRow, paddedRow, Height,
                  BitsPerPixel == 1 && s != nullptr && s->gp4_FGC == 255, {rows, rows + packedRow}};
    int32_t result = mivo4::g4::EncodeRows(hFile, mivo4::g4::RowFeed{&BandRows::Row, &feed},
                                           static_cast<uint32_t>(total), Width, Height);
    GlobalUnlock(hBuffer);
    GlobalUnlock(hWork);
    GlobalFree(hWork);
    if (result == 0) {
        status::Coded(Height);
    } else if (status::StreamInError(hFile)) {
        status::StreamFailed(hFile);
    } else {
        status::NoMemory();  // the coder's own blocks
    }
    return result;
}

// No end-of-facsimile block and no trailer: the file ends with the last code.
int32_t EndCellBitmap(HZEPIO, uint32_t) { return 0; }

void gp4FlipMonochromeBits(uint8_t *inBuffer, uint32_t inWidth, uint32_t inHeight, int32_t inFGCIsWhite) {
    if (inBuffer == nullptr || inFGCIsWhite == 0) return;
    for (uint64_t i = static_cast<uint64_t>(inWidth) * inHeight; i-- > 0;) inBuffer[i] = static_cast<uint8_t>(~inBuffer[i]);
}

int32_t EliminatePad(const uint8_t *lpPadBuf, uint8_t *lpUnpadBuf, uint32_t UnpadLineSize,
                     uint32_t dwLines, uint32_t PadLineSize) {
    if (lpPadBuf == nullptr || lpUnpadBuf == nullptr) return 0;
    for (uint32_t i = 0; i < dwLines; ++i)
        std::memcpy(lpUnpadBuf + static_cast<uint64_t>(dwLines - 1 - i) * UnpadLineSize,
                    lpPadBuf + static_cast<uint64_t>(i) * PadLineSize, UnpadLineSize);
    return 0;
}
