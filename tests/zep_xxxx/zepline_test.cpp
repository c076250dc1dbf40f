// Text lines: reading with any of the three endings, writing with the
// stream's ending, and detecting the ending a text uses.
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

// A read-write memory stream holding the given text, positioned at its start.
class TextStream {
public:
    explicit TextStream(const std::string &text) : block_(16) {
        IOINFO info = block_.Info(16);
        h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        EXPECT_NE(h, 0u);
        EXPECT_EQ(zepWrite(h, text.data(), static_cast<int32_t>(text.size())), static_cast<int32_t>(text.size()));
        EXPECT_EQ(zepSeek(h, 0, 0), 0);
    }
    ~TextStream() { zepClose(h); }
    TextStream(const TextStream &) = delete;
    TextStream &operator=(const TextStream &) = delete;

    HZEPIO h = 0;

private:
    CallerBlock block_;
};

// Everything a host stream received.
template <typename Body>
Bytes HostReceives(Body body) {
    FakeHost host;
    IOINFO info{};
    info.pIOProc = &FakeHost::Proc;
    info.hCBOpen = 1;
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
    EXPECT_NE(h, 0u);
    zepSetLineFormat(h, ZEP_LINE_LF);  // an attached host stream starts at CR LF
    body(h);
    zepClose(h);
    return host.content;
}

TEST(TextLines, WriteLineEndsWithLfOnAFreshStreamAndCrLfAfterFormatZero) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("lines.txt");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWriteLine(h, "ab", 2), 2);
    EXPECT_EQ(zepSetLineFormat(h, 0), 0);
    EXPECT_EQ(zepWriteLine(h, "ab", 2), 2);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(ReadFile(path), B({'a', 'b', 10, 'a', 'b', 13, 10}));
}

TEST(TextLines, WriteLineWithCrFormatAndWithAnUnknownFormat) {
    LeakCheck leaks;
    EXPECT_EQ(HostReceives([](HZEPIO h) {
                  zepSetLineFormat(h, ZEP_LINE_CR);
                  EXPECT_EQ(zepWriteLine(h, "x", 1), 1);
                  zepSetLineFormat(h, 7);
                  EXPECT_EQ(zepWriteLine(h, "y", 1), 1);
                  zepSetLineFormat(h, -1);
                  EXPECT_EQ(zepWriteLine(h, "z", 1), 1);
              }),
              B({'x', 13, 'y', 10, 'z', 10}));
}

TEST(TextLines, WriteLineReturnsTheTextWritesResultUnlessAnEndingByteFails) {
    LeakCheck leaks;
    EXPECT_EQ(HostReceives([](HZEPIO h) { EXPECT_EQ(zepWriteLine(h, "", 0), 0); }), B({10}))
        << "an empty line still gets its ending, but the result is the text write's 0";
    for (int32_t failure : {-1, 0}) {
        FakeHost host;
        host.failWriteAt = 2;  // text, CR, then LF fails
        host.writeFailure = failure;
        IOINFO info{};
        info.pIOProc = &FakeHost::Proc;
        info.hCBOpen = 1;
        HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
        ASSERT_NE(h, 0u);
        EXPECT_EQ(zepWriteLine(h, "abc", 3), failure);
        EXPECT_EQ(host.content, B({'a', 'b', 'c', 13}));
        zepClose(h);
    }
    FakeHost host;
    host.failWriteAt = 1;  // CR fails: LF is not tried
    IOINFO info{};
    info.pIOProc = &FakeHost::Proc;
    HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepWriteLine(h, "abc", 3), -1);
    EXPECT_EQ(host.Ops(), (std::vector<int32_t>{3, 3}));
    zepClose(h);
}

TEST(TextLines, ReadLineReturnsTwoForAbThenMinusOneWithCdInTheBuffer) {
    LeakCheck leaks;
    TextStream text("ab\r\ncd");
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 2);
    EXPECT_STREQ(buffer, "ab");
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), -1);
    EXPECT_STREQ(buffer, "cd") << "the characters of an unterminated last line are there";
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), -1);
    EXPECT_STREQ(buffer, "");
}

