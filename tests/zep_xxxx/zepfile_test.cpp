// File streams: open modes, the existence and delete queries, buffered reads
// and writes, seeks, errors, and a large file under random access.
#include <random>

#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

TEST(FileStream, ExistenceTestReturnsMinusOneForMissingFileAndAnotherValueForExistingOne) {
    TempDir dir;
    std::string present = dir.Path("present.bin");
    WriteFile(present, B("x"));
    EXPECT_EQ(zepOpen(dir.Path("missing.bin").c_str(), nullptr, ZEP_OPEN_EXISTS), 0xFFFFFFFFu);
    HZEPIO found = zepOpen(present.c_str(), nullptr, ZEP_OPEN_EXISTS);
    EXPECT_NE(found, 0xFFFFFFFFu);
    EXPECT_NE(found, 0u);
}

TEST(FileStream, ExistenceTestOpensNoStreamAndLeavesTheFileAlone) {
    LeakCheck leaks;
    TempDir dir;
    std::string present = dir.Path("present.bin");
    WriteFile(present, B("keep"));
    zepOpen(present.c_str(), nullptr, ZEP_OPEN_EXISTS);
    EXPECT_EQ(ReadFile(present), B("keep"));
}

TEST(FileStream, DeleteFlagRemovesTheFileAndReportsOneOrZero) {
    TempDir dir;
    std::string path = dir.Path("doomed.bin");
    WriteFile(path, B("x"));
    EXPECT_EQ(zepOpen(path.c_str(), nullptr, ZEP_OPEN_DELETE), 1u);
    EXPECT_FALSE(Exists(path));
    EXPECT_EQ(zepOpen(path.c_str(), nullptr, ZEP_OPEN_DELETE), 0u);
}

TEST(FileStream, QueryFlagsCountOnlyAsTheWholeFlagsValue) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("file.bin");
    WriteFile(path, B("data"));
    // 512 | 1 is a write open ("w+"), not a delete: the file is truncated and stays.
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_DELETE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_TRUE(Exists(path));
    EXPECT_TRUE(ReadFile(path).empty());
    // 16384 | 1 likewise opens a stream rather than testing for the file.
    std::string other = dir.Path("other.bin");
    h = zepOpen(other.c_str(), nullptr, ZEP_OPEN_EXISTS | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    ASSERT_NE(h, 0xFFFFFFFFu);
    EXPECT_EQ(zepWrite(h, "ab", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(other), B("ab"));
}

TEST(FileStream, ReadOpenOfAMissingFileFails) {
    LeakCheck leaks;
    TempDir dir;
    EXPECT_EQ(zepOpen(dir.Path("missing").c_str(), nullptr, ZEP_OPEN_READ), 0u);
    EXPECT_EQ(zepOpen(dir.Path("missing").c_str(), nullptr, ZEP_OPEN_UPDATE), 0u);
    EXPECT_FALSE(Exists(dir.Path("missing")));
}

TEST(FileStream, WriteFlagCreatesOrTruncates) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("out.bin");
    WriteFile(path, B("old contents"));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "new", 3), 3);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("new"));
}

TEST(FileStream, UpdateFlagKeepsTheFileAndOverwritesInPlace) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("upd.bin");
    WriteFile(path, B("abcdef"));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 2, 0), 2);
    EXPECT_EQ(zepWrite(h, "XY", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("abXYef"));
}

TEST(FileStream, UpdateWinsWhenBothWriteBitsAreSet) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("both.bin");
    EXPECT_EQ(zepOpen(path.c_str(), nullptr, ZEP_OPEN_WRITE | ZEP_OPEN_UPDATE), 0u) << "\"r+\" needs the file";
    WriteFile(path, B("abc"));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_WRITE | ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("abc")) << "not truncated";
}

TEST(FileStream, CreateBitOverridesUpdateAndTruncates) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("create.bin");
    WriteFile(path, B("abc"));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_TRUE(ReadFile(path).empty());
    std::string fresh = dir.Path("fresh.bin");
    h = zepOpen(fresh.c_str(), nullptr, ZEP_OPEN_CREATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_TRUE(Exists(fresh));
}

TEST(FileStream, UnknownFlagBitsAreIgnoredAndLowByteWithoutWriteBitsReads) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("ro.bin");
    WriteFile(path, B("abc"));
    HZEPIO h = zepOpen(path.c_str(), nullptr, 0x00020008u);
    ASSERT_NE(h, 0u);
    char got[4] = {};
    EXPECT_EQ(zepRead(h, got, 3), 3);
    EXPECT_STREQ(got, "abc");
    // "r": the write stays in the buffer and fails when it is written out.
    EXPECT_EQ(zepWrite(h, "z", 1), 1);
    EXPECT_EQ(zepClose(h), -1);
    EXPECT_EQ(ReadFile(path), B("abc"));
}

