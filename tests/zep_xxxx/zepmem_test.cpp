// Memory streams: the caller's block, its end marker, trimming on reopen, and
// growth by whole steps with the caller's pointer following the block.
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

TEST(MemoryStream, MemoryStreamClosedAfterWritingHoldsBytesThenEndMarker) {
    LeakCheck leaks;
    CallerBlock block(16);
    IOINFO info = block.Info(static_cast<int32_t>(block.Size()));
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "ABC", 3), 3);
    EXPECT_EQ(zepClose(h), 0);
    ASSERT_NE(block.ptr, nullptr) << "the block stays the caller's";
    Bytes expected(block.Size(), 0);
    const uint8_t written[] = {'A', 'B', 'C', 0xFF};
    std::copy(std::begin(written), std::end(written), expected.begin());
    EXPECT_EQ(block.Contents(), expected);
}

TEST(MemoryStream, ReopenedMemoryStreamReadsTheDataWithoutMarkerAndShortensTheLength) {
    LeakCheck leaks;
    CallerBlock block(16);
    IOINFO info = block.Info(16);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "ABC", 3), 3);
    EXPECT_EQ(zepClose(h), 0);

    IOINFO again = block.Info(static_cast<int32_t>(block.Size()));
    h = zepOpen(nullptr, &again, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(again.lBuffer, 3);
    char got[8] = {};
    EXPECT_EQ(zepRead(h, got, 8), 3);
    EXPECT_STREQ(got, "ABC");
    EXPECT_EQ(zepRead(h, got, 8), 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, HandWrittenBlockLosesTrailingZerosAndItsLastNonZeroByte) {
    LeakCheck leaks;
    CallerBlock block(10);
    std::memcpy(block.ptr, "hello\0\0", 7);
    IOINFO info = block.Info(10);
    HZEPIO h = zepOpen("", &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 4) << "the last non-zero byte is taken for the end marker";
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufRead, 3);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufWrite, 3);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndOfFilePos, 3);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, DataEndingInZerosSurvivesCloseAndReopenThanksToTheMarker) {
    LeakCheck leaks;
    CallerBlock block(1);
    IOINFO info = block.Info(1);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Bytes data = B({1, 2, 0, 0, 0});
    EXPECT_EQ(zepWrite(h, data.data(), 5), 5);
    EXPECT_EQ(zepClose(h), 0);
    IOINFO again = block.Info(static_cast<int32_t>(block.Size()));
    h = zepOpen(nullptr, &again, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(again.lBuffer, 5);
    Bytes got(8, 0xEE);
    EXPECT_EQ(zepRead(h, got.data(), 8), 5);
    got.resize(5);
    EXPECT_EQ(got, data);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, AllZeroBlockReopensAsEmptyWithLengthZero) {
    LeakCheck leaks;
    CallerBlock block(64);
    IOINFO info = block.Info(64);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 0);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufRead, -1);
    char c;
    EXPECT_EQ(zepRead(h, &c, 1), 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, LengthBeyondTheBlockIsTakenAsTheBlockSize) {
    LeakCheck leaks;
    CallerBlock block(8);
    std::memcpy(block.ptr, "abcdefg\xFF", 8);
    IOINFO info = block.Info(1000000);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 7);
    EXPECT_EQ(zepClose(h), 0);
    IOINFO negative = block.Info(-5);
    h = zepOpen(nullptr, &negative, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(negative.lBuffer, 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, CreateFlagTakesTheBlockAsEmpty) {
    LeakCheck leaks;
    CallerBlock block(32);
    std::memcpy(block.ptr, "old data\xFF", 9);
    IOINFO info = block.Info(32);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 32) << "the caller's length is left alone";
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufRead, -1);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufWrite, 31);
    EXPECT_EQ(Record(h)->ZepIOBuff.lFileOffset, -1);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndOfFilePos, -1);
    char c;
    EXPECT_EQ(zepRead(h, &c, 1), 0);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::memcmp(block.ptr, "old data\xFF", 9), 0) << "create alone (no write bit) adds no marker";
}

TEST(MemoryStream, ReadOnlyStreamGetsNoMarkerAtClose) {
    LeakCheck leaks;
    CallerBlock block(8);
    std::memcpy(block.ptr, "abc\xFF", 4);
    Bytes before = block.Contents();
    IOINFO info = block.Info(8);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    char got[3];
    EXPECT_EQ(zepRead(h, got, 3), 3);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(block.Contents(), before);
}

TEST(MemoryStream, UpdateStreamOverwritesInPlaceAndMarksTheEndAgain) {
    LeakCheck leaks;
    CallerBlock block(16);
    std::memcpy(block.ptr, "abcdef\xFF", 7);
    IOINFO info = block.Info(16);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 6);
    EXPECT_EQ(zepSeek(h, 2, 0), 2);
    EXPECT_EQ(zepWrite(h, "XY", 2), 2);
    EXPECT_EQ(zepSeek(h, 0, 2), 6);
    EXPECT_EQ(zepWrite(h, "gh", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::memcmp(block.ptr, "abXYefgh\xFF", 9), 0);
    for (uint32_t i = 9; i < block.Size(); ++i) EXPECT_EQ(block.ptr[i], 0) << i;
}

