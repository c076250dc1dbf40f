// The coder against libtiff: for every picture of the corpus our bytes equal,
// bit for bit, the strip libtiff's Group 4 encoder writes for the same picture
// in one strip, up to libtiff's EOFB (we write none and zero-fill the last
// byte); and libtiff's decoder reads our bytes back to the same pixels.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "g4fixture.h"
#include "g4pictures.h"

namespace {

using g4test::Picture;
using g4test::Rng;

class SameAsLibtiff : public g4test::CoderTest {
protected:
    void Check(const Picture &p, const std::string &what) {
        SCOPED_TRACE(what + " " + std::to_string(p.width) + "x" + std::to_string(p.height));
        std::vector<uint8_t> strip = g4test::LibtiffStrip(p);
        ASSERT_FALSE(strip.empty()) << "libtiff wrote no strip";
        g4test::Expected e = g4test::WithoutEofb(strip);
        ASSERT_TRUE(e.eofbFound) << "libtiff's strip does not end in EOFB";

        std::vector<uint8_t> ours = Group4Picture(p);
        ASSERT_EQ(ours.size(), e.bytes.size());
        for (size_t i = 0; i < ours.size(); ++i)
            ASSERT_EQ(ours[i], e.bytes[i]) << "first difference at byte " << i << " of " << ours.size();
        EXPECT_EQ(Rec().gp4_BitOffset, e.bits % 8) << "bits in the last byte";
        ++checked;

        Picture back = g4test::LibtiffDecode(ours, p.width, p.height);
        ASSERT_EQ(back.height, p.height) << "libtiff could not decode our stream";
        EXPECT_TRUE(g4test::SamePixels(back, p)) << "libtiff decodes other pixels";
    }
    int checked = 0;
};

TEST_F(SameAsLibtiff, AllWhiteAndAllBlack) {
    for (uint32_t w : {1u, 8u, 100u, 1728u, 2560u}) {
        Check(Picture(w, 20, true), "white");
        Check(Picture(w, 20, false), "black");
    }
    EXPECT_EQ(checked, 10);
}

TEST_F(SameAsLibtiff, SinglePixelsAtTheEdges) {
    for (uint32_t w : {1u, 2u, 7u, 8u, 9u, 63u, 64u, 65u, 1728u}) {
        const uint32_t h = 5;
        const uint32_t xs[] = {0, w / 2, w - 1};
        const uint32_t ys[] = {0, h / 2, h - 1};
        for (uint32_t x : xs)
            for (uint32_t y : ys) {
                Picture black(w, h, true);
                black.Set(x, y, false);
                Check(black, "black dot at " + std::to_string(x) + "," + std::to_string(y));
                Picture white(w, h, false);
                white.Set(x, y, true);
                Check(white, "white dot at " + std::to_string(x) + "," + std::to_string(y));
            }
    }
}

TEST_F(SameAsLibtiff, Checkerboards) {
    for (uint32_t cell : {1u, 2u, 3u, 4u, 5u, 8u, 13u, 64u, 100u})
        for (uint32_t w : {61u, 200u, 1728u}) {
            Picture p(w, 40);
            for (uint32_t y = 0; y < p.height; ++y)
                for (uint32_t x = 0; x < w; ++x) p.Set(x, y, ((x / cell) + (y / cell)) % 2 == 0);
            Check(p, "checkerboard of " + std::to_string(cell));
        }
}

TEST_F(SameAsLibtiff, NoiseAtOneTenFiftyAndNinetyPercent) {
    for (uint32_t percent : {1u, 10u, 50u, 90u})
        for (uint32_t w : {97u, 1728u, 2561u}) {
            Picture p = g4test::Noise(w, 60, percent, percent * 1000 + w);
            g4test::DirtyPadding(p, w);
            Check(p, "noise " + std::to_string(percent) + "%");
        }
}

TEST_F(SameAsLibtiff, Stripes) {
    const uint32_t w = 1000;
    for (uint32_t period : {2u, 3u, 6u, 7u, 8u, 9u, 50u, 333u}) {
        Picture vertical(w, 30), horizontal(w, 60), diagonal(w, 60), slanted(w, 60);
        for (uint32_t y = 0; y < 60; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                if (y < 30) vertical.Set(x, y, (x / period) % 2 == 0);
                horizontal.Set(x, y, (y / period) % 2 == 0);
                diagonal.Set(x, y, ((x + y) / period) % 2 == 0);
                slanted.Set(x, y, ((x + 5 * y) / period) % 2 == 0);  // forces horizontal and pass modes
            }
        Check(vertical, "vertical stripes " + std::to_string(period));
        Check(horizontal, "horizontal stripes " + std::to_string(period));
        Check(diagonal, "diagonal stripes " + std::to_string(period));
        Check(slanted, "slanted stripes " + std::to_string(period));
    }
}

TEST_F(SameAsLibtiff, EveryWidthFromOneToForty) {
    for (uint32_t w = 1; w <= 40; ++w) {
        Picture p = g4test::Noise(w, 24, 35, w);
        g4test::DirtyPadding(p, w + 1);
        p.FillRow(5, true);
        p.FillRow(6, false);
        p.FillRow(7, true);
        Check(p, "width " + std::to_string(w));
    }
}

// Rows of every kind at the widths where run codes change: the last
// terminating code, the make-up codes, 2560 and repeated 2560.
TEST_F(SameAsLibtiff, WideAndOddWidths) {
    for (uint32_t w : {1727u, 1728u, 2560u, 2561u, 2623u, 2624u, 5120u, 5121u, 65535u}) {
        Rng r(w);
        const uint32_t h = 14;
        Picture p(w, h);
        p.FillRow(1, false);                         // all black after all white
        p.Span(0, w / 3, 2, false);                  // one long black run
        p.Span(w / 2, w, 3, false);                  // long white then long black
        p.Span(1, w - 1, 4, false);                  // black but for the edges
        for (uint32_t x = 0; x < w; ++x) p.Set(x, 5, !r.Chance(50));
        for (uint32_t x = 0; x < w; ++x) p.Set(x, 6, !r.Chance(3));
        p.Set(w - 1, 7, false);                      // last pixel only
        p.Set(0, 8, false);                          // first pixel only
        p.FillRow(9, false);
        p.Set(w / 2, 9, true);
        for (uint32_t x = 0; x < w; ++x) p.Set(x, 10, (x / 2600) % 2 == 0);  // runs of 2600
        for (uint32_t x = 0; x < w; ++x) p.Set(x, 11, (x / 5200) % 2 == 1);
        p.FillRow(12, false);
        g4test::DirtyPadding(p, w);
        Check(p, "wide");
    }
}

// Horizontal mode with every white run length 0..2626 first and every black
// run length 1..2630 second; then black runs first (after a vertical step)
// followed by white runs of many lengths.
TEST_F(SameAsLibtiff, EveryRunLengthInHorizontalMode) {
    const uint32_t w = 2700;
    {
        Picture p(w, 2 * 2627);
        for (uint32_t len = 0; len <= 2626; ++len) p.Span(len, len + 5, 2 * len + 1, false);
        Check(p, "white runs 0..2626");
    }
    {
        Picture p(w, 2 * 2630);
        for (uint32_t len = 1; len <= 2630; ++len) p.Span(10, 10 + len, 2 * len - 1, false);
        Check(p, "black runs 1..2630");
    }
    {
        // Reference row: one black pixel at 10. Coded row: black from 10 for
        // `len` pixels (a vertical step to 10, then a black run first), a white
        // run, and black to the end.
        Picture p(w, 2 * 2680);
        for (uint32_t len = 5; len < 2685 && 2 * (len - 5) + 1 < p.height; ++len) {
            uint32_t y = 2 * (len - 5);
            p.Set(10, y, false);
            uint32_t whiteRun = 1 + (len * 7) % 600;
            p.Span(10, std::min(w, 10 + len), y + 1, false);
            p.Span(std::min(w, 10 + len + whiteRun), w, y + 1, false);
        }
        Check(p, "black runs first");
    }
}

TEST_F(SameAsLibtiff, TextPageA4At300Dpi) {
    Check(g4test::TextPage(2480, 3508, 300, 4), "text page");
}

TEST_F(SameAsLibtiff, DitheredPhotoPage) {
    Check(g4test::DitheredPhoto(1240, 1754, 7), "dithered photo");
}

TEST_F(SameAsLibtiff, RandomPicturesOfRandomSizes) {
    Rng r(2024);
    for (int i = 0; i < 60; ++i) {
        uint32_t w = 1 + r.Below(3000);
        uint32_t h = 1 + r.Below(40);
        Picture p = g4test::Noise(w, h, r.Below(101), r.Next());
        // Copy some rows down so that vertical and pass modes are frequent.
        for (uint32_t y = 1; y < h; ++y)
            if (r.Chance(40)) std::memcpy(p.Row(y), p.Row(y - 1), p.stride);
        g4test::DirtyPadding(p, r.Next());
        Check(p, "random " + std::to_string(i));
    }
}

}  // namespace
