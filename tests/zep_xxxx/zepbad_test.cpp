// What a careless or failing caller meets: no stream, stale and foreign
// handles, missing IOINFO and names, negative counts, null buffers, and every
// allocation failing in turn, without a crash or a leak.
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;
using mivo4::mem::FailNth;
using mivo4::mem::FailurePending;

// Every routine given a handle that names no stream returns its "no stream"
// result and changes nothing.
void ExpectNoStream(HZEPIO h) {
    char text[8] = "keep";
    int16_t shorts[2] = {7, 7};
    int32_t longs[2] = {7, 7};
    float floats[2] = {7, 7};
    double doubles[2] = {7, 7};
    EXPECT_EQ(zepRead(h, text, 4), 0);
    EXPECT_EQ(zepWrite(h, text, 4), 0);
    EXPECT_EQ(zepSeek(h, 0, 0), -1);
    EXPECT_EQ(zepSeek(h, 0, 1), -1);
    EXPECT_EQ(FillZepIOBuf(h), 0);
    EXPECT_EQ(FlushZepIO(h), 0);
    EXPECT_EQ(zepReadChar(h, text, 4), 0);
    EXPECT_EQ(zepWriteChar(h, text, 4), 0);
    EXPECT_EQ(zepReadShort(h, shorts, 2), 0);
    EXPECT_EQ(zepReadLong(h, longs, 2), 0);
    EXPECT_EQ(zepReadFloat(h, floats, 2), 0);
    EXPECT_EQ(zepReadDouble(h, doubles, 2), 0);
    EXPECT_EQ(zepWriteShort(h, shorts, 2), 0);
    EXPECT_EQ(zepWriteLong(h, longs, 2), 0);
    EXPECT_EQ(zepWriteFloat(h, floats, 2), 0);
    EXPECT_EQ(zepWriteDouble(h, doubles, 2), 0);
    EXPECT_EQ(zepReadLine(h, text, 8), -1);
    EXPECT_EQ(zepWriteLine(h, "ab", 2), 0);
    EXPECT_EQ(zepSetDataFormat(h, 1, 1), -1);
    int16_t endian = 5, real = 5;
    EXPECT_EQ(zepGetDataFormat(h, &endian, &real), -1);
    EXPECT_EQ(endian, 5);
    EXPECT_EQ(real, 5);
    EXPECT_EQ(zepSetLineFormat(h, 0), -1);
    EXPECT_EQ(zepGetLineFormat(h), -1);
    EXPECT_EQ(zepClose(h), -1);
    EXPECT_EQ(zepCloseandDelete(h, nullptr), -1);
    EXPECT_EQ(shorts[0], 7);
    EXPECT_EQ(longs[0], 7);
    EXPECT_EQ(doubles[0], 7);
}

TEST(NoStream, HandleZeroGivesEveryRoutinesNoStreamResult) {
    LeakCheck leaks;
    ExpectNoStream(0);
}

TEST(NoStream, StaleHandleGivesEveryRoutinesNoStreamResult) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("s.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    ASSERT_EQ(zepClose(h), 0);
    ExpectNoStream(h);
}

TEST(NoStream, HandleOfABlockThatIsNotAStreamRecordIsNoStream) {
    LeakCheck leaks;
    ZHANDLE foreign = GlobalAlloc(GHND, 16);
    ExpectNoStream(foreign);
    EXPECT_NE(GlobalLock(foreign), nullptr) << "the foreign block is left alone";
    GlobalFree(foreign);
    ExpectNoStream(0x12345678u);
}

TEST(NoStream, CloseAndDeleteOfNoStreamDeletesNothing) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("keep.bin");
    WriteFile(path, B("x"));
    EXPECT_EQ(zepCloseandDelete(0, path.c_str()), -1);
    EXPECT_TRUE(Exists(path));
}

