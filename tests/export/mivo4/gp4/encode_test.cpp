// The coder's behaviour: run and mode codes and their packing,
// changing elements, the first row's reference, out-of-memory paths, the
// status callback and a failing stream.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <cstring>
#include <string>
#include <vector>

#include "export/mivo4/gp4/g4find.h"
#include "g4fixture.h"
#include "g4model.h"
#include "zep_xxxx/memdebug.h"

namespace {

using g4model::Bits;
using g4test::Picture;
using mivo4::mem::FailNth;
using mivo4::mem::LiveHandles;

std::string BitString(const uint8_t *bytes, uint64_t n) {
    std::string s;
    for (uint64_t i = 0; i < n; ++i) s += ((bytes[i / 8] >> (7 - i % 8)) & 1) ? '1' : '0';
    return s;
}

// The bits AddRun writes for one run into a fresh buffer.
std::string RunBits(uint8_t color, uint32_t len) {
    std::vector<uint8_t> buf(64, 0);
    uint32_t bytePos = 0, bitPos = 0;
    AddRun(buf.data(), color, len, &bytePos, &bitPos);
    return BitString(buf.data(), uint64_t{bytePos} * 8 + bitPos);
}

// ---- AddRun ------------------------------------------------------------------

TEST(AddRun, RunOf63IsItsTerminatingCodeAlone) {
    EXPECT_EQ(RunBits(255, 63), "00110100");
    EXPECT_EQ(RunBits(0, 63), "000001100111");
}

TEST(AddRun, RunOf64GivesMakeUp64ThenTerminatingZero) {
    EXPECT_EQ(RunBits(255, 64), std::string("11011") + "00110101");
    EXPECT_EQ(RunBits(0, 64), std::string("0000001111") + "0000110111");
}

TEST(AddRun, RunOf2560GivesMakeUp2560ThenTerminatingZero) {
    EXPECT_EQ(RunBits(255, 2560), std::string("000000011111") + "00110101");
    EXPECT_EQ(RunBits(0, 2560), std::string("000000011111") + "0000110111");
}

TEST(AddRun, RunOf2561GivesMakeUp2560ThenTerminatingOne) {
    EXPECT_EQ(RunBits(255, 2561), std::string("000000011111") + "000111");
    EXPECT_EQ(RunBits(0, 2561), std::string("000000011111") + "010");
}

TEST(AddRun, RunOf2624GivesMakeUp2560MakeUp64AndTerminatingZero) {
    EXPECT_EQ(RunBits(255, 2624), std::string("000000011111") + "11011" + "00110101");
}

TEST(AddRun, RunOf5120GivesTwoMakeUp2560ThenTerminatingZero) {
    EXPECT_EQ(RunBits(255, 5120), std::string("000000011111") + "000000011111" + "00110101");
    EXPECT_EQ(RunBits(0, 5120), std::string("000000011111") + "000000011111" + "0000110111");
}

TEST(AddRun, RunOf65535GivesTwentyFiveMakeUp2560ThenTheRest) {
    // 65535 = 25 * 2560 + 1535, and 1535 = 1472 + 63.
    std::string expected;
    for (int i = 0; i < 25; ++i) expected += "000000011111";
    expected += std::string("010011000") + "00110100";
    EXPECT_EQ(RunBits(255, 65535), expected);
}

TEST(AddRun, NonZeroColourIsWhite) {
    EXPECT_EQ(RunBits(1, 2), RunBits(255, 2));
    EXPECT_EQ(RunBits(0, 2), "11");
}

TEST(AddRun, KeepsTheBitsBeforeItAndAssignsTheBytesAfter) {
    for (uint32_t bit = 0; bit < 8; ++bit) {
        std::vector<uint8_t> buf(8, 0xEE);    // garbage ahead of the current byte
        buf[0] = static_cast<uint8_t>(0xA5 & (0xFF00u >> bit));  // bits already written
        uint32_t bytePos = 0, bitPos = bit;
        AddRun(buf.data(), 0, 26, &bytePos, &bitPos);  // black 26: 000011001010 (12 bits)
        std::string head = BitString(buf.data(), bit);
        EXPECT_EQ(BitString(buf.data(), bit + 12), head + "000011001010") << bit;
        EXPECT_EQ(bytePos, (bit + 12) / 8);
        EXPECT_EQ(bitPos, (bit + 12) % 8);
        // The rest of the byte holding the code's last bit is zero, not the
        // garbage that was there: bytes after the first are assigned.
        uint32_t end = 8 * ((bit + 11) / 8 + 1);
        EXPECT_EQ(BitString(buf.data(), end).substr(bit + 12), std::string(end - bit - 12, '0')) << bit;
    }
}

// ---- AddCode -----------------------------------------------------------------

TEST(AddCode, EveryModeAtEveryBitOffset) {
    const char *codes[9] = {"0001", "001", "0000010", "000010", "010", "1", "011", "000011", "0000011"};
    for (uint32_t mode = 0; mode < 9; ++mode)
        for (uint32_t bit = 0; bit < 8; ++bit) {
            uint8_t buf[4] = {static_cast<uint8_t>(0xFF00u >> bit), 0xEE, 0xEE, 0xEE};
            uint32_t bytePos = 0, bitPos = bit;
            AddCode(buf, mode, &bytePos, &bitPos);
            uint32_t end = bit + static_cast<uint32_t>(std::strlen(codes[mode]));
            EXPECT_EQ(BitString(buf, end), std::string(bit, '1') + codes[mode]) << mode << " " << bit;
            EXPECT_EQ(bytePos * 8 + bitPos, end);
            if (end >= 8) {
                // Crossing into the next byte assigns it: its garbage is gone.
                EXPECT_EQ(BitString(buf, 16).substr(end), std::string(16 - end, '0'));
            } else {
                EXPECT_EQ(buf[1], 0xEE) << "the next byte is not touched";
            }
        }
}

// ---- SetRefPositions ----------------------------------------------------------

TEST(SetRefPositions, RowWhoseFirstPixelIsBlackGivesA1Zero) {
    uint8_t row[2] = {0x7F, 0xFF};  // pixel 0 black
    EXPECT_EQ(SetRefPositions(row, 0, 255, 16), 0u);
    // In black at 0 the next element is the end of that black run.
    EXPECT_EQ(SetRefPositions(row, 0, 0, 16), 1u);
}

TEST(SetRefPositions, AnElementExactlyAtA0IsNotReturned) {
    uint8_t row[2] = {0xF0, 0xF0};  // white 0-3, black 4-7, white 8-11, black 12-15
    EXPECT_EQ(SetRefPositions(row, 0, 255, 16), 4u);
    EXPECT_EQ(SetRefPositions(row, 4, 255, 16), 12u);  // 4 itself is a change to black
    EXPECT_EQ(SetRefPositions(row, 4, 0, 16), 8u);
    EXPECT_EQ(SetRefPositions(row, 3, 0, 16), 8u);
    EXPECT_EQ(SetRefPositions(row, 8, 0, 16), 16u);    // 8 itself is a change to white
}

TEST(SetRefPositions, NoChangeLeftGivesTheWidth) {
    uint8_t row[2] = {0xFF, 0xFF};
    EXPECT_EQ(SetRefPositions(row, 0, 255, 13), 13u);
    EXPECT_EQ(SetRefPositions(row, 0, 0, 13), 13u);
    EXPECT_EQ(SetRefPositions(row, 13, 255, 13), 13u);
    EXPECT_EQ(SetRefPositions(row, 20, 255, 13), 13u) << "a start past the row gives the width";
}

TEST(SetRefPositions, BitsPastTheWidthAreIgnored) {
    uint8_t row[2] = {0xFF, 0xE0};  // 11 white pixels, then black pad bits
    EXPECT_EQ(SetRefPositions(row, 0, 255, 11), 11u);
}

// ---- Group4: what single rows code as --------------------------------------------

class Group4Rows : public g4test::CoderTest {};

TEST_F(Group4Rows, AllWhiteRowCodesAsASingleV0AgainstAnAllWhiteReference) {
    Picture p(1728, 3, true);
    std::vector<uint8_t> out = Group4Picture(p);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(BitString(out.data(), 8), "11100000");  // V0 per row, zero-filled
    EXPECT_EQ(Rec().gp4_BitOffset, 3u);
}

TEST_F(Group4Rows, RowWhoseFirstPixelIsBlackStartsWithAWhiteRunOfZero) {
    Picture p(8, 1, true);
    p.Set(0, 0, false);
    std::vector<uint8_t> out = Group4Picture(p);
    // a1 = 0, b1 = 8: horizontal, white 0, black 1; then V0 at the end of the row.
    EXPECT_EQ(BitString(out.data(), 16), std::string("001") + "00110101" + "010" + "1" + "0");
}

TEST_F(Group4Rows, FirstRowOfThePictureIsCodedAgainstAnAllWhiteLine) {
    Picture row(40, 1, true);
    row.Span(5, 9, 0, false);
    row.Span(30, 40, 0, false);
    Bits expected;
    uint8_t allWhite[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    g4model::Code(expected, row.Row(0), 40, 1, row.stride, allWhite);
    EXPECT_EQ(Group4Picture(row), expected.Bytes());
}

TEST_F(Group4Rows, FirstRowOfALaterBandIsCodedAgainstTheLastRowOfTheBandBefore) {
    Picture p(40, 3, true);
    p.FillRow(1, false);  // the last row of the first band: all black; the row after it all white
    NewPicture();
    Group4Band(p, 0, 2);
    Rec().gp4_BitOffset = 0;  // no byte to read back: this test has no stream
    std::vector<uint8_t> second = Group4Band(p, 2, 1);
    Bits expected;
    g4model::Code(expected, p.Row(2), 40, 1, p.stride, p.Row(1));
    EXPECT_EQ(second, expected.Bytes());
    Bits againstWhite;
    g4model::Code(againstWhite, p.Row(2), 40, 1, p.stride, nullptr);
    EXPECT_NE(second, againstWhite.Bytes());
}

TEST_F(Group4Rows, WidePictureNeverWritesPastATinyOutputBuffer) {
    // Runs longer than 2560 emit many make-up codes in one step; the buffer
    // starts at one byte and must grow before every such step.
    const uint32_t w = 65535;
    Picture p(w, 6, true);
    p.Span(1, w, 0, false);             // white 1, black 65534
    p.Span(0, 30000, 1, false);
    p.Span(40000, w - 1, 2, false);
    p.Span(0, w, 4, false);
    p.Set(w - 1, 5, false);
    NewPicture();
    for (bool rowSearch : {false, true}) {
        mivo4::g4::gForceRowSearch = rowSearch;
        NewPicture();
        std::vector<uint8_t> out = Group4Band(p, 0, p.height, 1);
        mivo4::g4::gForceRowSearch = false;
        EXPECT_EQ(out, g4model::Code(p).Bytes()) << "row search " << rowSearch;
    }
}

TEST_F(Group4Rows, ZeroWidthRowsCodeAsOneV0Each) {
    uint8_t none[1] = {0};
    ZHANDLE h = GlobalAlloc(GHND, 0);
    EXPECT_EQ(Group4(none, &h, 0, 4, 0), 1u);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(static_cast<uint8_t *>(GlobalLock(h))[0], 0xF0);
    GlobalFree(h);
}

// ---- Guards ------------------------------------------------------------------------

TEST_F(Group4Rows, WithoutACurrentSetupNothingIsCoded) {
    Picture p(16, 2, false);
    ZHANDLE h = GlobalAlloc(GHND, 4);
    lpRaster = nullptr;
    EXPECT_EQ(Group4(p.bits.data(), &h, 16, 2, 2), 0u);
    EXPECT_EQ(Encode(0, p.bits.data(), 4, 16, 2), -1);
    lpRaster = setup_.get();
    EXPECT_NE(h, 0u);
    GlobalFree(h);
}

TEST_F(Group4Rows, RowsTooShortForTheWidthAreRefused) {
    Picture p(16, 2, false);
    uint32_t live = LiveHandles();
    EXPECT_EQ(Encode(0, p.bits.data(), 3, 16, 2), -1);  // 1 byte a row for 16 pixels
    EXPECT_EQ(LiveHandles(), live);
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 0);
}

TEST_F(Group4Rows, NoRowsCodeToNothing) {
    uint8_t none[1] = {0};
    uint32_t live = LiveHandles();
    EXPECT_EQ(Encode(0, none, 0, 8, 0), 0);
    EXPECT_EQ(LiveHandles(), live);
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 0);
}

