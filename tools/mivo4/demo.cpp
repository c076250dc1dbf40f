#include "demo.h"

#include <cmath>
#include <cstring>
#include <string>

namespace mivo4::host {

namespace {

// A 5 x 7 font: seven rows of five bits, most significant of the five leftmost.
struct Glyph {
    char c;
    uint8_t rows[7];
};
constexpr Glyph kFont[] = {
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}}, {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}}, {'%', {0x18, 0x19, 0x02, 0x04, 0x08, 0x13, 0x03}},
    {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}}, {',', {0x00, 0x00, 0x00, 0x00, 0x0C, 0x04, 0x08}},
};

const Glyph *glyphOf(char c) {
    for (const Glyph &g : kFont)
        if (g.c == c) return &g;
    return nullptr;
}

class Canvas {
public:
    explicit Canvas(const Image &image) : im_(image) {}

    void pixel(int x, int y, Rgb c) const {
        if (x < 0 || y < 0 || x >= int(im_.width) || y >= int(im_.height)) return;
        uint8_t *p = im_.row(static_cast<uint32_t>(y)) + 3 * x;
        p[0] = c.red;
        p[1] = c.green;
        p[2] = c.blue;
    }
    void fill(int x0, int y0, int x1, int y1, Rgb c) const {
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x) pixel(x, y, c);
    }
    // A line one pixel wide, Bresenham's way.
    void line(int x0, int y0, int x1, int y1, Rgb c) const {
        int dx = std::abs(x1 - x0), sx = x0 < x1 ? 1 : -1;
        int dy = -std::abs(y1 - y0), sy = y0 < y1 ? 1 : -1;
        int err = dx + dy;
        for (;;) {
            pixel(x0, y0, c);
            if (x0 == x1 && y0 == y1) return;
            int e2 = 2 * err;
            if (e2 >= dy) err += dy, x0 += sx;
            if (e2 <= dx) err += dx, y0 += sy;
        }
    }
    void circle(int cx, int cy, int r, Rgb c) const {
        int x = r, y = 0, err = 1 - r;
        while (x >= y) {
            const int pts[8][2] = {{x, y}, {y, x}, {-y, x}, {-x, y}, {-x, -y}, {-y, -x}, {y, -x}, {x, -y}};
            for (const auto &p : pts) pixel(cx + p[0], cy + p[1], c);
            ++y;
            if (err < 0) err += 2 * y + 1;
            else --x, err += 2 * (y - x) + 1;
        }
    }
    // Text in the 5 x 7 font, each font dot scale x scale pixels; returns the width used.
    int text(int x, int y, const std::string &s, int scale, Rgb c) const {
        int start = x;
        for (char ch : s) {
            if (const Glyph *g = glyphOf(ch)) {
                for (int r = 0; r < 7; ++r)
                    for (int b = 0; b < 5; ++b)
                        if (g->rows[r] & (0x10 >> b)) fill(x + b * scale, y + r * scale, x + (b + 1) * scale, y + (r + 1) * scale, c);
            }
            x += 6 * scale;
        }
        return x - start;
    }

private:
    const Image &im_;
};

constexpr Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255};

}  // namespace

