// Callback streams: every operation goes to the host's function, with the
// handle, operation code and arguments checked call by call.
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

IOINFO HostInfo(uint8_t **tag = nullptr) {
    IOINFO info{};
    info.lplpBuffer = tag;
    info.pIOProc = &FakeHost::Proc;
    return info;
}

TEST(CallbackStream, OpenPassesTheBufferVariableNameAndFlagsAndKeepsTheHostsHandle) {
    LeakCheck leaks;
    FakeHost host;
    uint8_t *tagVariable = nullptr;
    IOINFO info = HostInfo(&tagVariable);
    const char *name = "host-stream";
    HZEPIO h = zepOpen(name, &info, 4097);
    ASSERT_NE(h, 0u);
    ASSERT_EQ(host.calls.size(), 1u);
    const HostCall &open = host.calls[0];
    EXPECT_EQ(open.op, ZEP_CB_OPEN);
    EXPECT_EQ(open.handle, reinterpret_cast<intptr_t>(&tagVariable));
    EXPECT_EQ(open.arg1, reinterpret_cast<intptr_t>(name)) << "the name's own address";
    EXPECT_EQ(open.text, "host-stream");
    EXPECT_EQ(open.arg2, 4097);
    const ZEPIODATA *s = Record(h);
    EXPECT_EQ(s->ZepIOInfo.pIOProc, &FakeHost::Proc);
    EXPECT_EQ(s->ZepIOInfo.hCBOpen, 77u);
    EXPECT_EQ(s->hFileHandle, nullptr);
    EXPECT_EQ(s->ZepIOBuff.hFileBuffer, 0u) << "no buffer of our own";
    EXPECT_EQ(s->dwOpenFlags, 4097u);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(CallbackStream, ReadWriteSeekAndCloseGoToTheHostWithItsHandle) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);

    const char text[] = "hello";
    EXPECT_EQ(zepWrite(h, text, 5), 5);
    EXPECT_EQ(zepSeek(h, 1, 0), 1);
    char got[8] = {};
    EXPECT_EQ(zepRead(h, got, 8), 4);
    EXPECT_STREQ(got, "ello");
    EXPECT_EQ(zepSeek(h, -2, 2), 3);
    EXPECT_EQ(zepSeek(h, 0, 1), 3) << "even asking for the position goes to the host";
    host.closeResult = 9;
    EXPECT_EQ(zepClose(h), 9) << "close returns the host's status";

    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{1, 3, 4, 2, 4, 4, 5}));
    for (size_t i = 1; i < host.calls.size(); ++i) EXPECT_EQ(host.calls[i].handle, 77) << i;
    const auto &c = host.calls;
    EXPECT_EQ(c[1].arg1, reinterpret_cast<intptr_t>(text));
    EXPECT_EQ(c[1].arg2, 5);
    EXPECT_EQ(c[2].seekOffset, 1);
    EXPECT_EQ(c[2].arg2, 0);
    EXPECT_EQ(c[3].arg1, reinterpret_cast<intptr_t>(got));
    EXPECT_EQ(c[3].arg2, 8);
    EXPECT_EQ(c[4].seekOffset, -2);
    EXPECT_EQ(c[4].arg2, 2);
    EXPECT_EQ(c[5].seekOffset, 0);
    EXPECT_EQ(c[5].arg2, 1);
    EXPECT_EQ(c[6].arg1, 0);
    EXPECT_EQ(c[6].arg2, 0);
    EXPECT_EQ(host.content, B("hello"));
}

TEST(CallbackStream, ExistenceTestAndDeleteGoToTheHostWithHandleZero) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    const char *name = "named";
    host.existsResult = 1234;
    EXPECT_EQ(zepOpen(name, &info, ZEP_OPEN_EXISTS), 1234u);
    host.existsResult = -1;
    EXPECT_EQ(zepOpen(name, &info, ZEP_OPEN_EXISTS), 0xFFFFFFFFu);
    host.deleteResult = 1;
    EXPECT_EQ(zepOpen(name, &info, ZEP_OPEN_DELETE), 1u);
    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{6, 6, 7}));
    for (const auto &call : host.calls) {
        EXPECT_EQ(call.handle, 0);
        EXPECT_EQ(call.arg1, reinterpret_cast<intptr_t>(name));
        EXPECT_EQ(call.arg2, 0);
    }
}

TEST(CallbackStream, CloseAndDeleteAsksTheHostToDeleteAndIgnoresItsAnswer) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    host.closeResult = -1;
    EXPECT_EQ(zepCloseandDelete(h, "s"), 0);
    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{1, 5}));
    EXPECT_EQ(host.calls[1].handle, 77);
    EXPECT_EQ(host.calls[1].arg1, 0);
    EXPECT_EQ(host.calls[1].arg2, 512);
    EXPECT_EQ(GlobalLock(h), nullptr);
}