TEST(FileStream, FreshStreamHasDocumentedInitialState) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("f.bin");
    WriteFile(path, Pattern(100));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    const ZEPIODATA *s = Record(h);
    EXPECT_EQ(GlobalSize(h), sizeof(ZEPIODATA));
    EXPECT_NE(s->hFileHandle, nullptr);
    EXPECT_NE(s->ZepIOBuff.hFileBuffer, 0u);
    EXPECT_EQ(GlobalSize(s->ZepIOBuff.hFileBuffer), 12288u);
    EXPECT_EQ(s->ZepIOBuff.lNextBufChar, 0);
    EXPECT_EQ(s->ZepIOBuff.lEndBufRead, -1);
    EXPECT_EQ(s->ZepIOBuff.lEndBufWrite, 12287);
    EXPECT_EQ(s->ZepIOBuff.lBufOffset, 0);
    EXPECT_EQ(s->ZepIOBuff.lFileOffset, 0);
    EXPECT_EQ(s->ZepIOBuff.lEndOfFilePos, 100);
    EXPECT_EQ(s->dwOpenFlags, 0u);
    EXPECT_EQ(s->iFileReOpen, 0);
    EXPECT_EQ(s->iErrorFlag, 0);
    EXPECT_EQ(s->tEndian, 0);
    EXPECT_EQ(s->tRealFormat, 0);
    EXPECT_EQ(s->tWriteLineFormat, 2);
    EXPECT_EQ(s->isDiskFile, 1);
    EXPECT_EQ(s->isDocFile, 0);
    EXPECT_EQ(s->ZepIOInfo.pIOProc, nullptr);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, ReadingPastTheEndReturnsTheBytesThereThenZero) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("short.bin");
    Bytes data = Pattern(10);
    WriteFile(path, data);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    Bytes got(64, 0xEE);
    EXPECT_EQ(zepRead(h, got.data(), 64), 10);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), got.begin()));
    EXPECT_EQ(got[10], 0xEE) << "nothing stored past the bytes read";
    EXPECT_EQ(zepRead(h, got.data(), 64), 0);
    EXPECT_EQ(zepRead(h, got.data(), 1), 0);
    EXPECT_EQ(Record(h)->iErrorFlag, 0) << "the end of a file is not an error";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, CurrentPositionOfAFreshStreamIsZero) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("p.bin");
    WriteFile(path, Pattern(3));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 0, 1), 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, SeekBeyondTheEndOfAReadOnlyFileFailsAndLeavesTheStreamInError) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("p.bin");
    WriteFile(path, Pattern(3));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 5, 0), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepSeek(h, 3, 0), 3) << "the length itself is a valid position";
    EXPECT_EQ(Record(h)->iErrorFlag, -1) << "the error stays";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, WriteAfterAnErrorReturnsZeroWithoutWriting) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("w.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "ab", 2), 2);
    EXPECT_EQ(zepSeek(h, -1, 0), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    int32_t before = Record(h)->ZepIOBuff.lEndBufRead;
    EXPECT_EQ(zepWrite(h, "cd", 2), 0);
    EXPECT_EQ(zepWrite(h, "e", 1), 0);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndBufRead, before) << "nothing went into the buffer";
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("ab"));
}

TEST(FileStream, ErrorIsClearedOnlyByANewOpen) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("w.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, -5, 0), -1);
    char c = 0;
    zepRead(h, &c, 1);
    EXPECT_EQ(zepSeek(h, 0, 0), 0);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepClose(h), 0);
    h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(Record(h)->iErrorFlag, 0);
    EXPECT_EQ(zepWrite(h, "ok", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B("ok"));
}

