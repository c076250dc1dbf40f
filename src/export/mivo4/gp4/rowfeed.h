// Rows handed to the Group 4 coder one at a time, so that a picture whose
// rows are not already top-down and packed (the cell sink's bottom-up padded
// bands) is coded without a turned copy of the whole picture.
#pragma once

#include <mivo4/types.h>

#include <cstdint>

namespace mivo4::g4 {

// Row `index` (0: the first row coded) of `rowBytes` or more bytes. A row
// stays readable until the row two after it has been asked for: the coder
// keeps the row above as its reference.
struct RowFeed {
    const uint8_t *(*row)(void *context, uint32_t index) = nullptr;
    void *context = nullptr;
};

// Group4 over rows from a feed; BytesPerRow is the room each row has.
uint32_t Group4Rows(const RowFeed &feed, ZHANDLE *hOutBuf, uint32_t Width, uint32_t ScanLines,
                    uint32_t BytesPerRow);

// Encode over rows from a feed: dwSize is the picture's size as Encode takes
// it (rows of dwSize / nHeight bytes), which also sizes the first output block.
int32_t EncodeRows(HZEPIO hOutFile, const RowFeed &feed, uint32_t dwSize, uint32_t nWidth, uint32_t nHeight);

}  // namespace mivo4::g4