TEST(MemoryStream, ReadOnlyStreamCannotBePositionedJustPastItsDataFromTheStart) {
    LeakCheck leaks;
    CallerBlock block(8);
    std::memcpy(block.ptr, "abcd\xFF", 5);
    IOINFO info = block.Info(8);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 3, 0), 3);
    // Its bound is the index of the last byte, not the length.
    EXPECT_EQ(zepSeek(h, 4, 0), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepSeek(h, 0, 2), 4) << "from the end it can";
    char c;
    EXPECT_EQ(zepRead(h, &c, 1), 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, SeeksMoveTheIndexAndReportThePosition) {
    LeakCheck leaks;
    CallerBlock block(32);
    IOINFO info = block.Info(32);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 0, 1), 0);
    EXPECT_EQ(zepWrite(h, "0123456789", 10), 10);
    EXPECT_EQ(zepSeek(h, 0, 1), 10);
    EXPECT_EQ(zepSeek(h, -4, 1), 6);
    char c;
    EXPECT_EQ(zepRead(h, &c, 1), 1);
    EXPECT_EQ(c, '6');
    EXPECT_EQ(zepSeek(h, -3, 2), 7);
    EXPECT_EQ(zepRead(h, &c, 1), 1);
    EXPECT_EQ(c, '7');
    EXPECT_EQ(zepSeek(h, 20, 0), 20) << "inside the block, past the data";
    EXPECT_EQ(zepRead(h, &c, 1), 0);
    EXPECT_EQ(zepSeek(h, -11, 2), -1) << "before the start";
    EXPECT_EQ(zepSeek(h, -1, 0), -1);
    EXPECT_EQ(zepSeek(h, 0, 7), -1) << "unknown whence";
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepClose(h), -1) << "the marker cannot be written to a stream in error";
}

TEST(MemoryStream, SeekPastTheWritableEndGrowsTheBlockAndMovesTheCallersPointer) {
    LeakCheck leaks;
    CallerBlock block(16);
    IOINFO info = block.Info(16, 100);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    uint8_t *before = block.ptr;
    EXPECT_EQ(zepSeek(h, 1000, 0), 1000);
    EXPECT_NE(block.ptr, before);
    EXPECT_EQ(block.Size(), 1000u + 100u + 1u);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufWrite, 1100);
    EXPECT_EQ(Record(h)->ZepIOBuff.hFileBuffer, block.Handle());
    EXPECT_EQ(zepWrite(h, "z", 1), 1);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(block.ptr[1000], 'z');
    EXPECT_EQ(block.ptr[1001], 0xFF);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(block.ptr[i], 0) << i;
}

TEST(MemoryStream, FlushGrowsTheBlockByOneStepAndReturnsOne) {
    LeakCheck leaks;
    CallerBlock block(10);
    IOINFO info = block.Info(10, 7);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(Record(h)->ZepIOBuff.iBufWritten, 1);
    uint8_t *before = block.ptr;
    EXPECT_EQ(FlushZepIO(h), 1);
    EXPECT_NE(block.ptr, before);
    EXPECT_EQ(block.Size(), 17u);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufWrite, 16);
    EXPECT_EQ(Record(h)->ZepIOBuff.iBufWritten, 0);
    EXPECT_EQ(std::memcmp(block.ptr, "abc", 3), 0);
    EXPECT_EQ(FillZepIOBuf(h), 0) << "a memory stream has nothing more to load";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, WritingExactlyToTheWritableEndGrowsTheBlockAtOnce) {
    LeakCheck leaks;
    CallerBlock block(8);
    IOINFO info = block.Info(8, 4);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "1234567", 7), 7);
    EXPECT_EQ(block.Size(), 8u);
    EXPECT_EQ(zepWrite(h, "8", 1), 1);
    EXPECT_EQ(block.Size(), 12u) << "the write position passed the last writable byte";
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::memcmp(block.ptr, "12345678\xFF", 9), 0);
}