TEST(FileStream, FailedFillMakesTheReadReturnMinusOneAndLeavesTheStreamInError) {
    LeakCheck leaks;
    TempDir dir;
    std::string folder = dir.Path("folder");
    std::filesystem::create_directory(folder);
    HZEPIO h = zepOpen(folder.c_str(), nullptr, ZEP_OPEN_READ);
    if (h == 0) GTEST_SKIP() << "this system does not open folders as files";
    char c;
    EXPECT_EQ(zepRead(h, &c, 1), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(FillZepIOBuf(h), -1);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, FailedFlushAtCloseReturnsMinusOne) {
    LeakCheck leaks;
    if (!Exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this system";
    HZEPIO h = zepOpen("/dev/full", nullptr, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3) << "still in the buffer";
    EXPECT_EQ(zepClose(h), -1);
}

TEST(FileStream, FailedFlushOfAFullBufferReturnsMinusOneAndLaterWritesReturnZero) {
    LeakCheck leaks;
    if (!Exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this system";
    HZEPIO h = zepOpen("/dev/full", nullptr, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Bytes data = Pattern(12288);
    EXPECT_EQ(zepWrite(h, data.data(), 12288), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepWrite(h, data.data(), 10), 0);
    EXPECT_EQ(zepClose(h), -1);
}

TEST(FileStream, BufferIsWrittenOutAsSoonAsItIsFull) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("full.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    Bytes data = Pattern(12288 + 5);
    EXPECT_EQ(zepWrite(h, data.data(), 12287), 12287);
    EXPECT_EQ(std::filesystem::file_size(path), 0u) << "not full yet: nothing written";
    EXPECT_EQ(zepWrite(h, data.data() + 12287, 1), 1);
    const ZEPIODATA *s = Record(h);
    EXPECT_EQ(s->ZepIOBuff.lNextBufChar, 0);
    EXPECT_EQ(s->ZepIOBuff.lBufOffset, 12288);
    EXPECT_EQ(s->ZepIOBuff.lEndBufRead, -1);
    EXPECT_EQ(s->ZepIOBuff.lEndOfFilePos, 12288) << "the length is refreshed after a flush";
    EXPECT_EQ(zepSeek(h, 0, 1), 12288);
    EXPECT_EQ(zepWrite(h, data.data() + 12288, 5), 5);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), data);
}

TEST(FileStream, SeekInsideTheBufferedRangeDoesNotTouchTheFile) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("cache.bin");
    Bytes data = Pattern(30000);
    WriteFile(path, data);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    uint8_t c = 0;
    ASSERT_EQ(zepRead(h, &c, 1), 1);  // loads bytes 0 .. 12287
    // Change the file behind the stream's back.
    Bytes changed = data;
    for (size_t i = 0; i < changed.size(); ++i) changed[i] = static_cast<uint8_t>(~changed[i]);
    WriteFile(path, changed);
    EXPECT_EQ(zepSeek(h, 12287, 0), 12287);
    ASSERT_EQ(zepRead(h, &c, 1), 1);
    EXPECT_EQ(c, data[12287]) << "served from the buffer";
    EXPECT_EQ(zepSeek(h, 100, 0), 100);
    ASSERT_EQ(zepRead(h, &c, 1), 1);
    EXPECT_EQ(c, data[100]) << "served from the buffer";
    // Outside the buffered range the file is read again.
    EXPECT_EQ(zepSeek(h, 20000, 0), 20000);
    ASSERT_EQ(zepRead(h, &c, 1), 1);
    EXPECT_EQ(c, changed[20000]);
    EXPECT_EQ(Record(h)->ZepIOBuff.lBufOffset, 20000);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, SeekFromTheEndAndFromTheCurrentPosition) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("s.bin");
    Bytes data = Pattern(50000);
    WriteFile(path, data);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, -10, 2), 49990);
    uint8_t got[10];
    EXPECT_EQ(zepRead(h, got, 10), 10);
    EXPECT_TRUE(std::equal(got, got + 10, data.begin() + 49990));
    EXPECT_EQ(zepSeek(h, -20000, 1), 30000);
    EXPECT_EQ(zepRead(h, got, 10), 10);
    EXPECT_TRUE(std::equal(got, got + 10, data.begin() + 30000));
    EXPECT_EQ(zepSeek(h, 0, 2), 50000);
    EXPECT_EQ(zepRead(h, got, 10), 0);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, SeekBeforeTheStartFailsWithMinusOne) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("s.bin");
    WriteFile(path, Pattern(100));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, -1, 0), -1);
    EXPECT_EQ(zepSeek(h, 5, 0), 5);
    EXPECT_EQ(zepSeek(h, -6, 1), -1);
    EXPECT_EQ(zepSeek(h, -101, 2), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, UnknownWhenceFailsAfterWritingPendingBytes) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("s.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(zepSeek(h, 0, 3), -1);
    EXPECT_EQ(zepSeek(h, 1, -1), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(ReadFile(path), B("abc")) << "pending bytes were written before the seek failed";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, StreamOpenedForWritingMaySeekPastTheEndAndLeavesAZeroGap) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("gap.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "ab", 2), 2);
    EXPECT_EQ(zepSeek(h, 20000, 0), 20000);
    EXPECT_EQ(zepWrite(h, "z", 1), 1);
    EXPECT_EQ(zepClose(h), 0);
    Bytes expected(20001, 0);
    expected[0] = 'a';
    expected[1] = 'b';
    expected[20000] = 'z';
    EXPECT_EQ(ReadFile(path), expected);
}

TEST(FileStream, CreateOnlyFlagBoundsSeeksByTheLengthAtOpen) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("c.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(zepSeek(h, 0, 0), 0);
    // Neither write bit is set, so the length at open (0) bounds seeks from
    // the start, even to bytes that are in the buffer.
    EXPECT_EQ(zepSeek(h, 1, 0), -1);
    EXPECT_EQ(Record(h)->iErrorFlag, -1);
    EXPECT_EQ(zepSeek(h, -1, 2), 2) << "from the end it can";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(FileStream, ReadAfterWriteAtTheSamePositionSeesTheWrittenBytes) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("rw.bin");
    Bytes data = Pattern(40000);
    WriteFile(path, data);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, 12280, 0), 12280);
    EXPECT_EQ(zepWrite(h, "0123456789abcdef", 16), 16);  // crosses the buffer boundary
    std::copy_n("0123456789abcdef", 16, data.begin() + 12280);
    EXPECT_EQ(zepSeek(h, 12270, 0), 12270);
    uint8_t got[40];
    EXPECT_EQ(zepRead(h, got, 40), 40);
    EXPECT_TRUE(std::equal(got, got + 40, data.begin() + 12270));
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), data);
}

