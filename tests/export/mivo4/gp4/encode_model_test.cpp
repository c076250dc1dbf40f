// The fast coder against the plain model (g4model.h) on many random inputs:
// the word-at-a-time searches, both ways of finding changing elements, the
// accumulator bit packing and the shortcut for repeated rows must give exactly
// the model's bytes.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>

#include <cstring>
#include <string>
#include <vector>

#include "export/mivo4/gp4/g4find.h"
#include "g4fixture.h"
#include "g4model.h"

namespace {

using g4model::Bits;
using g4test::Picture;
using g4test::Rng;

// A random picture with the structures coders meet: noise of a random
// density, runs of random lengths, rows repeated or shifted from the row above.
Picture RandomPicture(Rng &r, uint32_t maxWidth, uint32_t maxHeight) {
    uint32_t w = 1 + r.Below(maxWidth);
    uint32_t h = 1 + r.Below(maxHeight);
    Picture p(w, h);
    uint32_t density = r.Below(101);
    for (uint32_t y = 0; y < h; ++y) {
        uint32_t kind = r.Below(5);
        if (y > 0 && kind == 0) {
            std::memcpy(p.Row(y), p.Row(y - 1), p.stride);
        } else if (y > 0 && kind == 1) {
            int shift = static_cast<int>(r.Below(9)) - 4;
            for (uint32_t x = 0; x < w; ++x) {
                int from = static_cast<int>(x) + shift;
                p.Set(x, y, from >= 0 && from < static_cast<int>(w) ? p.White(from, y - 1) : true);
            }
        } else if (kind == 2) {
            bool white = r.Chance(50);
            for (uint32_t x = 0; x < w;) {
                uint32_t len = 1 + r.Below(r.Chance(20) ? 3000 : 70);
                p.Span(x, x + len, y, white);
                x += len;
                white = !white;
            }
        } else {
            for (uint32_t x = 0; x < w; ++x) p.Set(x, y, !r.Chance(density));
        }
    }
    g4test::DirtyPadding(p, r.Next());
    return p;
}

class AgainstModel : public g4test::CoderTest {
protected:
    void TearDown() override {
        mivo4::g4::gForceRowSearch = false;
        CoderTest::TearDown();
    }
};

TEST_F(AgainstModel, ListSearchCoderGivesTheModelsBytes) {
    Rng r(1);
    for (int i = 0; i < 400; ++i) {
        Picture p = RandomPicture(r, i < 300 ? 130 : 6000, 24);
        ASSERT_EQ(Group4Picture(p), g4model::Code(p).Bytes()) << "picture " << i << " " << p.width << "x" << p.height;
    }
}

TEST_F(AgainstModel, RowSearchCoderGivesTheModelsBytes) {
    mivo4::g4::gForceRowSearch = true;
    Rng r(2);
    for (int i = 0; i < 400; ++i) {
        Picture p = RandomPicture(r, i < 300 ? 130 : 6000, 24);
        ASSERT_EQ(Group4Picture(p), g4model::Code(p).Bytes()) << "picture " << i << " " << p.width << "x" << p.height;
    }
}

TEST_F(AgainstModel, ASmallOutputBufferGrowsToTheSameBytes) {
    Rng r(3);
    for (int i = 0; i < 100; ++i) {
        Picture p = RandomPicture(r, 3000, 10);
        NewPicture();
        ASSERT_EQ(Group4Band(p, 0, p.height, r.Below(20)), g4model::Code(p).Bytes()) << "picture " << i;
    }
}

// Every band but the first is coded against the saved row; with the bit
// offset cleared (no stream to read back from) each band's bits start a fresh
// byte, which the model reproduces band by band.
void CodeInBandsWithoutStream(g4test::CoderTest &t, Gp4_SetupData &rec, Rng &r, int pictures) {
    for (int i = 0; i < pictures; ++i) {
        Picture p = RandomPicture(r, 300, 30);
        t.NewPicture();
        uint32_t row = 0;
        const uint8_t *ref = nullptr;
        while (row < p.height) {
            uint32_t count = 1 + r.Below(p.height - row);
            rec.gp4_BitOffset = 0;
            std::vector<uint8_t> band = t.Group4Band(p, row, count);
            Bits expected;
            g4model::Code(expected, p.Row(row), p.width, count, p.stride, ref);
            ASSERT_EQ(band, expected.Bytes()) << "picture " << i << " rows " << row << "+" << count;
            ref = p.Row(row + count - 1);
            row += count;
        }
    }
}

TEST_F(AgainstModel, BandsWithoutAStreamContinueFromTheSavedRow) {
    Rng r(4);
    CodeInBandsWithoutStream(*this, Rec(), r, 80);
}

TEST_F(AgainstModel, RowSearchBandsWithoutAStreamContinueFromTheSavedRow) {
    mivo4::g4::gForceRowSearch = true;
    Rng r(4);
    CodeInBandsWithoutStream(*this, Rec(), r, 80);
}

// A band whose first rows repeat the saved row, then a row that codes
// differently against that row than against an all-white line.
TEST_F(AgainstModel, BandStartingWithRepeatsOfTheSavedRowKeepsItAsReference) {
    Picture p(64, 4);
    for (uint32_t y = 0; y < 3; ++y) p.Span(0, 40, y, false);
    p.Span(0, 41, 3, false);
    for (bool rowSearch : {false, true}) {
        mivo4::g4::gForceRowSearch = rowSearch;
        NewPicture();
        Group4Band(p, 0, 1);
        Rec().gp4_BitOffset = 0;
        std::vector<uint8_t> band = Group4Band(p, 1, 3);
        Bits expected;
        g4model::Code(expected, p.Row(1), p.width, 3, p.stride, p.Row(0));
        EXPECT_EQ(band, expected.Bytes()) << "row search " << rowSearch;
    }
}

TEST(SetRefPositionsAgainstModel, EveryStartAndColourOnRandomRows) {
    Rng r(5);
    for (int i = 0; i < 300; ++i) {
        Picture p = RandomPicture(r, i < 200 ? 150 : 1500, 1);
        for (uint32_t a0 = 0; a0 <= p.width; ++a0)
            for (uint8_t color : {uint8_t{0}, uint8_t{255}})
                ASSERT_EQ(SetRefPositions(p.Row(0), a0, color, p.width),
                          g4model::Change(p.Row(0), a0, color, p.width))
                    << "row " << i << " width " << p.width << " a0 " << a0 << " colour " << int(color);
    }
}

TEST(CountChangesAgainstModel, RandomRows) {
    Rng r(6);
    for (int i = 0; i < 500; ++i) {
        Picture p = RandomPicture(r, 700, 1);
        uint32_t expected = 0;
        bool before = true;
        for (uint32_t x = 0; x < p.width; ++x) {
            if (p.White(x, 0) != before) ++expected;
            before = p.White(x, 0);
        }
        ASSERT_EQ(mivo4::g4::CountChanges(p.Row(0), p.stride, p.width), expected) << i;
    }
}

TEST(PackingAgainstModel, RandomSequencesOfRunsAndModes) {
    Rng r(7);
    for (int i = 0; i < 300; ++i) {
        std::vector<uint8_t> buf(4096, 0);
        uint32_t bytePos = 0, bitPos = 0;
        Bits expected;
        for (int k = 0; k < 40; ++k) {
            if (r.Chance(50)) {
                uint32_t mode = r.Below(9);
                AddCode(buf.data(), mode, &bytePos, &bitPos);
                g4model::Mode(expected, mode);
            } else {
                uint8_t color = r.Chance(50) ? 255 : 0;
                uint32_t len = r.Below(r.Chance(10) ? 8000 : 100);
                AddRun(buf.data(), color, len, &bytePos, &bitPos);
                g4model::Run(expected, color, len);
            }
        }
        ASSERT_EQ(uint64_t{bytePos} * 8 + bitPos, expected.Size());
        std::vector<uint8_t> got(buf.begin(), buf.begin() + (expected.Size() + 7) / 8);
        ASSERT_EQ(got, expected.Bytes()) << i;
    }
}

}  // namespace
