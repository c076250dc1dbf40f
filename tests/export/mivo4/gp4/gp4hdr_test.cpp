// The CALS header: sixteen records of 128 blank-padded ASCII bytes.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/stream.h>

#include <cstring>
#include <string>
#include <vector>

#include "g4fixture.h"

namespace {

std::vector<uint8_t> HeaderBytes(uint16_t width, uint16_t height, uint16_t density) {
    std::string path = g4test::ScratchFile("gp4hdr.cals");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    EXPECT_NE(h, 0u);
    GP4_HEADER header{1, width, height, 0, 270, density};
    EXPECT_EQ(WriteGp4Hdr(h, &header), 0);
    EXPECT_EQ(zepClose(h), 0);
    return g4test::ReadFile(path);
}

std::string Record(const std::vector<uint8_t> &file, int index) {
    std::string r(file.begin() + index * 128, file.begin() + (index + 1) * 128);
    return r.substr(0, r.find_last_not_of(' ') + 1);
}

TEST(CalsHeader, PixelCountAndDensityRecordsOfA1728By2200PictureAt200Dpi) {
    std::vector<uint8_t> file = HeaderBytes(1728, 2200, 200);
    ASSERT_EQ(file.size(), 2048u);
    EXPECT_EQ(Record(file, 8), "rpelcnt: 001728,002200");
    EXPECT_EQ(Record(file, 9), "rdensty: 0200");
}

TEST(CalsHeader, WidthZeroIsWrittenAsSixZeros) {
    std::vector<uint8_t> file = HeaderBytes(0, 5, 300);
    ASSERT_EQ(file.size(), 2048u);
    EXPECT_EQ(Record(file, 8), "rpelcnt: 000000,000005");
}

TEST(CalsHeader, IsExactly2048BytesOfPrintableTextWithoutTerminatorsOrLineEnds) {
    std::vector<uint8_t> file = HeaderBytes(65535, 65535, 1200);
    ASSERT_EQ(file.size(), 2048u);
    for (int i = 14; i < 128; ++i) EXPECT_EQ(file[i], ' ') << "byte " << i;
    for (size_t i = 0; i < file.size(); ++i) {
        EXPECT_NE(file[i], 0x00) << "byte " << i;
        EXPECT_NE(file[i], 0x0D) << "byte " << i;
        EXPECT_NE(file[i], 0x0A) << "byte " << i;
    }
    EXPECT_EQ(Record(file, 8), "rpelcnt: 065535,065535");
    EXPECT_EQ(Record(file, 9), "rdensty: 1200");
}

TEST(CalsHeader, SixteenRecordsInOrder) {
    std::vector<uint8_t> file = HeaderBytes(2480, 3508, 300);
    ASSERT_EQ(file.size(), 2048u);
    const char *expected[16] = {"srcdocid: NONE", "dstdocid: NONE", "txtfilid: NONE",
                                "figid: NONE", "srcgph: NONE", "doccls: UNCLASS",
                                "rtype: 1", "rorient: 000,270", "rpelcnt: 002480,003508",
                                "rdensty: 0300", "notes: NONE", "", "", "", "", ""};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(Record(file, i), expected[i]) << "record " << i;
}

TEST(CalsHeader, OnlyWidthHeightAndDensityAreRead) {
    std::string path = g4test::ScratchFile("gp4hdr-fields.cals");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    GP4_HEADER header{7, 10, 20, 90, 0, 72};  // type and orientation are not written from the record
    WriteGp4Hdr(h, &header);
    zepClose(h);
    std::vector<uint8_t> file = g4test::ReadFile(path);
    ASSERT_EQ(file.size(), 2048u);
    EXPECT_EQ(Record(file, 6), "rtype: 1");
    EXPECT_EQ(Record(file, 7), "rorient: 000,270");
    EXPECT_EQ(Record(file, 8), "rpelcnt: 000010,000020");
    EXPECT_EQ(Record(file, 9), "rdensty: 0072");
}

TEST(CalsHeader, DensityWithMoreThanFourDigitsKeepsAllItsDigits) {
    std::vector<uint8_t> file = HeaderBytes(8, 8, 12000);
    ASSERT_EQ(file.size(), 2048u);
    EXPECT_EQ(Record(file, 9), "rdensty: 12000");
    EXPECT_EQ(Record(file, 10), "notes: NONE");
}

TEST(CalsHeader, WritesAtTheStreamsCurrentPosition) {
    std::string path = g4test::ScratchFile("gp4hdr-offset.cals");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    zepWriteChar(h, "XYZ", 3);
    GP4_HEADER header{1, 1, 1, 0, 270, 300};
    EXPECT_EQ(WriteGp4Hdr(h, &header), 0);
    zepClose(h);
    std::vector<uint8_t> file = g4test::ReadFile(path);
    ASSERT_EQ(file.size(), 2051u);
    EXPECT_EQ(std::string(file.begin(), file.begin() + 17), "XYZsrcdocid: NONE");
}

// A host's callback stream sees each write: a record's text, then its blanks.
std::vector<std::string> gWrites;
int32_t RecordingStream(intptr_t, int32_t op, intptr_t arg1, intptr_t arg2) {
    if (op == ZEP_CB_OPEN) return 1;
    if (op == ZEP_CB_WRITE) {
        gWrites.emplace_back(reinterpret_cast<const char *>(arg1), static_cast<size_t>(arg2));
        return static_cast<int32_t>(arg2);
    }
    return 0;
}

TEST(CalsHeader, WritesEachRecordAsItsTextThenItsBlanks) {
    gWrites.clear();
    IOINFO info{};
    info.pIOProc = RecordingStream;
    HZEPIO h = zepOpen("host", &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    GP4_HEADER header{1, 1728, 2200, 0, 270, 200};
    EXPECT_EQ(WriteGp4Hdr(h, &header), 0);
    zepClose(h);
    ASSERT_EQ(gWrites.size(), 27u);  // eleven records of text and blanks, five of blanks
    EXPECT_EQ(gWrites[0], "srcdocid: NONE");
    EXPECT_EQ(gWrites[1], std::string(114, ' '));
    EXPECT_EQ(gWrites[16], "rpelcnt: 001728,002200");
    EXPECT_EQ(gWrites[17], std::string(106, ' '));
    EXPECT_EQ(gWrites[18], "rdensty: 0200");
    EXPECT_EQ(gWrites[20], "notes: NONE");
    for (size_t i = 22; i < 27; ++i) EXPECT_EQ(gWrites[i], std::string(128, ' '));
}

TEST(IntToStr, WritesDecimalDigitsWithoutLeadingZeros) {
    char s[16];
    EXPECT_EQ(IntToStr(0, s), 0);
    EXPECT_STREQ(s, "0");
    EXPECT_EQ(IntToStr(7, s), 0);
    EXPECT_STREQ(s, "7");
    EXPECT_EQ(IntToStr(1728, s), 0);
    EXPECT_STREQ(s, "1728");
    EXPECT_EQ(IntToStr(1000000, s), 0);
    EXPECT_STREQ(s, "1000000");
    EXPECT_EQ(IntToStr(2147483647, s), 0);
    EXPECT_STREQ(s, "2147483647");
}

TEST(IntToStr, NegativeValueAnswersMinusOneAndLeavesTheTextUntouched) {
    char s[16];
    std::strcpy(s, "keep");
    EXPECT_EQ(IntToStr(-1, s), -1);
    EXPECT_STREQ(s, "keep");
    EXPECT_EQ(IntToStr(INT32_MIN, s), -1);
    EXPECT_STREQ(s, "keep");
}

}  // namespace
