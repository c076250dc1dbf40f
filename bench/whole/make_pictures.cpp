// Writes the whole-process benchmark's pictures, always the same pixels:
//   page24.ppm  a 24-bit A4 page at 300 dpi (2480 x 3508): soft colour
//               gradients, photo-like blobs, colour bars and black text strokes
//   page1.pbm   a 1-bit A4 page at 300 dpi: lines of text-like strokes
// With a size, the same pages drawn at W x H (layout in proportion, strokes
// scaled by W / 2480 rounded), as page24-WxH.ppm and page1-WxH.pbm.
// usage: make_pictures DIR [W H]
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

int W = 2480, H = 3508;
int K = 1;  // stroke scale

// A layout position given for the 2480 x 3508 page, in proportion.
int atX(int x) { return static_cast<int>(int64_t{x} * W / 2480); }
int atY(int y) { return static_cast<int>(int64_t{y} * H / 3508); }

struct Lcg {
    uint32_t s;
    uint32_t next(uint32_t m) {
        s = s * 1103515245u + 12345u;
        return (s >> 16) % m;
    }
};

// Lines of "words" of narrow strokes, as printed text looks to a coder.
template <class Ink>
void textLines(Lcg &rng, int x0, int x1, int y0, int y1, int lineHeight, Ink ink) {
    for (int y = y0; y + lineHeight <= y1; y += lineHeight) {
        int x = x0;
        while (x < x1 - 40 * K) {
            int letters = 2 + static_cast<int>(rng.next(8));
            for (int l = 0; l < letters && x < x1 - 10 * K; ++l) {
                int w = K * (2 + static_cast<int>(rng.next(4))), h = K * (22 + static_cast<int>(rng.next(3)) * 8);
                for (int yy = y + 38 * K - h; yy < y + 38 * K; ++yy)
                    for (int xx = x; xx < x + w; ++xx) ink(xx, yy);
                if (rng.next(3) == 0)
                    for (int yy = y + 14 * K; yy < y + 14 * K + w; ++yy)
                        for (int xx = x; xx < x + 12 * K; ++xx) ink(xx, yy);
                x += w + K * (5 + static_cast<int>(rng.next(6)));
            }
            x += 18 * K;
        }
    }
}

bool writeFile(const std::string &path, const std::string &header, const std::vector<uint8_t> &data) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    bool ok = std::fwrite(header.data(), 1, header.size(), f) == header.size() &&
              std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 4) {
        std::fprintf(stderr, "usage: make_pictures DIR [W H]\n");
        return 2;
    }
    const std::string dir = argv[1];
    std::string suffix;
    if (argc == 4) {
        W = std::atoi(argv[2]);
        H = std::atoi(argv[3]);
        if (W < 100 || H < 100) return 2;
        K = std::max(1, (W + 1240) / 2480);
        suffix = "-" + std::to_string(W) + "x" + std::to_string(H);
    }

    std::vector<uint8_t> rgb(static_cast<size_t>(W) * H * 3);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            double fx = x / double(W), fy = y / double(H);
            double r = 128 + 100 * std::sin(6.0 * fx + 2.0 * fy) + 20 * std::sin(40.0 * fx * fy);
            double g = 128 + 100 * std::cos(5.0 * fy - 3.0 * fx);
            double b = 128 + 90 * std::sin(9.0 * (fx + fy)) * std::cos(4.0 * fy);
            uint8_t *p = &rgb[(static_cast<size_t>(y) * W + x) * 3];
            p[0] = static_cast<uint8_t>(std::fmin(255, std::fmax(0, r)));
            p[1] = static_cast<uint8_t>(std::fmin(255, std::fmax(0, g)));
            p[2] = static_cast<uint8_t>(std::fmin(255, std::fmax(0, b)));
        }
    }
    // A white text column over the lower half, with black text.
    for (int y = atY(1800); y < atY(3400); ++y)
        for (int x = atX(120); x < atX(2360); ++x) {
            uint8_t *p = &rgb[(static_cast<size_t>(y) * W + x) * 3];
            p[0] = p[1] = p[2] = 255;
        }
    Lcg rng{2024};
    textLines(rng, atX(160), atX(2320), atY(1840), atY(3380), 56 * K, [&](int x, int y) {
        uint8_t *p = &rgb[(static_cast<size_t>(y) * W + x) * 3];
        p[0] = p[1] = p[2] = 0;
    });
    const std::string size = std::to_string(W) + " " + std::to_string(H);
    if (!writeFile(dir + "/page24" + suffix + ".ppm", "P6\n" + size + "\n255\n", rgb)) return 1;

    const size_t stride = (W + 7) / 8;
    std::vector<uint8_t> bits(stride * H);
    Lcg rng1{7};
    auto ink = [&](int x, int y) { bits[static_cast<size_t>(y) * stride + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8)); };
    // A heading, two columns of text and a rule.
    for (int y = atY(200); y < atY(260); ++y)
        for (int x = atX(200); x < atX(1600); x += 1) if ((x / (40 * K)) % 2 == 0) ink(x, y);
    for (int y = atY(330); y < atY(330) + 4 * K; ++y) for (int x = atX(200); x < atX(2280); ++x) ink(x, y);
    textLines(rng1, atX(200), atX(1200), atY(400), atY(3300), 56 * K, ink);
    textLines(rng1, atX(1280), atX(2280), atY(400), atY(3300), 56 * K, ink);
    if (!writeFile(dir + "/page1" + suffix + ".pbm", "P4\n" + size + "\n", bits)) return 1;
    return 0;
}
