// The cell bitmap sink as the band loop sees it. Pictures go to the GP4
// writer's sink; tests put a recording sink (one that may also take bands top
// row first) in its place.
#pragma once

#include <mivo4/types.h>

namespace mivo4::dialog {

struct CellSink {
    void (*query)(double *Width, double *Height, int16_t *Depth, uint32_t *dpi, int16_t *rgbformat,
                  uint8_t *bandingSupported);
    int32_t (*begin)(HZEPIO hFile, uint32_t Width, uint32_t Height, int16_t BitsPerPixel,
                     const VCD *lpCTable, uint32_t *lphData);
    int32_t (*write)(HZEPIO hFile, ZHANDLE hBuffer, uint32_t Width, uint32_t Height,
                     int16_t BitsPerPixel, int16_t colorformat, uint32_t hData);
    int32_t (*end)(HZEPIO hFile, uint32_t hData);
};

// The sink in use; tests may replace its entries and must put them back.
CellSink &Sink();

}  // namespace mivo4::dialog