TEST_F(Group4Rows, ASavedReferenceRowThatIsGoneCodesAgainstAnAllWhiteLine) {
    // The driver close frees the reference block but leaves the state saved.
    Picture p(24, 2, true);
    p.Span(3, 9, 0, false);
    p.Span(4, 20, 1, false);
    Rec().gp4_stateInfoSaved = 1;
    Rec().gp4_refLine = 0;
    Rec().gp4_BitOffset = 0;
    std::vector<uint8_t> out = Group4Band(p, 0, 2);
    EXPECT_EQ(out, g4model::Code(p).Bytes());
    EXPECT_NE(Rec().gp4_refLine, 0u);
    EXPECT_GE(GlobalSize(Rec().gp4_refLine), p.stride);
}

// ---- Out of memory, cancel, failing stream -----------------------------------------

class EncodeFailures : public g4test::CoderTest {
protected:
    void SetUp() override {
        CoderTest::SetUp();
        path_ = g4test::ScratchFile("encode-failures.gp4");
        out_ = zepOpen(path_.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        ASSERT_NE(out_, 0u);
        Rec().FileHandle = out_;
    }
    void TearDown() override {
        if (out_ != 0) zepClose(out_);
        FailNth(0);
        CoderTest::TearDown();
    }
    std::vector<uint8_t> Written() {
        zepClose(out_);
        out_ = 0;
        return g4test::ReadFile(path_);
    }
    std::string path_;
    HZEPIO out_ = 0;
};

TEST_F(EncodeFailures, OutputBufferAllocationFailureAnswersMinusOneAndWritesNothing) {
    Picture p = g4test::Noise(100, 10, 30, 1);
    uint32_t live = LiveHandles();
    FailNth(1);  // Encode's output buffer
    EXPECT_EQ(Encode(out_, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), -1);
    EXPECT_EQ(LiveHandles(), live);
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 0) << "the band state is untouched";
    EXPECT_TRUE(Written().empty());
}