Image makeDemoChart(const PixelAllocator &alloc) {
    Image image;
    allocatePixels(image, "demo chart", kDemoWidth, kDemoHeight, 24, alloc);
    image.dpi = kDemoDpi;
    std::memset(image.pixels, 255, image.size());
    Canvas cv(image);
    const int W = int(kDemoWidth), H = int(kDemoHeight);

    // Frame and title.
    cv.fill(0, 0, W, 4, kBlack);
    cv.fill(0, H - 4, W, H, kBlack);
    cv.fill(0, 0, 4, H, kBlack);
    cv.fill(W - 4, 0, W, H, kBlack);
    cv.text(60, 36, "MIVO4 TEST CHART", 6, kBlack);
    cv.text(1040, 60, "8 X 6 IN AT 200 DPI", 3, kBlack);

    // A continuous grey ramp and eleven grey steps, 0% to 100% ink.
    const int left = 60, right = W - 60;
    for (int x = left; x < right; ++x) {
        uint8_t v = static_cast<uint8_t>(255 - (x - left) * 255 / (right - left - 1));
        cv.fill(x, 120, x + 1, 190, Rgb{v, v, v});
    }
    const int steps = 11, stepW = (right - left) / steps;
    for (int i = 0; i < steps; ++i) {
        uint8_t v = static_cast<uint8_t>(255 - i * 255 / (steps - 1));
        int x = left + i * stepW;
        cv.fill(x, 205, x + stepW, 285, Rgb{v, v, v});
        cv.text(x + 8, 292, std::to_string(i * 10) + "%", 2, kBlack);
    }

    // Colour patches.
    const Rgb colours[] = {{255, 0, 0},   {0, 160, 0},   {0, 0, 255},     {0, 255, 255}, {255, 0, 255},
                           {255, 255, 0}, {255, 128, 0}, {224, 172, 140}, {0, 0, 96},    {128, 128, 0}};
    const int n = int(std::size(colours)), patchW = (right - left) / n;
    for (int i = 0; i < n; ++i) cv.fill(left + i * patchW + 4, 330, left + (i + 1) * patchW - 4, 450, colours[i]);

    // Fine lines: groups of 1-pixel lines at gaps of 1 to 4 pixels, both ways.
    int x = left;
    for (int gap = 1; gap <= 4; ++gap) {
        for (int k = 0; k < 12; ++k) cv.line(x + k * (gap + 1), 490, x + k * (gap + 1), 640, kBlack);
        x += 12 * (gap + 1) + 20;
    }
    int y = 660;
    for (int gap = 1; gap <= 4; ++gap) {
        for (int k = 0; k < 8; ++k) cv.line(left, y + k * (gap + 1), left + 300, y + k * (gap + 1), kBlack);
        y += 8 * (gap + 1) + 14;
    }
    // A star of radial lines and concentric circles.
    const int sx = 560, sy = 780, radius = 170;
    for (int a = 0; a < 72; ++a) {
        double t = a * 3.14159265358979323846 / 36.0;
        cv.line(sx, sy, sx + int(std::lround(radius * std::cos(t))), sy + int(std::lround(radius * std::sin(t))), kBlack);
    }
    for (int r = 20; r <= 150; r += 10) cv.circle(sx + 400 + 0 * r, sy, r, Rgb{0, 0, 160});
    // Diagonals, one pixel wide, at several slopes.
    for (int k = 0; k < 10; ++k) cv.line(left + k * 14, 1000, left + 200 + k * 14, 1140, kBlack);

    // Text and text-like strokes: letters at three sizes, then lines of
    // "words" made of strokes of varying width, from a fixed seed.
    const int tx = 1160;
    cv.text(tx, 500, "THE QUICK", 4, kBlack);
    cv.text(tx, 540, "BROWN FOX JUMPS", 2, kBlack);
    cv.text(tx, 560, "OVER THE LAZY DOG.", 2, kBlack);
    cv.text(tx, 590, "0123456789 -.:/%,", 2, kBlack);
    cv.text(tx, 612, "ABCDEFGHIJKLMNOPQRSTUVWXYZ", 1, kBlack);
    uint32_t seed = 12345;
    auto next = [&seed](uint32_t m) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % m;
    };
    for (int lineNo = 0; lineNo < 24; ++lineNo) {
        int yy = 640 + lineNo * 22, xx = tx;
        while (xx < right - 30) {
            int letters = 2 + int(next(7));
            for (int l = 0; l < letters && xx < right - 8; ++l) {
                int w = 1 + int(next(3)), h = 9 + int(next(2)) * 4;
                cv.fill(xx, yy + 13 - h, xx + w, yy + 13, kBlack);
                if (next(3) == 0) cv.fill(xx, yy + 3, xx + 5, yy + 3 + w, kBlack);  // a crossbar
                xx += w + 2 + int(next(3));
            }
            xx += 8;
        }
    }
    (void)kWhite;
    return image;
}

}  // namespace mivo4::host