TEST(BadArguments, NullNamesAreNoFile) {
    LeakCheck leaks;
    EXPECT_EQ(zepOpen(nullptr, nullptr, ZEP_OPEN_EXISTS), 0xFFFFFFFFu);
    EXPECT_EQ(zepOpen(nullptr, nullptr, ZEP_OPEN_DELETE), 0u);
    EXPECT_EQ(zepOpen(nullptr, nullptr, ZEP_OPEN_READ), 0u);
    EXPECT_EQ(zepOpen(nullptr, nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE), 0u);
}

TEST(BadArguments, AttachWithoutIoInfoOrWithoutAFileFails) {
    LeakCheck leaks;
    EXPECT_EQ(zepOpen("x", nullptr, ZEP_OPEN_ATTACH), 0u);
    IOINFO empty{};
    EXPECT_EQ(zepOpen("x", &empty, ZEP_OPEN_ATTACH), 0u);
}

TEST(BadArguments, NegativeCountsMoveNothing) {
    LeakCheck leaks;
    CallerBlock block(16);
    IOINFO info = block.Info(16);
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    char buffer[4] = {};
    int16_t shorts[2] = {};
    EXPECT_EQ(zepWrite(h, "abcd", -1), 0);
    EXPECT_EQ(zepRead(h, buffer, -1), 0);
    EXPECT_EQ(zepReadShort(h, shorts, -1), 0);
    EXPECT_EQ(zepWriteShort(h, shorts, -1), 0);
    EXPECT_EQ(zepSeek(h, 0, 1), 0);
    EXPECT_EQ(Record(h)->iErrorFlag, 0) << "a bad count is not a stream error";
    EXPECT_EQ(zepWrite(h, "ab", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(BadArguments, NullBuffersAreRefusedWithMinusOneAndLeaveTheStreamUsable) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("n.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, nullptr, 5), -1);
    EXPECT_EQ(zepRead(h, nullptr, 5), -1);
    EXPECT_EQ(zepWrite(h, nullptr, 0), 0);
    EXPECT_EQ(zepRead(h, nullptr, 0), 0);
    EXPECT_EQ(zepReadLong(h, nullptr, 2), 0);
    EXPECT_EQ(zepWriteLong(h, nullptr, 2), -1);
    EXPECT_EQ(zepReadLine(h, nullptr, 10), -1);
    EXPECT_EQ(zepGetDataFormat(h, nullptr, nullptr), 0);
    zepNativeToLE(nullptr, 1, 4);
    zepNativeToBE(nullptr, 1, 4);
    EXPECT_EQ(Record(h)->iErrorFlag, 0);
    EXPECT_EQ(zepWrite(h, "ok", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("ok"));
}

TEST(BadArguments, UnxSeekWithoutAFileFails) {
    EXPECT_EQ(unxSeek(nullptr, 0, 0), -1);
}

TEST(AllocationFailure, RecordAllocationFailureReturnsZeroBeforeTouchingTheFile) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("never.bin");
    FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE), 0u);
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(FailurePending());
    EXPECT_FALSE(Exists(path));
}

TEST(AllocationFailure, BufferAllocationFailureReturnsZeroAndClosesTheFile) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("nobuf.bin");
    WriteFile(path, B("abc"));
    FailNth(2);
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ), 0u);
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(FailurePending());
}

TEST(AllocationFailure, BufferAllocationFailureLeavesAnAttachedFileOpen) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("att.bin");
    FILE *file = std::fopen(path.c_str(), "w+");
    ASSERT_NE(file, nullptr);
    IOINFO info{};
    info.hFile = file;
    FailNth(2);
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepOpen(nullptr, &info, ZEP_OPEN_ATTACH), 0u);
    testing::internal::GetCapturedStderr();
    EXPECT_GE(std::fputs("still mine", file), 0);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(ReadFile(path), B("still mine"));
}