TEST(TextLines, CrFollowedByAnotherByteEndsTheLineAndThatByteStartsTheNext) {
    LeakCheck leaks;
    TextStream text("ab\rcd\n");
    char buffer[16];
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 2);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 2);
    EXPECT_STREQ(buffer, "cd");
}

TEST(TextLines, LfAloneEndsALineAndEmptyLinesReturnZero) {
    LeakCheck leaks;
    TextStream text("one\n\r\n\ntwo\n");
    char buffer[16];
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 3);
    EXPECT_STREQ(buffer, "one");
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 0);
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), 3);
    EXPECT_STREQ(buffer, "two");
    EXPECT_EQ(zepReadLine(text.h, buffer, 16), -1);
}

TEST(TextLines, ReadLineStoresAtMostMaxCharactersAndTerminatesOnlyWhileThereIsRoom) {
    LeakCheck leaks;
    TextStream text("abcdef\nxy\n");
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(zepReadLine(text.h, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 5), "abcd#") << "no room for a terminator";
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(zepReadLine(text.h, buffer, 4), 2) << "the rest of the long line";
    EXPECT_EQ(std::string(buffer, 4), std::string("ef\0#", 4));
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(zepReadLine(text.h, buffer, 3), 2);
    EXPECT_EQ(std::string(buffer, 4), std::string("xy\0#", 4));
}

TEST(TextLines, LineWhoseCrIsTheLastByteReturnsMinusOneWithTheLineInTheBuffer) {
    LeakCheck leaks;
    TextStream text("ab\r");
    char buffer[8];
    EXPECT_EQ(zepReadLine(text.h, buffer, 8), -1);
    EXPECT_STREQ(buffer, "ab");
}

TEST(TextLines, ReadLineWithoutRoomReadsNothing) {
    LeakCheck leaks;
    TextStream text("ab\n");
    char buffer[2] = {'#', '#'};
    EXPECT_EQ(zepReadLine(text.h, buffer, 0), 0);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(zepSeek(text.h, 0, 1), 0);
}

TEST(TextLines, ReadLineAcrossTheFileBufferBoundary) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("long.txt");
    std::string content(12287, 'a');
    content += "\r\nbc\rd\n";  // the CR is the buffer's last byte
    WriteFile(path, B(content));
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    std::vector<char> buffer(13000);
    EXPECT_EQ(zepReadLine(h, buffer.data(), 13000), 12287);
    EXPECT_EQ(zepReadLine(h, buffer.data(), 13000), 2);
    EXPECT_STREQ(buffer.data(), "bc");
    EXPECT_EQ(zepReadLine(h, buffer.data(), 13000), 1);
    EXPECT_STREQ(buffer.data(), "d");
    EXPECT_EQ(zepClose(h), 0);
}

TEST(TextLines, GetLineFormatNamesTheFirstEndingAndRewindsToTheStart) {
    LeakCheck leaks;
    const struct {
        const char *text;
        int32_t format;
    } cases[] = {
        {"ab\ncd", 2}, {"ab\r\ncd", 0}, {"ab\rcd", 1}, {"ab\r", 1}, {"abc", -1}, {"a\n", 2},
    };
    for (const auto &c : cases) {
        TextStream text(c.text);
        char skip;
        zepRead(text.h, &skip, 1);
        EXPECT_EQ(zepGetLineFormat(text.h), c.format) << c.text;
        EXPECT_EQ(zepSeek(text.h, 0, 1), 0) << c.text;
    }
}

TEST(TextLines, GetLineFormatReadsFromTheCurrentPosition) {
    LeakCheck leaks;
    TextStream text("a\r\nb\n");
    EXPECT_EQ(zepSeek(text.h, 3, 0), 3);
    EXPECT_EQ(zepGetLineFormat(text.h), 2);
    EXPECT_EQ(zepSeek(text.h, 0, 1), 0);
    EXPECT_EQ(zepGetLineFormat(text.h), 0);
}

TEST(TextLines, LineFormatIsLfAfterOpenAndStoredBySetLineFormat) {
    LeakCheck leaks;
    TextStream text("");
    EXPECT_EQ(Record(text.h)->tWriteLineFormat, 2);
    EXPECT_EQ(zepSetLineFormat(text.h, 1), 0);
    EXPECT_EQ(Record(text.h)->tWriteLineFormat, 1);
}

}  // namespace