// The block size after every write is checked against the simplest account of
// growth: one step each time the write position passes the last writable byte.
void GrowThroughManySteps(uint32_t growth, const size_t *sizes, size_t nSizes) {
    LeakCheck leaks;
    constexpr size_t kTotal = 1u << 20;
    Bytes data = Pattern(kTotal, growth);
    CallerBlock block(16);
    IOINFO info = block.Info(16, growth);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    int64_t lastWritable = 15;
    int64_t next = 0;
    int moves = 0;
    size_t at = 0;
    for (size_t i = 0; at < kTotal; ++i) {
        size_t n = std::min(sizes[i % nSizes], kTotal - at);
        uint8_t *before = block.ptr;
        ASSERT_EQ(zepWrite(h, data.data() + at, static_cast<int32_t>(n)), static_cast<int32_t>(n));
        for (size_t k = 0; k < n; ++k) {
            ++next;
            if (next > lastWritable) lastWritable += growth;
        }
        at += n;
        if (block.ptr != before) ++moves;
        ASSERT_NE(block.ptr, nullptr);
        ASSERT_EQ(block.Handle(), Record(h)->ZepIOBuff.hFileBuffer) << "the caller's pointer is the block's";
        ASSERT_EQ(block.Size(), static_cast<uint64_t>(lastWritable + 1)) << "after " << at << " bytes";
        ASSERT_EQ(std::memcmp(block.ptr, data.data(), at), 0);
    }
    EXPECT_GT(moves, 10) << "the block moved as it grew";
    EXPECT_EQ(zepClose(h), 0);
    ASSERT_EQ(std::memcmp(block.ptr, data.data(), kTotal), 0);
    EXPECT_EQ(block.ptr[kTotal], 0xFF);

    IOINFO again = block.Info(static_cast<int32_t>(block.Size()));
    h = zepOpen(nullptr, &again, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(again.lBuffer, static_cast<int32_t>(kTotal));
    Bytes back(kTotal + 10);
    EXPECT_EQ(zepRead(h, back.data(), static_cast<int32_t>(back.size())), static_cast<int32_t>(kTotal));
    back.resize(kTotal);
    EXPECT_TRUE(back == data);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(MemoryStream, OneMegabyteInOddChunksGrowsByStepsOf4096) {
    const size_t sizes[] = {1, 3, 4095, 4097, 777, 12289, 5, 8191, 65537, 33};
    GrowThroughManySteps(4096, sizes, std::size(sizes));
}

TEST(MemoryStream, OneMegabyteInOddChunksGrowsByStepsOfOneByte) {
    const size_t sizes[] = {1, 3, 4097, 12289, 777, 65537, 5, 20011};
    GrowThroughManySteps(1, sizes, std::size(sizes));
}

TEST(MemoryStream, GrowthStepOfZeroGrowsAsMuchAsEachWriteNeeds) {
    LeakCheck leaks;
    CallerBlock block(4);
    IOINFO info = block.Info(4, 0);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abcdefghij", 10), 10);
    EXPECT_EQ(block.Size(), 11u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::memcmp(block.ptr, "abcdefghij\xFF", 11), 0);
}

TEST(MemoryStream, GrowthPastTheLargestPositionFailsAndKeepsTheBlock) {
    LeakCheck leaks;
    CallerBlock block(8);
    IOINFO info = block.Info(8, 0xFFFFFFFFu);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    uint8_t *before = block.ptr;
    EXPECT_EQ(zepWrite(h, "1234567", 7), 7);
    EXPECT_EQ(zepWrite(h, "8", 1), -1) << "filling the block needs a step that would pass 2 GiB";
    EXPECT_EQ(block.ptr, before) << "no growth was tried, so the block is untouched";
    EXPECT_EQ(std::memcmp(block.ptr, "1234567", 7), 0);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepClose(h), -1);

    IOINFO normal = block.Info(8, 4096);
    h = zepOpen(nullptr, &normal, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 0x7FFFFFF0, 0), -1);
    EXPECT_EQ(block.ptr, before);
    EXPECT_EQ(zepClose(h), -1);
}

TEST(MemoryStream, EmptyBlockWithCreateFlagGrowsOnTheFirstWrite) {
    LeakCheck leaks;
    CallerBlock block(0);
    ASSERT_NE(block.ptr, nullptr);
    ASSERT_EQ(block.Size(), 0u);
    IOINFO info = block.Info(0, 4096);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufWrite, -1);
    EXPECT_EQ(zepWrite(h, "x", 1), 1);
    EXPECT_EQ(block.Size(), 4096u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::memcmp(block.ptr, "x\xFF", 2), 0);
}

TEST(MemoryStream, StreamWithoutIoInfoOrWithoutABlockIsNotOpened) {
    LeakCheck leaks;
    EXPECT_EQ(zepOpen(nullptr, nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE), 0u);
    EXPECT_EQ(zepOpen("", nullptr, ZEP_OPEN_READ), 0u);
    IOINFO noVariable{};
    EXPECT_EQ(zepOpen(nullptr, &noVariable, ZEP_OPEN_READ), 0u);
    uint8_t *nothing = nullptr;
    IOINFO nullBlock{};
    nullBlock.lplpBuffer = &nothing;
    EXPECT_EQ(zepOpen(nullptr, &nullBlock, ZEP_OPEN_READ), 0u);
    uint8_t local[16] = {};
    uint8_t *foreign = local;
    IOINFO notOurs{};
    notOurs.lplpBuffer = &foreign;
    notOurs.lBuffer = 16;
    EXPECT_EQ(zepOpen(nullptr, &notOurs, ZEP_OPEN_READ), 0u) << "only blocks of the handle allocator grow";
}

TEST(MemoryStream, CloseAndDeleteClosesWithTheMarkerAndKeepsTheBlock) {
    LeakCheck leaks;
    CallerBlock block(8);
    IOINFO info = block.Info(8);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "ab", 2), 2);
    EXPECT_EQ(zepCloseandDelete(h, nullptr), 0);
    ASSERT_NE(block.ptr, nullptr);
    EXPECT_EQ(std::memcmp(block.ptr, "ab\xFF", 3), 0);
}

}  // namespace
