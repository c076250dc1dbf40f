// docRead reads runs of consecutive sectors in one piece. Kept here is the
// plain reading, one sector (or mini sector) at a time exactly as the
// routine is described; both must give the same bytes, counts and positions
// on documents laid out contiguously and fragmented, and when the file ends
// early.
#include <random>

#include "zep_xxxx/cfbtest.h"

namespace {

using namespace zeptest;
using namespace cfbtest;

// The plain reading of `count` bytes from the stream's position.
int32_t PlainRead(HZEPIO h, uint8_t *out, int32_t count) {
    ZEPIODATA *s = Record(h);
    s->isDocFile = 0;
    const auto *fat = static_cast<const uint32_t *>(GlobalLock(s->hFAT));
    const auto *mini = static_cast<const uint32_t *>(GlobalLock(s->hMiniFAT));
    int64_t remaining = std::min<int64_t>(count, int64_t{s->Length} - s->docOffset);
    const bool large = s->Length >= 4096;
    const uint32_t size = large ? 512 : 64;
    uint32_t sector = s->Start;
    for (int32_t k = 0; k < s->docOffset / static_cast<int32_t>(size); ++k) sector = large ? fat[sector] : mini[sector];
    int32_t total = 0;
    while (remaining > 0) {
        uint32_t within = static_cast<uint32_t>(s->docOffset) % size;
        int64_t n = std::min<int64_t>(size - within, remaining);
        int64_t position;
        if (large) {
            position = (int64_t{sector} + 1) * 512 + within;
        } else {
            uint32_t place = sector * 64 + within;
            uint32_t holder = s->MiniStart;
            for (uint32_t k = 0; k < place / 512; ++k) holder = fat[holder];
            position = (int64_t{holder} + 1) * 512 + place % 512;
        }
        zepSeek(h, static_cast<int32_t>(position), 0);
        int32_t got = zepRead(h, out, static_cast<int32_t>(n));
        out += n;
        s->docOffset += static_cast<int32_t>(n);
        total += static_cast<int32_t>(n);
        remaining -= n;
        if (got < n) break;
        sector = large ? fat[sector] : mini[sector];
    }
    s->isDocFile = 1;
    return total;
}

void CompareOnRandomReads(const std::string &path, const char *stream, uint32_t seed) {
    HZEPIO fast = docOpenStream(path.c_str(), stream, nullptr);
    HZEPIO plain = docOpenStream(path.c_str(), stream, nullptr);
    ASSERT_NE(fast, 0u);
    ASSERT_NE(plain, 0u);
    const auto length = static_cast<int32_t>(Record(fast)->Length);
    std::mt19937 rng(seed);
    for (int i = 0; i < 400; ++i) {
        auto at = static_cast<int32_t>(rng() % static_cast<uint32_t>(length + 1));
        auto want = static_cast<int32_t>(rng() % (i % 10 == 0 ? 70000u : 3000u));
        ASSERT_EQ(zepSeek(fast, at, 0), at);
        ASSERT_EQ(zepSeek(plain, at, 0), at);
        Bytes a(static_cast<size_t>(want) + 1, 0x5A), b(static_cast<size_t>(want) + 1, 0x5A);
        ASSERT_EQ(zepRead(fast, a.data(), want), PlainRead(plain, b.data(), want)) << stream << " at " << at;
        ASSERT_EQ(a, b) << stream << " at " << at << " for " << want;
        ASSERT_EQ(Record(fast)->docOffset, Record(plain)->docOffset);
    }
    zepClose(fast);
    zepClose(plain);
}

std::vector<DocStream> ThreeStreams() {
    return {{"A", Pattern(300000, 1)}, {"B", Pattern(41000, 2)}, {"C", Pattern(9000, 3)}, {"D", Pattern(3000, 4)}};
}

TEST(SectorRuns, ContiguousStreamsReadTheSameAsSectorBySector) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("doc.ole");
    WriteFile(path, BuildDoc(ThreeStreams(), false).bytes);
    for (const char *name : {"A", "B", "C", "D"}) CompareOnRandomReads(path, name, 7);
}

TEST(SectorRuns, InterleavedStreamsReadTheSameAsSectorBySector) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("doc.ole");
    WriteFile(path, BuildDoc(ThreeStreams(), true).bytes);
    for (const char *name : {"A", "B", "C", "D"}) CompareOnRandomReads(path, name, 8);
}

TEST(SectorRuns, FileCutShortAfterOpeningEndsBothReadingsAtTheSamePlace) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("doc.ole");
    Bytes bytes = BuildDoc(ThreeStreams(), false).bytes;
    for (size_t cut : {size_t{100000}, size_t{100000 + 300}, size_t{200000 - 1}}) {
        WriteFile(path, bytes);
        HZEPIO fast = docOpenStream(path.c_str(), "A", nullptr);
        HZEPIO plain = docOpenStream(path.c_str(), "A", nullptr);
        ASSERT_NE(fast, 0u);
        ASSERT_NE(plain, 0u);
        std::filesystem::resize_file(path, cut);
        Bytes a(300000, 0x5A), b(300000, 0x5A);
        int32_t fromFast = zepRead(fast, a.data(), 300000);
        int32_t fromPlain = PlainRead(plain, b.data(), 300000);
        EXPECT_EQ(fromFast, fromPlain) << cut;
        EXPECT_LT(fromFast, 300000);
        EXPECT_EQ(Record(fast)->docOffset, Record(plain)->docOffset);
        EXPECT_EQ(a, b);
        zepClose(fast);
        zepClose(plain);
    }
}

TEST(SectorRuns, DocumentsOfTheTestWriterAreReadByOlefileAsWritten) {
    if (!ToolsPresent()) GTEST_FAIL() << "python3-olefile is installed by scripts/setup.sh";
    TempDir dir;
    std::string path = dir.Path("doc.ole");
    std::vector<DocStream> streams = ThreeStreams();
    WriteFile(path, BuildDoc(streams, true).bytes);
    OleView view = OlefileRead(path, dir.Path("olefile"));
    ASSERT_TRUE(view.ok);
    for (const DocStream &s : streams) EXPECT_EQ(view.streams[s.name], s.data) << s.name;
}

}  // namespace