TEST(CallbackStream, AttachedCallbackStreamUsesTheGivenHandleWithoutAnOpenCall) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    info.hCBOpen = 4242;
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
    ASSERT_NE(h, 0u);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(Record(h)->iFileReOpen, 1);
    EXPECT_EQ(zepWrite(h, "x", 1), 1);
    EXPECT_EQ(zepClose(h), 0);
    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{3, 5}));
    EXPECT_EQ(host.calls[0].handle, 4242);
    EXPECT_EQ(host.calls[1].handle, 4242);
}

TEST(CallbackStream, HostHandleGoesBackAsTheSameSignedValue) {
    LeakCheck leaks;
    FakeHost host;
    host.openResult = -7;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    char c;
    zepRead(h, &c, 1);
    EXPECT_EQ(zepClose(h), 0);
    ASSERT_EQ(host.calls.size(), 3u);
    EXPECT_EQ(host.calls[1].handle, -7);
    EXPECT_EQ(host.calls[2].handle, -7);
}

TEST(CallbackStream, RefusedOpenFallsThroughToAFileButEveryOperationStillGoesToTheHost) {
    LeakCheck leaks;
    TempDir dir;
    FakeHost host;
    host.openResult = 0;
    IOINFO info = HostInfo();
    std::string path = dir.Path("fallthrough.bin");
    HZEPIO h = zepOpen(path.c_str(), &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_TRUE(Exists(path)) << "the named file was opened (and created)";
    const ZEPIODATA *s = Record(h);
    EXPECT_NE(s->hFileHandle, nullptr);
    EXPECT_EQ(s->ZepIOInfo.pIOProc, &FakeHost::Proc);
    EXPECT_EQ(s->ZepIOInfo.hCBOpen, 0u);
    EXPECT_EQ(s->tWriteLineFormat, 2);

    EXPECT_EQ(zepWrite(h, "abc", 3), 3);
    EXPECT_EQ(zepSeek(h, 0, 0), 0);
    char got[4] = {};
    EXPECT_EQ(zepRead(h, got, 3), 3);
    EXPECT_EQ(zepClose(h), 0);

    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{1, 3, 4, 2, 5}));
    for (size_t i = 1; i < host.calls.size(); ++i) EXPECT_EQ(host.calls[i].handle, 0) << i;
    EXPECT_EQ(host.content, B("abc"));
    EXPECT_TRUE(ReadFile(path).empty()) << "nothing went to the file";
}

TEST(CallbackStream, RefusedOpenWithoutANameFallsThroughToAMemoryStream) {
    LeakCheck leaks;
    FakeHost host;
    host.openResult = 0;
    CallerBlock block(8);
    std::memcpy(block.ptr, "abc\xFF", 4);
    IOINFO info = block.Info(8);
    info.pIOProc = &FakeHost::Proc;
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_UPDATE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(info.lBuffer, 3) << "the memory stream was set up";
    EXPECT_EQ(host.calls[0].handle, reinterpret_cast<intptr_t>(&block.ptr));
    EXPECT_EQ(zepWrite(h, "zz", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    ASSERT_EQ(host.Ops(), (std::vector<int32_t>{1, 3, 5}));
    EXPECT_EQ(std::memcmp(block.ptr, "abc\xFF", 4), 0) << "the block was neither written nor marked";
}

TEST(CallbackStream, RefusedOpenOfAMissingFileFailsAfterOnlyTheOpenCall) {
    LeakCheck leaks;
    TempDir dir;
    FakeHost host;
    host.openResult = 0;
    IOINFO info = HostInfo();
    EXPECT_EQ(zepOpen(dir.Path("missing").c_str(), &info, ZEP_OPEN_READ), 0u);
    EXPECT_EQ(host.Ops(), (std::vector<int32_t>{1}));
}

TEST(CallbackStream, OpenedStreamIsLeftWithTheLineEndingCrLf) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(Record(h)->tWriteLineFormat, 0);
    EXPECT_EQ(zepWriteLine(h, "ab", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(host.content, B("ab\r\n"));
}

TEST(CallbackStream, TypedValuesReachTheHostInTheStreamsByteOrder) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    zepSetDataFormat(h, 1, 0);
    const int32_t values[] = {0x01020304, -2};
    EXPECT_EQ(zepWriteLong(h, values, 2), 2);
    EXPECT_EQ(host.content, B({1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(host.Ops(), (std::vector<int32_t>{1, 3, 3})) << "one write per item";
    host.position = 0;
    int32_t back[2] = {};
    EXPECT_EQ(zepReadLong(h, back, 2), 2);
    EXPECT_EQ(back[0], 0x01020304);
    EXPECT_EQ(back[1], -2);
    ASSERT_EQ(host.calls.back().op, ZEP_CB_READ);
    EXPECT_EQ(host.calls.back().arg2, 8) << "all items with one read";
    EXPECT_EQ(zepClose(h), 0);
}

TEST(CallbackStream, FillAndFlushHaveNothingToDoForAHostStream) {
    LeakCheck leaks;
    FakeHost host;
    IOINFO info = HostInfo();
    HZEPIO h = zepOpen("s", &info, ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(FillZepIOBuf(h), 0);
    EXPECT_EQ(FlushZepIO(h), 0);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(host.Ops(), (std::vector<int32_t>{1, 5}));
}

}  // namespace