TEST(FileStream, FillAndFlushReportWhatTheyMoved) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("ff.bin");
    WriteFile(path, Pattern(20000));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(FlushZepIO(h), 0) << "nothing pending";
    EXPECT_EQ(FillZepIOBuf(h), 12288);
    EXPECT_EQ(FillZepIOBuf(h), 20000 - 12288);
    EXPECT_EQ(Record(h)->ZepIOBuff.lBufOffset, 12288);
    EXPECT_EQ(FillZepIOBuf(h), 0) << "end of file";
    EXPECT_EQ(zepWrite(h, "tail", 4), 4);
    EXPECT_EQ(FlushZepIO(h), 4);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndOfFilePos, 20004);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(std::filesystem::file_size(path), 20004u);
}

TEST(FileStream, AttachedFileIsUsedFromItsStartAndNotClosed) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("att.bin");
    FILE *file = std::fopen(path.c_str(), "w+");
    ASSERT_NE(file, nullptr);
    std::fputs("host:", file);
    IOINFO info{};
    info.hFile = file;
    HZEPIO h = zepOpen("ignored-name", &info, ZEP_OPEN_ATTACH);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(Record(h)->iFileReOpen, 1);
    EXPECT_EQ(Record(h)->ZepIOBuff.lEndOfFilePos, 5);
    char got[6] = {};
    EXPECT_EQ(zepRead(h, got, 5), 5);
    EXPECT_STREQ(got, "host:");
    EXPECT_EQ(zepWrite(h, "ours", 4), 4);
    EXPECT_EQ(zepClose(h), 0);
    // The FILE is still the host's and still open.
    EXPECT_EQ(std::fseek(file, 0, SEEK_END), 0);
    EXPECT_GE(std::fputs("!", file), 0);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(ReadFile(path), B("host:ours!"));
}

TEST(FileStream, CloseAndDeleteRemovesTheNamedFile) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("tmp.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(zepCloseandDelete(h, path.c_str()), 0);
    EXPECT_FALSE(Exists(path));
    EXPECT_EQ(GlobalLock(h), nullptr) << "the record is gone";
}

TEST(FileStream, CloseAndDeleteWithoutANameOnlyCloses) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("keep.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(zepCloseandDelete(h, nullptr), 0);
    EXPECT_EQ(ReadFile(path), B("abc"));
}

TEST(FileStream, CloseReleasesTheRecordTheBufferAndTheDescriptor) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("r.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    ZHANDLE buffer = Record(h)->ZepIOBuff.hFileBuffer;
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(GlobalLock(h), nullptr);
    EXPECT_EQ(GlobalLock(buffer), nullptr);
    EXPECT_EQ(zepClose(h), -1) << "a closed stream is no stream";
}