TEST_F(EncodeFailures, ReferenceRowAllocationFailureAnswersZeroAndWritesNothing) {
    Picture p = g4test::Noise(100, 10, 30, 2);
    uint32_t live = LiveHandles();
    FailNth(2);  // the reference row of the picture's first band
    EXPECT_EQ(Encode(out_, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), 0);
    EXPECT_EQ(LiveHandles(), live) << "the output buffer is freed";
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 0);
    EXPECT_EQ(Rec().gp4_refLine, 0u);
    EXPECT_TRUE(Written().empty());
}

TEST_F(EncodeFailures, ReferenceRowAllocationFailureInGroup4AnswersZeroAndKeepsTheBuffer) {
    Picture p = g4test::Noise(64, 4, 30, 3);
    ZHANDLE h = GlobalAlloc(GHND, 32);
    FailNth(1);
    EXPECT_EQ(Group4(p.bits.data(), &h, 64, 4, 8), 0u);
    EXPECT_NE(GlobalLock(h), nullptr);
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 0);
    GlobalFree(h);
}

TEST_F(EncodeFailures, GrowthFailurePushesError300AndWritesNothing) {
    ASSERT_EQ(AllocGlobal(0), 0);  // the driver's error stack
    // Half-black noise codes to more bytes than the rows hold: the buffer grows.
    Picture p = g4test::Noise(400, 60, 50, 4);
    uint32_t live = LiveHandles();
    FailNth(3);  // output buffer, reference row, then the first growth
    EXPECT_EQ(Encode(out_, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), -1);
    auto *driver = static_cast<MoRastData *>(lpEMData);
    EXPECT_EQ(driver->errep.code, 300);
    EXPECT_EQ(LiveHandles(), live + 1) << "only the saved reference row remains";
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 1);
    FreeGlobal(0);
    EXPECT_TRUE(Written().empty());
}

