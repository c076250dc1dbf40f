// Bands: a picture coded band by band through Encode, behind its header in a
// stream, gives exactly the bytes of the whole picture coded as one band. A
// band that ends in the middle of a byte is continued in that same byte, read
// back from the stream.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/stream.h>

#include <set>
#include <string>
#include <vector>

#include "export/mivo4/gp4/g4find.h"
#include "g4fixture.h"
#include "g4model.h"

namespace {

using g4test::Picture;
using g4test::Rng;

// Where the bands go: a named file or a growing memory block.
enum class Sink { File, Memory };

class Bands : public g4test::CoderTest {
protected:
    void TearDown() override {
        mivo4::g4::gForceRowSearch = false;
        CoderTest::TearDown();
    }

    // Codes p in bands of the given heights (the last one takes the rest)
    // behind a CALS header; answers the bytes after the header.
    std::vector<uint8_t> InBands(const Picture &p, const std::vector<uint32_t> &heights, Sink sink) {
        NewPicture();
        std::string path = g4test::ScratchFile("bands.gp4");
        ZHANDLE block = 0;
        uint8_t *data = nullptr;
        IOINFO info{};
        HZEPIO h;
        if (sink == Sink::File) {
            h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        } else {
            block = GlobalAlloc(GHND, 0);
            data = static_cast<uint8_t *>(GlobalLock(block));
            info.lplpBuffer = &data;
            info.dwExpSize = 4096;
            h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        }
        EXPECT_NE(h, 0u);
        Rec().FileHandle = h;
        GP4_HEADER header{1, static_cast<uint16_t>(p.width), static_cast<uint16_t>(p.height), 0, 270, 300};
        WriteGp4Hdr(h, &header);

        uint32_t row = 0;
        for (size_t i = 0; row < p.height; ++i) {
            uint32_t count = i < heights.size() ? std::min(heights[i], p.height - row) : p.height - row;
            if (count == 0) continue;
            offsets.insert(Rec().gp4_BitOffset);
            EXPECT_EQ(Encode(h, p.Row(row), p.stride * count, p.width, count), 0);
            row += count;
            ++bands;
        }

        std::vector<uint8_t> file;
        if (sink == Sink::File) {
            zepClose(h);
            file = g4test::ReadFile(path);
        } else {
            int32_t end = zepSeek(h, 0, 1);
            file.assign(data, data + end);
            zepClose(h);
            GlobalFree(GlobalHandle(data));
        }
        EXPECT_GE(file.size(), 2048u);
        if (file.size() < 2048) return {};
        return std::vector<uint8_t>(file.begin() + 2048, file.end());
    }

    void Check(const Picture &p, const std::vector<uint32_t> &heights, const std::string &what) {
        SCOPED_TRACE(what);
        std::vector<uint8_t> whole = Group4Picture(p);
        for (Sink sink : {Sink::File, Sink::Memory}) {
            std::vector<uint8_t> banded = InBands(p, heights, sink);
            ASSERT_EQ(banded.size(), whole.size()) << (sink == Sink::File ? "file" : "memory");
            EXPECT_EQ(banded, whole) << (sink == Sink::File ? "file" : "memory");
        }
    }

    std::set<uint32_t> offsets;  // bit offsets at which bands started
    int bands = 0;
};

std::vector<Picture> Pictures() {
    std::vector<Picture> v;
    v.push_back(g4test::Noise(37, 40, 30, 1));
    v.push_back(g4test::Noise(1728, 30, 5, 2));
    Picture stripes(203, 50);
    for (uint32_t y = 0; y < stripes.height; ++y)
        for (uint32_t x = 0; x < stripes.width; ++x) stripes.Set(x, y, ((x + 3 * y) / 7) % 2 == 0);
    v.push_back(stripes);
    Picture text = g4test::TextPage(620, 180, 75, 3);
    v.push_back(text);
    v.push_back(Picture(100, 20, true));
    return v;
}

TEST_F(Bands, OneRowPerBandGivesTheBytesOfOneBand) {
    for (const Picture &p : Pictures()) Check(p, std::vector<uint32_t>(p.height, 1), "one row each");
    EXPECT_EQ(offsets.size(), 8u) << "bands started at every bit offset 0..7";
}

TEST_F(Bands, BandsOf7And13And1AndTheRestGiveTheBytesOfOneBand) {
    for (const Picture &p : Pictures()) Check(p, {7, 13, 1}, "7/13/1/rest");
}

TEST_F(Bands, RandomSplitsGiveTheBytesOfOneBand) {
    Rng r(77);
    for (const Picture &p : Pictures())
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<uint32_t> heights;
            for (uint32_t left = p.height; left > 0;) {
                uint32_t h = 1 + r.Below(std::min<uint32_t>(left, 12));
                heights.push_back(h);
                left -= h;
            }
            Check(p, heights, "random split " + std::to_string(trial));
        }
    EXPECT_EQ(offsets.size(), 8u);
}

TEST_F(Bands, RowSearchGivesTheSameBandedBytes) {
    mivo4::g4::gForceRowSearch = true;
    for (const Picture &p : Pictures()) Check(p, {3, 1, 8, 2}, "row search");
}

TEST_F(Bands, ABandEndingMidByteIsContinuedInThatSameByte) {
    // One white row codes as the single bit 1 (V0): every band ends mid-byte.
    Picture p(50, 5, true);
    std::string path = g4test::ScratchFile("midbyte.gp4");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Rec().FileHandle = h;
    NewPicture();
    for (uint32_t band = 0; band < 5; ++band) {
        ASSERT_EQ(Encode(h, p.Row(band), p.stride, p.width, 1), 0);
        EXPECT_EQ(Rec().gp4_BitOffset, band + 1);
        EXPECT_EQ(zepSeek(h, 0, 1), 1) << "still one byte after band " << band;
    }
    zepClose(h);
    std::vector<uint8_t> file = g4test::ReadFile(path);
    ASSERT_EQ(file.size(), 1u);
    EXPECT_EQ(file[0], 0xF8) << "five V0 codes, no gap bits";
}

TEST_F(Bands, BandsAfterAHeaderStartAtByte2048) {
    Picture p = g4test::Noise(64, 10, 50, 9);
    std::vector<uint8_t> whole = Group4Picture(p);
    std::vector<uint8_t> banded = InBands(p, {4, 4}, Sink::File);
    EXPECT_EQ(banded, whole);
    EXPECT_EQ(bands, 3);
}

TEST_F(Bands, LibtiffDecodesAPictureCodedInBands) {
    Picture p = g4test::TextPage(800, 300, 100, 5);
    std::vector<uint8_t> banded = InBands(p, {16, 16, 16, 16, 16, 16, 16, 16, 1, 3}, Sink::Memory);
    Picture back = g4test::LibtiffDecode(banded, p.width, p.height);
    ASSERT_EQ(back.height, p.height);
    EXPECT_TRUE(g4test::SamePixels(back, p));
}

}  // namespace