TEST(FileStream, WholeFileWrittenInOddChunksReadsBackAcrossBufferBoundaries) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("chunks.bin");
    Bytes data = Pattern(5 * 12288 + 77, 9);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    const size_t sizes[] = {1, 12287, 2, 12289, 5000, 3, 24576, 777};
    size_t at = 0;
    for (size_t i = 0; at < data.size(); ++i) {
        size_t n = std::min(sizes[i % 8], data.size() - at);
        ASSERT_EQ(zepWrite(h, data.data() + at, static_cast<int32_t>(n)), static_cast<int32_t>(n));
        at += n;
        ASSERT_EQ(zepSeek(h, 0, 1), static_cast<int32_t>(at));
    }
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), data);

    h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    Bytes back;
    at = 0;
    for (size_t i = 0;; ++i) {
        Bytes chunk(sizes[(i + 3) % 8]);
        int32_t got = zepRead(h, chunk.data(), static_cast<int32_t>(chunk.size()));
        ASSERT_GE(got, 0);
        if (got == 0) break;
        back.insert(back.end(), chunk.begin(), chunk.begin() + got);
    }
    EXPECT_EQ(back, data);
    EXPECT_EQ(zepClose(h), 0);
}

// 20 MB written through the buffer, then read and updated at random places,
// with every result compared against a plain in-memory copy of the file.
TEST(FileStream, TwentyMegabyteFileSurvivesRandomSeeksReadsAndWrites) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("big.bin");
    constexpr size_t kSize = 20u * 1024 * 1024;
    Bytes model = Pattern(kSize, 20);

    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    std::mt19937 rng(2024);
    size_t at = 0;
    while (at < kSize) {
        size_t n = std::min<size_t>(1 + rng() % 70001, kSize - at);
        ASSERT_EQ(zepWrite(h, model.data() + at, static_cast<int32_t>(n)), static_cast<int32_t>(n));
        at += n;
    }
    ASSERT_EQ(zepClose(h), 0);
    ASSERT_EQ(std::filesystem::file_size(path), kSize);
    ASSERT_TRUE(ReadFile(path) == model);

    h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    int64_t position = 0;
    Bytes buffer;
    for (int op = 0; op < 4000; ++op) {
        // Seek: near a buffer boundary, anywhere, relative, or from the end.
        int64_t target;
        int32_t got;
        switch (rng() % 4) {
        case 0:
            target = static_cast<int64_t>(rng() % (model.size() / 12288)) * 12288 + (static_cast<int64_t>(rng() % 21) - 10);
            target = std::clamp<int64_t>(target, 0, static_cast<int64_t>(model.size()));
            got = zepSeek(h, static_cast<int32_t>(target), 0);
            break;
        case 1:
            target = static_cast<int64_t>(rng() % (model.size() + 1));
            got = zepSeek(h, static_cast<int32_t>(target), 0);
            break;
        case 2: {
            int64_t delta = static_cast<int64_t>(rng() % 60001) - 30000;
            target = std::clamp<int64_t>(position + delta, 0, static_cast<int64_t>(model.size()));
            got = zepSeek(h, static_cast<int32_t>(target - position), 1);
            break;
        }
        default: {
            int64_t back = static_cast<int64_t>(rng() % 50000);
            target = static_cast<int64_t>(model.size()) - back;
            got = zepSeek(h, static_cast<int32_t>(-back), 2);
            break;
        }
        }
        ASSERT_EQ(got, target) << "op " << op;
        position = target;
        size_t n = 1 + rng() % 30000;
        if (rng() % 3 == 0) {
            // Write, possibly extending the file.
            buffer = Pattern(n, static_cast<uint32_t>(op) + 100);
            ASSERT_EQ(zepWrite(h, buffer.data(), static_cast<int32_t>(n)), static_cast<int32_t>(n)) << "op " << op;
            if (model.size() < static_cast<size_t>(position) + n) model.resize(static_cast<size_t>(position) + n);
            std::copy(buffer.begin(), buffer.end(), model.begin() + position);
            position += static_cast<int64_t>(n);
        } else {
            buffer.assign(n, 0);
            size_t expected = std::min(n, model.size() - static_cast<size_t>(position));
            ASSERT_EQ(zepRead(h, buffer.data(), static_cast<int32_t>(n)), static_cast<int32_t>(expected)) << "op " << op;
            ASSERT_TRUE(std::equal(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(expected),
                                   model.begin() + position))
                << "op " << op << " at " << position;
            position += static_cast<int64_t>(expected);
        }
        ASSERT_EQ(zepSeek(h, 0, 1), position) << "op " << op;
    }
    EXPECT_EQ(Record(h)->iErrorFlag, 0);
    ASSERT_EQ(zepClose(h), 0);
    EXPECT_TRUE(ReadFile(path) == model);
}

}  // namespace