TEST_F(EncodeFailures, GrowthFailureInGroup4ClearsTheHandle) {
    Picture p = g4test::Noise(400, 60, 50, 5);
    ZHANDLE h = GlobalAlloc(GHND, 16);
    uint32_t live = LiveHandles();
    FailNth(2);  // reference row, then the first growth
    Group4(p.bits.data(), &h, p.width, p.height, p.stride);
    EXPECT_EQ(h, 0u);
    EXPECT_EQ(LiveHandles(), live) << "the old buffer is gone, the reference row is new";
}

TEST_F(EncodeFailures, StreamThatFailsToWriteAnswersMinusOne) {
    Picture p = g4test::Noise(100, 10, 30, 6);
    EXPECT_EQ(Encode(0, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), -1);
}

int32_t RefusingStream(intptr_t, int32_t op, intptr_t, intptr_t) {
    return op == ZEP_CB_OPEN ? 1 : 0;  // opens, then writes nothing
}

TEST_F(EncodeFailures, HostStreamThatWritesNothingAnswersMinusOne) {
    IOINFO info{};
    info.pIOProc = RefusingStream;
    HZEPIO h = zepOpen("host", &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Picture p = g4test::Noise(100, 10, 30, 7);
    EXPECT_EQ(Encode(h, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), -1);
    zepClose(h);
}

// ---- The status callback ----------------------------------------------------------

struct StatusLog {
    std::vector<intptr_t> values;  // a5 of every progress report
    int cancelAt = 0;              // answer non-zero to this report (1-based); 0: never
    int requests = 0;
};
StatusLog *gLog = nullptr;

int32_t Status(intptr_t hostData, int32_t op, int32_t item, intptr_t a4, intptr_t a5, intptr_t a6,
               intptr_t a7) {
    EXPECT_EQ(hostData, 4711);
    if (op == 2 && item == 61) return 1;  // the second question: yes, stop
    EXPECT_EQ(op, 0);
    EXPECT_EQ(item, 0);
    EXPECT_EQ(a4, 0);
    EXPECT_EQ(a6, 0);
    EXPECT_EQ(a7, 0);
    gLog->values.push_back(a5);
    return ++gLog->requests == gLog->cancelAt ? 1 : 0;
}

class StatusReports : public g4test::CoderTest {
protected:
    void SetUp() override {
        CoderTest::SetUp();
        options_.GetSet_Status = Status;
        options_.hDialog = 4711;
        Rec().lpExport = &options_;
        gLog = &log_;
    }
    void TearDown() override {
        gLog = nullptr;
        CoderTest::TearDown();
    }
    EXPORT_OPTIONS options_{};
    StatusLog log_;
};

TEST_F(StatusReports, EveryBandReportsFrom50To100) {
    Picture p = g4test::Noise(300, 230, 20, 8);
    NewPicture();
    for (auto [first, count] : {std::pair{0u, 10u}, {10u, 200u}, {210u, 1u}, {211u, 19u}}) {
        log_.values.clear();
        Group4Band(p, first, count);
        Rec().gp4_BitOffset = 0;  // no stream here: nothing to read back
        ASSERT_FALSE(log_.values.empty());
        // Each value of 50 + (row + 1) * 50 / rows, once, in order.
        std::vector<intptr_t> expected;
        for (uint32_t r = 0; r < count; ++r) {
            intptr_t v = 50 + static_cast<intptr_t>((r + 1) * 50.0 / count);
            if (expected.empty() || expected.back() != v) expected.push_back(v);
        }
        EXPECT_EQ(log_.values, expected) << "band of " << count;
        EXPECT_GE(log_.values.front(), 50);
        EXPECT_EQ(log_.values.back(), 100);
    }
}

TEST_F(StatusReports, CancelAnswersZeroAndSavesTheBandState) {
    Picture p = g4test::Noise(300, 40, 20, 9);
    log_.cancelAt = 3;
    std::vector<uint8_t> out = Group4Picture(p);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(log_.values.size(), 3u) << "nothing is reported after the cancel";
    EXPECT_EQ(Rec().gp4_stateInfoSaved, 1);
    // The reference row is the last row finished before the cancel.
    ASSERT_NE(Rec().gp4_refLine, 0u);
    const uint8_t *saved = static_cast<const uint8_t *>(GlobalLock(Rec().gp4_refLine));
    // With 40 rows every row has its own value: the third report comes
    // before the third row, after two finished rows.
    const uint32_t rowsDone = 2;
    EXPECT_EQ(std::memcmp(saved, p.Row(rowsDone - 1), p.stride), 0);
    // The bit offset is that of the coding position at the cancel.
    Bits upTo;
    g4model::Code(upTo, p.bits.data(), p.width, rowsDone, p.stride, nullptr);
    EXPECT_EQ(Rec().gp4_BitOffset, upTo.Size() % 8);
}

TEST_F(StatusReports, CancelledEncodeWritesNothingAndAnswersZero) {
    std::string path = g4test::ScratchFile("encode-cancel.gp4");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Rec().FileHandle = h;
    Picture p = g4test::Noise(300, 40, 20, 10);
    log_.cancelAt = 1;
    uint32_t live = LiveHandles();
    EXPECT_EQ(Encode(h, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height), 0);
    EXPECT_EQ(LiveHandles(), live + 1) << "the output buffer is freed; the reference row stays";
    zepClose(h);
    EXPECT_TRUE(g4test::ReadFile(path).empty());
}

TEST_F(StatusReports, NoReportsWithoutExportOptions) {
    Rec().lpExport = nullptr;
    Picture p = g4test::Noise(50, 5, 20, 11);
    EXPECT_EQ(Group4Picture(p), g4model::Code(p).Bytes());
    EXPECT_TRUE(log_.values.empty());
}

}  // namespace
