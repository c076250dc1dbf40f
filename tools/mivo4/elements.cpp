#include "elements.h"

namespace mivo4::host {

Element makeElement(int32_t code, size_t size) {
    Element e(size, 0);
    put(e, 0, code);
    put(e, 4, static_cast<int32_t>(size - DVR_ELEMENT_HEADER));
    return e;
}

Element deviceWindow(double x1, double y1, double x2, double y2) {
    Element e = makeElement(kDeviceWindow, DVR_WINDOW + 48);
    const double corners[6] = {x1, y1, 0.0, x2, y2, 0.0};
    std::memcpy(e.data() + DVR_WINDOW, corners, sizeof corners);
    return e;
}

Element viewportMode(int16_t mode, double millimetresPerUnit) {
    Element e = makeElement(kViewportMode, DVR_VPSM_FACTOR + 8);
    put(e, DVR_VPSM_MODE, mode);
    put(e, DVR_VPSM_FACTOR, millimetresPerUnit);
    return e;
}

Element colourTable(int32_t start, const std::vector<uint8_t> &rgb) {
    Element e = makeElement(kColourTable, DVR_CT_ENTRIES + rgb.size());
    // The length field counts the entries as 3n + 2.
    put(e, 4, static_cast<int32_t>(rgb.size() + 2));
    put(e, DVR_CT_START, start);
    if (!rgb.empty()) std::memcpy(e.data() + DVR_CT_ENTRIES, rgb.data(), rgb.size());
    return e;
}

Element beginImage(int32_t nx, int32_t ny, int32_t precision) {
    constexpr int32_t kPoints = 2;
    const size_t record = DVR_GDP_POINTS + kPoints * DVR_GDP_POINT_SIZE + 4;
    Element e = makeElement(kDrawingPrimitive, record + sizeof(Vgdp_BeginCellArrayData));
    put(e, DVR_GDP_FUNCTION, int32_t{DVR_GDP_BEGIN_IMAGE});
    put(e, DVR_GDP_NUMPTS, kPoints);
    const double corners[6] = {0.0, 0.0, 0.0, nx - 1.0, ny - 1.0, 0.0};
    std::memcpy(e.data() + DVR_GDP_POINTS, corners, sizeof corners);
    put(e, record - 4, static_cast<int32_t>(sizeof(Vgdp_BeginCellArrayData)));
    Vgdp_BeginCellArrayData b{};
    b.nx = nx;
    b.ny = ny;
    b.precision = precision;
    put(e, record, b);
    return e;
}

Element endImage() {
    Element e = makeElement(kDrawingPrimitive, DVR_GDP_POINTS + 4);
    put(e, DVR_GDP_FUNCTION, int32_t{DVR_GDP_END_IMAGE});
    return e;
}

Element cellArray(double x1, double y1, double x2, double y2, int32_t sizeX, int32_t sizeY,
                  int32_t precision, const uint8_t *cells, size_t cellBytes) {
    Element e = makeElement(kCellArray, DVR_CA_CELLS + cellBytes);
    put(e, DVR_CA_P, x1);
    put(e, DVR_CA_P + 8, y1);
    put(e, DVR_CA_Q, x2);
    put(e, DVR_CA_Q + 8, y2);
    // R, the third corner, closes the parallelogram at the end of P's row.
    put(e, DVR_CA_R, x2);
    put(e, DVR_CA_R + 8, y1);
    put(e, DVR_CA_SIZE_X, sizeX);
    put(e, DVR_CA_SIZE_Y, sizeY);
    put(e, DVR_CA_PRECISION, precision);
    if (cellBytes != 0 && cells != nullptr) std::memcpy(e.data() + DVR_CA_CELLS, cells, cellBytes);
    return e;
}

}  // namespace mivo4::host
