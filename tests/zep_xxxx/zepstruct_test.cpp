// Structure layouts: the documented edge cases, the quirks kept on purpose,
// and descriptors a host might get wrong. Expected memory images are worked
// out by hand from the alignment rules.
#include <string>

#include "zep_xxxx/zepstruct.h"
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

// A read-only file stream over the given bytes, closed at the end.
class StreamOver {
public:
    explicit StreamOver(const Bytes &bytes, int16_t endian = 0, int16_t real = 0) {
        path_ = dir_.Path("packed.bin");
        WriteFile(path_, bytes);
        h = zepOpen(path_.c_str(), nullptr, ZEP_OPEN_READ);
        EXPECT_NE(h, 0u);
        zepSetDataFormat(h, endian, real);
    }
    ~StreamOver() { zepClose(h); }
    int32_t Position() { return zepSeek(h, 0, 1); }
    HZEPIO h = 0;

private:
    TempDir dir_;
    std::string path_;
};

// A stream being written; Bytes() closes it and returns what it holds.
class StreamInto {
public:
    explicit StreamInto(int16_t endian = 0, int16_t real = 0) {
        path_ = dir_.Path("written.bin");
        h = zepOpen(path_.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        EXPECT_NE(h, 0u);
        zepSetDataFormat(h, endian, real);
    }
    ~StreamInto() {
        if (h != 0) zepClose(h);
    }
    Bytes Contents() {
        zepClose(h);
        h = 0;
        return ReadFile(path_);
    }
    HZEPIO h = 0;

private:
    TempDir dir_;
    std::string path_;
};

constexpr uint8_t kFill = 0xAA;  // what memory held before a read

TEST(StructLayout, ByteThenLongReadsFiveStreamBytesIntoEightMemoryBytes) {
    LeakCheck leaks;
    StreamOver s(B({0x11, 0x01, 0x02, 0x03, 0x04}));
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "CL", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({0x11, 0, 0, 0, 0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(s.Position(), 5);
    EXPECT_EQ(mivo4::zep::LayoutRecordSize("CL", false), 8);
}

TEST(StructLayout, ABlankInTheDescriptorIsAnUnknownCharacter) {
    LeakCheck leaks;
    StreamOver s(B({0x11, 0x01, 0x02, 0x03, 0x04, 0x22, 1, 2, 3, 4}));
    Bytes memory(16, kFill);
    // The blank makes the running result -1; finishing the record adds 1.
    EXPECT_EQ(zepReadStruct(s.h, "C L", memory.data(), 1), 0);
    EXPECT_EQ(Bytes(memory.begin(), memory.begin() + 8), B({0x11, 0, 0, 0, 0x01, 0x02, 0x03, 0x04}));
}

TEST(StructLayout, UnknownCharacterResultCountsUpFromMinusOneForLaterRecords) {
    LeakCheck leaks;
    Bytes stream = Pattern(64);
    StreamOver s(stream);
    Bytes memory(64, kFill);
    // The error is met in every record: -1 + 1 each time.
    EXPECT_EQ(zepReadStruct(s.h, "C?", memory.data(), 3), 0);
    EXPECT_EQ(s.Position(), 3);
    Bytes memory2(64, kFill);
    StreamOver t(stream);
    EXPECT_EQ(zepReadStruct(t.h, "2C", memory2.data(), 3), 3);
}

TEST(StructLayout, TwoShortsAndADoubleLeaveFourZeroBytesBeforeTheDouble) {
    LeakCheck leaks;
    Bytes stream = B({1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F});  // 1, 2, 1.0
    StreamOver s(stream);
    Bytes memory(16, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "2SD", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    EXPECT_EQ(s.Position(), 12);
}

TEST(StructLayout, NestedStructureHasNoTailPaddingAndTheGapBeforeAShortIsLeftAlone) {
    LeakCheck leaks;
    StreamOver s(B({0x11, 0x34, 0x12, 0x22}));
    Bytes memory(6, kFill);
    EXPECT_EQ(GetPadWidth("{CS}C"), 2);
    EXPECT_EQ(zepReadStruct(s.h, "{CS}C", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({0x11, kFill, 0x34, 0x12, 0x22, 0}));
    EXPECT_EQ(mivo4::zep::LayoutRecordSize("{CS}C", false), 6);
}

TEST(StructLayout, MemoryOnlyStretchIsNeitherReadNorTouched) {
    LeakCheck leaks;
    StreamOver s(B({0x34, 0x12, 0x99}));
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "[L]S", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({kFill, kFill, kFill, kFill, 0x34, 0x12, 0, 0}));
    EXPECT_EQ(s.Position(), 2);
}

TEST(StructLayout, ReadingMoreRecordsThanTheStreamHoldsReturnsTheFailingReadsResult) {
    LeakCheck leaks;
    // 3.5 records of "SL" (6 stream bytes each).
    StreamOver s(Pattern(21));
    Bytes memory(80, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "SL", memory.data(), 10), 0);
}

TEST(StructLayout, RecordsFollowOneAnotherAtTheRecordSize) {
    LeakCheck leaks;
    StreamOver s(B({1, 0x10, 0, 0, 0, 2, 0x20, 0, 0, 0}));
    Bytes memory(16, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "cl", memory.data(), 2), 2);  // letters in either case
    EXPECT_EQ(memory, B({1, 0, 0, 0, 0x10, 0, 0, 0, 2, 0, 0, 0, 0x20, 0, 0, 0}));
}

TEST(StructLayout, BigEndianStreamValuesAreConvertedToNativeOnes) {
    LeakCheck leaks;
    StreamOver s(B({0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0x00, 0x01, 0x80, 0x00}), 1, 1);
    struct {
        int16_t s;
        int32_t l;
        float f;
    } record{};
    static_assert(sizeof record == 12);
    EXPECT_EQ(zepReadStruct(s.h, "SLF", &record, 1), 1);
    EXPECT_EQ(record.s, 0x1234);
    EXPECT_EQ(record.l, 0x01020304);
    EXPECT_EQ(record.f, 1.5f);
}

TEST(StructLayout, RepeatCountsApplyToTheFollowingLetter) {
    LeakCheck leaks;
    StreamOver s(B({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    Bytes memory(12, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "3C2S", memory.data(), 1), 1);
    // 3 bytes, the gap before the shorts untouched, 2 shorts.
    EXPECT_EQ(Bytes(memory.begin(), memory.begin() + 8), B({1, 2, 3, kFill, 4, 5, 6, 7}));
}

TEST(StructLayout, ZeroRepeatCountReadsNothingAndStopsTheRead) {
    LeakCheck leaks;
    StreamOver s(Pattern(16));
    Bytes memory(16, kFill);
    // A typed read of no items returns 0, and a read under 1 stops.
    EXPECT_EQ(zepReadStruct(s.h, "C0LC", memory.data(), 2), 0);
    EXPECT_EQ(s.Position(), 1);
}

TEST(StructLayout, UnionTakesOneSlotOfItsAlignmentAndReadsNothing) {
    LeakCheck leaks;
    StreamOver s(B({0x11, 0x22}));
    Bytes memory(12, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "C(L|2S|)C", memory.data(), 1), 1);
    // byte, zeroed gap to 4, the 4-byte slot untouched, byte, zeroed tail.
    EXPECT_EQ(memory, B({0x11, 0, 0, 0, kFill, kFill, kFill, kFill, 0x22, 0, 0, 0}));
    EXPECT_EQ(s.Position(), 2);
}

TEST(StructLayout, UnionAsWideAsTwoAlignmentsStillTakesOneSlot) {
    LeakCheck leaks;
    StreamOver s(B({0x11}));
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "(2L|)C", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({kFill, kFill, kFill, kFill, 0x11, 0, 0, 0}));
}

TEST(StructLayout, WriteStoresFieldsPackedWithoutGaps) {
    LeakCheck leaks;
    StreamInto s;
    Bytes memory = B({0x11, 0xEE, 0xEE, 0xEE, 1, 2, 3, 4, 0x34, 0x12, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                      0, 0, 0, 0, 0, 0, 0xF0, 0x3F});
    EXPECT_EQ(zepWriteStruct(s.h, "CLSD", memory.data(), 1), 1);
    EXPECT_EQ(s.Contents(), B({0x11, 1, 2, 3, 4, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(StructLayout, WriteKnowsNoUnionsAndNoP) {
    LeakCheck leaks;
    StreamInto s;
    Bytes memory = B({1, 2, 3, 4, 5, 6, 7, 8});
    // "(" and ")" are errors, the fields between them are written flat.
    EXPECT_EQ(zepWriteStruct(s.h, "(L|)", memory.data(), 1), 0);
    EXPECT_EQ(s.Contents(), B({1, 2, 3, 4}));
    StreamInto t;
    EXPECT_EQ(zepWriteStruct(t.h, "PC", memory.data(), 2), 0);
    EXPECT_EQ(t.Contents(), B({1, 2}));
}

TEST(StructLayout, ReadIgnoresPAndStrayClosingBrackets) {
    LeakCheck leaks;
    StreamOver s(B({1, 2}));
    Bytes memory(2, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "P)|}C}C", memory.data(), 1), 1);
    EXPECT_EQ(memory, B({1, 2}));
}

TEST(StructLayout, WriteStopsAtTheFirstFailingWriteAndReturnsItsResult) {
    LeakCheck leaks;
    FakeHost host;
    host.failWriteAt = 2;
    host.writeFailure = -1;
    IOINFO info{};
    info.pIOProc = FakeHost::Proc;
    HZEPIO h = zepOpen("x", &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Bytes memory(64, 1);
    EXPECT_EQ(zepWriteStruct(h, "CC", memory.data(), 5), -1);
    EXPECT_EQ(host.writes, 3);
    zepClose(h);
}

TEST(StructLayout, WriteSkipsMemoryOnlyStretches) {
    LeakCheck leaks;
    StreamInto s;
    Bytes memory = B({1, 2, 3, 4, 5, 6, 0, 0});
    EXPECT_EQ(zepWriteStruct(s.h, "[L]S", memory.data(), 1), 1);
    EXPECT_EQ(s.Contents(), B({5, 6}));
}

TEST(StructLayout, PadWidthIsEightAsSoonAsADoubleIsMet) {
    EXPECT_EQ(GetPadWidth("CSD"), 8);
    EXPECT_EQ(GetPadWidth("CSL"), 4);
    EXPECT_EQ(GetPadWidth("CSF"), 4);
    EXPECT_EQ(GetPadWidth("CS"), 2);
    EXPECT_EQ(GetPadWidth("C"), 1);
    EXPECT_EQ(GetPadWidth(""), 1);
    EXPECT_EQ(GetPadWidth("cd"), 8);
}

TEST(StructLayout, PadWidthOfABracketEndsWithTheBracket) {
    EXPECT_EQ(GetPadWidth("{CS}D"), 2);
    EXPECT_EQ(GetPadWidth("{C{L}S}D"), 4);
    EXPECT_EQ(GetPadWidth("(S|)L"), 2);
    EXPECT_EQ(GetPadWidth("{CS)L"), 2) << "any closing bracket lowers the depth";
    EXPECT_EQ(GetPadWidth("{CS"), 2) << "an unclosed bracket runs to the end";
    EXPECT_EQ(GetPadWidth("C{S}L"), 4) << "from a field the scan runs to the end";
}

TEST(StructLayout, UnionSizeIsTheLargestClosedAlternative) {
    int32_t size = -1;
    const char *d = "(L|2S|C)";
    EXPECT_EQ(GetUnionSize(d, &size), d + 7);
    EXPECT_EQ(size, 4);
    d = "(C|D|)";
    EXPECT_EQ(GetUnionSize(d, &size), d + 5);
    EXPECT_EQ(size, 8);
    d = "(CL|3C|)";
    GetUnionSize(d, &size);
    EXPECT_EQ(size, 8) << "a field is aligned to its own alignment within an alternative";
}

TEST(StructLayout, UnionSizeLeavesOutTheLastAlternativeWithoutABar) {
    int32_t size = -1;
    GetUnionSize("(C|4L)", &size);
    EXPECT_EQ(size, 1);
    GetUnionSize("(4L)", &size);
    EXPECT_EQ(size, 0);
}

TEST(StructLayout, UnionSizeAddsANestedUnionsAlignmentAndAlignsAtABrace) {
    int32_t size = -1;
    const char *d = "(C(D|)|)";
    EXPECT_EQ(GetUnionSize(d, &size), d + 7);
    EXPECT_EQ(size, 9);
    GetUnionSize("(C{S}|)", &size);
    EXPECT_EQ(size, 4) << "the brace aligns to 2 and adds nothing; the S inside adds 2 more";
}

TEST(StructLayout, UnionSizeStopsAtTheEndOfAnUnclosedUnion) {
    int32_t size = -1;
    const char *d = "(L|S";
    EXPECT_EQ(GetUnionSize(d, &size), d + 4);
    EXPECT_EQ(size, 4);
}

TEST(StructLayout, UnclosedUnionEndsTheWalk) {
    LeakCheck leaks;
    StreamOver s(B({0x11, 0x22}));
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "C(L|C", memory.data(), 1), 1);
    EXPECT_EQ(s.Position(), 1);
    EXPECT_EQ(mivo4::zep::LayoutRecordSize("C(L|C", false), 8);
}

TEST(StructLayout, HugeRepeatCountIsRefusedLikeAnUnknownCharacter) {
    LeakCheck leaks;
    StreamOver s(B({1, 2, 3}));
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(s.h, "4294967296LC", memory.data(), 1), 0);
    EXPECT_EQ(memory[0], 1);
    EXPECT_EQ(mivo4::zep::LayoutRecordSize("4294967296LC", false), 4) << "the refused L still sets the record alignment";
    EXPECT_EQ(mivo4::zep::LayoutRecordSize("99999999999999999999999999C", false), 0);
}

TEST(StructLayout, TenThousandNestedBracesAreWalkedWithoutRecursion) {
    LeakCheck leaks;
    std::string d(10000, '{');
    d += "SC";
    StreamOver s(B({1, 2, 3}));
    Bytes memory(4, kFill);
    EXPECT_EQ(mivo4::zep::LayoutRecordSize(d.c_str(), false), 4);
    EXPECT_EQ(zepReadStruct(s.h, d.c_str(), memory.data(), 1), 1);
    EXPECT_EQ(memory, B({1, 2, 3, 0}));
    std::string u(10000, '(');
    int32_t size = -1;
    EXPECT_EQ(GetUnionSize(u.c_str(), &size), u.c_str() + u.size());
    EXPECT_EQ(mivo4::zep::LayoutRecordSize(u.c_str(), false), 1);
}

TEST(StructLayout, NoStreamOrNoMemoryReadsNothing) {
    LeakCheck leaks;
    Bytes memory(8, kFill);
    EXPECT_EQ(zepReadStruct(0, "CL", memory.data(), 1), 0);
    EXPECT_EQ(zepWriteStruct(0, "CL", memory.data(), 1), 0);
    StreamOver s(Pattern(8));
    EXPECT_EQ(zepReadStruct(s.h, nullptr, memory.data(), 1), 0);
    EXPECT_EQ(zepReadStruct(s.h, "C", nullptr, 1), 0);
    EXPECT_EQ(zepReadStruct(s.h, "C", memory.data(), 0), 0);
    EXPECT_EQ(zepReadStruct(s.h, "C", memory.data(), -3), 0);
    EXPECT_EQ(GetPadWidth(nullptr), 1);
}

}  // namespace
