// Elements of the raster driver as a host lays them out in the element
// buffer: a 16-byte header (function code, length, two free words) and the
// parameters at their fixed offsets, little-endian, IEEE doubles.
#pragma once

#include <mivo4/raster.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace mivo4::host {

using Element = std::vector<uint8_t>;

// Function codes of the elements this host sends.
enum : int32_t {
    kOpenDevice = 1,
    kCloseDevice = 2,
    kBeginPicture = 3,
    kBeginPictureBody = 4,
    kEndPicture = 5,
    kDeviceWindow = 518,
    kViewportMode = 521,
    kCellArray = 1033,
    kDrawingPrimitive = 1034,
    kColourTable = 1314,
};

// An element of `size` bytes with its header; the length field counts the
// parameter bytes unless told otherwise.
Element makeElement(int32_t code, size_t size = DVR_ELEMENT_HEADER);

template <class T>
void put(Element &e, size_t offset, const T &value) {
    std::memcpy(e.data() + offset, &value, sizeof value);
}

// Device window from (x1, y1) to (x2, y2), z 0.
Element deviceWindow(double x1, double y1, double x2, double y2);
// Viewport mode; mode 1 (metric) with millimetres per unit.
Element viewportMode(int16_t mode, double millimetresPerUnit);
// Colour-table entries from `start`: red, green, blue bytes.
Element colourTable(int32_t start, const std::vector<uint8_t> &rgb);
// Begin image of nx x ny cells of `precision` bits, with its two corners.
Element beginImage(int32_t nx, int32_t ny, int32_t precision);
Element endImage();

// A cell array of sizeX x sizeY cells from P (x1, y1) to Q (x2, y2); rows
// padded to 4 bytes follow in the element from byte 102 (zeros without
// cells: room for an address when the precision is negative).
Element cellArray(double x1, double y1, double x2, double y2, int32_t sizeX, int32_t sizeY,
                  int32_t precision, const uint8_t *cells, size_t cellBytes);

}  // namespace mivo4::host
