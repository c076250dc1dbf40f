// Where the rows of cell arrays land in an image's bitmap, compared on many
// random images with a plain model of the placement rules: the image's row
// length from the begin primitive, each element's row length from the device
// window, the 24-bit skip of each source row's excess, the row direction and
// the inverted start one row above Height - 1.
#include "export/raster/driver_session.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::DriverSession;
using mivo4::test::EndImageElement;
using mivo4::test::RectElement;

int64_t padded(int64_t pixels, int64_t bits) { return ((pixels * bits + 7) / 8 + 3) / 4 * 4; }

struct Model {
    int64_t width = 0, height = 0, stride = 0, line = 0;
    double winY1 = 0, winY2 = 0;
    int64_t windowWidth = 0;
    std::vector<uint8_t> bitmap;

    void begin(int64_t nx, int64_t ny, int64_t bits) {
        width = std::min(windowWidth, nx);
        height = ny;
        stride = padded(width, bits);
        line = 0;
        bitmap.assign(static_cast<size_t>(stride * ny), 0);
    }
    void cells(double py, double qy, int64_t sizeX, int64_t sizeY, int64_t bits, const std::vector<uint8_t> &src) {
        const int64_t pixels = std::min(windowWidth, sizeX);
        const int64_t bytes = padded(pixels, bits);
        const int64_t garbage = bits == 24 && pixels < sizeX ? padded(sizeX, 24) - bytes : 0;
        const bool up = (qy < py && winY2 > winY1) || (qy > py && winY2 < winY1);
        int64_t rows = 0;
        if (up) {
            if (line == 0 && height > 0) line = height - 1;
            rows = std::min(sizeY, line);
        } else {
            rows = std::min(sizeY, height - line);
        }
        for (int64_t y = 0; y < rows; ++y) {
            const int64_t row = up ? line - 1 : line;
            const int64_t at = row * stride;
            const int64_t n = std::min({bytes, stride, static_cast<int64_t>(bitmap.size()) - at});
            for (int64_t k = 0; k < n; ++k)
                bitmap[static_cast<size_t>(at + k)] = src[static_cast<size_t>((bytes + garbage) * y + k)];
            line += up ? -1 : 1;
        }
    }
};

TEST_F(DriverSession, RowsOfRandomCellArraysLandWhereThePlacementRulesPutThem) {
    std::mt19937 rng(2026);
    const int64_t depths[] = {1, 4, 8, 24};
    for (int trial = 0; trial < 300; ++trial) {
        Model m;
        const double x1 = static_cast<int>(rng() % 50) - 5 + (rng() % 100) / 100.0;
        const double x2 = static_cast<int>(rng() % 50) - 5 + (rng() % 100) / 100.0;
        m.winY1 = rng() % 2 == 0 ? 0.0 : 30.0;
        m.winY2 = 30.0 - m.winY1;
        m.windowWidth = std::llabs(static_cast<int64_t>(std::trunc(x2)) - static_cast<int64_t>(std::trunc(x1))) + 1;
        startPicture(1u << 16, {RectElement(518, x1, m.winY1, x2, m.winY2)});
        const int64_t nx = 1 + rng() % 40, ny = 1 + rng() % 20, bits = depths[rng() % 4];
        ASSERT_EQ(send(BeginImageElement(static_cast<int32_t>(nx), static_cast<int32_t>(ny), static_cast<int32_t>(bits))), 0);
        m.begin(nx, ny, bits);
        ASSERT_EQ(static_cast<int64_t>(GlobalSize(state()->hBuffer)), m.stride * ny) << trial;
        const int elements = 1 + static_cast<int>(rng() % 6);
        for (int e = 0; e < elements; ++e) {
            const int64_t sizeX = 1 + rng() % 50, sizeY = 1 + rng() % 8;
            // Mostly the image's depth; now and then a deeper or shallower one.
            const int64_t cellBits = rng() % 4 == 0 ? depths[rng() % 4] : bits;
            const double py = rng() % 2 == 0 ? 0.0 : 5.0, qy = 5.0 - py;
            std::vector<uint8_t> cells(static_cast<size_t>(padded(sizeX, cellBits) * sizeY));
            for (auto &b : cells) b = static_cast<uint8_t>(rng());
            ASSERT_EQ(send(CellArrayElement(py, qy, static_cast<int32_t>(sizeX), static_cast<int32_t>(sizeY),
                                            static_cast<int32_t>(cellBits), cells)),
                      0);
            m.cells(py, qy, sizeX, sizeY, cellBits, cells);
            ASSERT_EQ(state()->CurrentScanLine, m.line) << "trial " << trial << " element " << e;
        }
        const auto *bitmap = static_cast<const uint8_t *>(GlobalLock(state()->hBuffer));
        ASSERT_NE(bitmap, nullptr);
        const std::vector<uint8_t> got(bitmap, bitmap + m.bitmap.size());
        GlobalUnlock(state()->hBuffer);
        ASSERT_EQ(got, m.bitmap) << "trial " << trial << ": window " << x1 << ".." << x2 << ", image " << nx << "x"
                                 << ny << " at " << bits << " bits";
        ASSERT_EQ(send(EndImageElement()), 0);
        finish();
    }
}

}  // namespace