TEST(AllocationFailure, MemoryRecordAllocationFailureReturnsZero) {
    LeakCheck leaks;
    CallerBlock block(8);
    IOINFO info = block.Info(8);
    FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE), 0u);
    testing::internal::GetCapturedStderr();
    EXPECT_NE(block.ptr, nullptr);
}

TEST(AllocationFailure, FailedMemoryGrowthReturnsMinusOneAndNullsTheCallersPointer) {
    uint32_t start = mivo4::mem::LiveHandles();
    uint8_t *ptr = static_cast<uint8_t *>(zepPtrGlobalAlloc(16));
    ASSERT_NE(ptr, nullptr);
    IOINFO info{};
    info.lplpBuffer = &ptr;
    info.lBuffer = 16;
    info.dwExpSize = 4096;
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "0123456789", 10), 10);
    Bytes data = Pattern(100);
    FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepWrite(h, data.data(), 100), -1);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(ptr, nullptr) << "the block went with the failed growth; nothing points at it";
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepWrite(h, "x", 1), 0);
    char c;
    EXPECT_EQ(zepSeek(h, 0, 0), 0);
    EXPECT_EQ(zepRead(h, &c, 1), -1) << "the data is gone";
    EXPECT_EQ(zepClose(h), -1);
    EXPECT_EQ(mivo4::mem::LiveHandles(), start);
}

TEST(AllocationFailure, FailedGrowthOnSeekAndFlushReturnsMinusOne) {
    for (int which = 0; which < 2; ++which) {
        uint32_t start = mivo4::mem::LiveHandles();
        uint8_t *ptr = static_cast<uint8_t *>(zepPtrGlobalAlloc(16));
        IOINFO info{};
        info.lplpBuffer = &ptr;
        info.lBuffer = 16;
        info.dwExpSize = 16;
        HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        ASSERT_NE(h, 0u);
        FailNth(1);
        testing::internal::CaptureStderr();
        if (which == 0) {
            EXPECT_EQ(zepSeek(h, 1000, 0), -1);
        } else {
            EXPECT_EQ(FlushZepIO(h), -1);
        }
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(ptr, nullptr);
        EXPECT_EQ(Record(h)->iErrorFlag, -1);
        EXPECT_EQ(zepClose(h), -1);
        EXPECT_EQ(mivo4::mem::LiveHandles(), start);
    }
}

// Walks every allocation of a whole file session (open, write across several
// buffers, seek, read, close) and of a memory session, failing each in turn:
// whatever fails, nothing leaks and nothing crashes.
TEST(AllocationFailure, EveryAllocationOfASessionMayFailWithoutLeaks) {
    TempDir dir;
    std::string path = dir.Path("walk.bin");
    Bytes data = Pattern(40000);
    for (uint32_t n = 1; n <= 12; ++n) {
        LeakCheck leaks;
        FailNth(n);
        testing::internal::CaptureStderr();
        HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        zepWrite(h, data.data(), 40000);
        zepSeek(h, 100, 0);
        uint8_t got[64];
        zepRead(h, got, 64);
        zepClose(h);

        CallerBlock block(8);
        IOINFO info = block.Info(8, 1000);
        HZEPIO m = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        zepWrite(m, data.data(), 5000);
        zepSeek(m, 9000, 0);
        zepWrite(m, data.data(), 10);
        zepClose(m);
        testing::internal::GetCapturedStderr();
        FailNth(0);
    }
}

TEST(AllocationFailure, CopyWhoseTargetCannotBeOpenedReportsTheBytesNotWritten) {
    LeakCheck leaks;
    TempDir dir;
    std::string source = dir.Path("src.bin");
    std::string target = dir.Path("dst.bin");
    WriteFile(source, Pattern(10000));
    FailNth(3);  // source record, source buffer, then the target's record
    testing::internal::CaptureStderr();
    EXPECT_EQ(zepCopy(source.c_str(), target.c_str()), -10000);
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(Exists(target));
}

}  // namespace
