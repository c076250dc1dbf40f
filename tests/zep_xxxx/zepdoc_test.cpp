// docRead, docSeek and GetCurrentSect on stream records filled by hand, as an
// attaching host would fill them: the file's sectors hold known patterns and
// the tables say how they chain.
#include "zep_xxxx/cfbtest.h"

namespace {

using namespace zeptest;
using namespace cfbtest;

ZHANDLE TableHandle(const std::vector<uint32_t> &entries) {
    ZHANDLE h = GlobalAlloc(GHND, static_cast<uint32_t>(entries.size() * 4));
    std::memcpy(GlobalLock(h), entries.data(), entries.size() * 4);
    return h;
}

// A file of `sectors` 512-byte sectors after a 512-byte header; byte k of
// sector n is (n * 7 + k) & 255, so every byte tells where it came from.
Bytes SectorFile(uint32_t sectors) {
    Bytes b(SectorAt(sectors), 0);
    for (uint32_t n = 0; n < sectors; ++n)
        for (uint32_t k = 0; k < 512; ++k) b[SectorAt(n) + k] = static_cast<uint8_t>(n * 7 + k);
    return b;
}

Bytes SectorBytes(const Bytes &file, uint32_t sector, uint32_t from, uint32_t n) {
    auto at = static_cast<std::ptrdiff_t>(SectorAt(sector) + from);
    return Bytes(file.begin() + at, file.begin() + at + n);
}

// A document stream attached by hand to a file stream.
class HandStream {
public:
    HandStream(const Bytes &file, uint32_t start, uint32_t length, const std::vector<uint32_t> &fat,
               const std::vector<uint32_t> &mini = {}, uint32_t miniStart = 0) {
        path_ = dir_.Path("doc.bin");
        WriteFile(path_, file);
        h = zepOpen(path_.c_str(), nullptr, ZEP_OPEN_READ);
        EXPECT_NE(h, 0u);
        ZEPIODATA *s = Record(h);
        s->hFAT = TableHandle(fat);
        s->hMiniFAT = mini.empty() ? 0 : TableHandle(mini);
        s->Start = start;
        s->Length = length;
        s->MiniStart = miniStart;
        s->isDocFile = 1;
    }
    ~HandStream() { EXPECT_EQ(zepClose(h), 0); }
    HZEPIO h = 0;

private:
    TempDir dir_;
    std::string path_;
};

TEST(DocStream, StreamOfExactly4096BytesIsReadFromRegularSectors) {
    LeakCheck leaks;
    Bytes file = SectorFile(12);
    // Regular chain 2..9; a mini chain that would give other bytes.
    std::vector<uint32_t> fat(16, kFree);
    for (uint32_t s = 2; s < 9; ++s) fat[s] = s + 1;
    fat[9] = kEnd;
    fat[0] = kEnd;
    std::vector<uint32_t> mini(128, kEnd);
    HandStream s(file, 2, 4096, fat, mini, 0);
    Bytes expected;
    for (uint32_t n = 2; n <= 9; ++n) {
        Bytes part = SectorBytes(file, n, 0, 512);
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(ReadAll(s.h, 1000), expected);
}

TEST(DocStream, StreamOf4095BytesIsReadFromMiniSectors) {
    LeakCheck leaks;
    Bytes file = SectorFile(12);
    // The mini stream lives in sectors 3, 7, 1 ... (chain from 3); the stream
    // is mini sectors 5, 6, ..., 68 (64 of them).
    std::vector<uint32_t> fat(16, kFree);
    std::vector<uint32_t> miniChainSectors = {3, 7, 1, 10, 4, 8, 2, 11, 0, 5};
    for (size_t i = 0; i + 1 < miniChainSectors.size(); ++i) fat[miniChainSectors[i]] = miniChainSectors[i + 1];
    fat[miniChainSectors.back()] = kEnd;
    std::vector<uint32_t> mini(128, kFree);
    for (uint32_t m = 5; m < 68; ++m) mini[m] = m + 1;
    mini[68] = kEnd;
    HandStream s(file, 5, 4095, fat, mini, 3);
    Bytes expected;
    for (uint32_t m = 5; m <= 68; ++m) {
        uint32_t place = m * 64;
        Bytes part = SectorBytes(file, miniChainSectors[place / 512], place % 512, 64);
        expected.insert(expected.end(), part.begin(), part.end());
    }
    expected.resize(4095);
    EXPECT_EQ(ReadAll(s.h, 100), expected);
}

TEST(DocStream, ReadTenBytesBeforeASectorEndContinuesInTheSectorTheTableNames) {
    LeakCheck leaks;
    Bytes file = SectorFile(8);
    std::vector<uint32_t> order = {0, 5, 2, 3, 4, 1, 6, 7};
    std::vector<uint32_t> fat(8, kFree);
    for (size_t i = 0; i + 1 < order.size(); ++i) fat[order[i]] = order[i + 1];
    fat[7] = kEnd;
    HandStream s(file, 0, 4096, fat);
    EXPECT_EQ(zepSeek(s.h, 502, 0), 502);
    Bytes got(30);
    EXPECT_EQ(zepRead(s.h, got.data(), 30), 30);
    Bytes expected = SectorBytes(file, 0, 502, 10);
    Bytes rest = SectorBytes(file, 5, 0, 20);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, expected);
    EXPECT_EQ(zepSeek(s.h, 0, 1), 532);
}

TEST(DocStream, SeekClampsToTheStreamAndCountsBackFromTheEndWithAPositiveOffset) {
    LeakCheck leaks;
    Bytes file = SectorFile(2);
    HandStream s(file, 0, 50, {kEnd, kFree}, std::vector<uint32_t>(4, kEnd), 1);
    EXPECT_EQ(docSeek(s.h, 100, 0), 50);
    EXPECT_EQ(docSeek(s.h, 2, 0), 2);
    EXPECT_EQ(docSeek(s.h, -5, 1), 0);
    EXPECT_EQ(docSeek(s.h, 10, 2), 40);
    EXPECT_EQ(docSeek(s.h, -10, 2), 50);
    EXPECT_EQ(docSeek(s.h, 60, 2), 0);
    EXPECT_EQ(docSeek(s.h, 7, 1), 7);
    EXPECT_EQ(docSeek(s.h, 0, 3), -1);
    EXPECT_EQ(docSeek(s.h, 0, 1), 7) << "an unknown whence changes nothing";
    EXPECT_EQ(docSeek(s.h, INT32_MIN, 1), 0);
    EXPECT_EQ(docSeek(s.h, INT32_MAX, 1), 50);
}

TEST(DocStream, ZepSeekAndZepReadOfADocumentStreamGoToTheDocumentRoutines) {
    LeakCheck leaks;
    Bytes file = SectorFile(2);
    HandStream s(file, 1, 50, {kEnd, kEnd}, {kEnd}, 0);
    EXPECT_EQ(zepSeek(s.h, 10, 2), 40) << "the document's sign for whence 2";
    Bytes got(20);
    EXPECT_EQ(zepRead(s.h, got.data(), 20), 10);
    // Byte 40 of mini sector 1 is byte 104 of the mini stream (sector 0).
    EXPECT_EQ(Bytes(got.begin(), got.begin() + 10), SectorBytes(file, 0, 64 + 40, 10));
    EXPECT_EQ(Record(s.h)->isDocFile, 1);
}

TEST(DocStream, ReadingAtTheEndOfTheInnerStreamReturnsZero) {
    LeakCheck leaks;
    Bytes file = SectorFile(10);
    std::vector<uint32_t> fat(16, kFree);
    for (uint32_t k = 0; k < 8; ++k) fat[k] = k + 1 < 8 ? k + 1 : kEnd;
    HandStream s(file, 0, 4096, fat);
    EXPECT_EQ(zepSeek(s.h, 0, 2), 4096);
    uint8_t c = 0;
    EXPECT_EQ(zepRead(s.h, &c, 1), 0);
    EXPECT_EQ(docRead(s.h, &c, 1), 0);
    EXPECT_EQ(zepSeek(s.h, 1, 2), 4095);
    EXPECT_EQ(zepRead(s.h, &c, 5), 1);
    EXPECT_EQ(c, static_cast<uint8_t>(7 * 7 + 511));
}

TEST(DocStream, CurrentSectorFollowsTheTableOncePerWholeSector) {
    LeakCheck leaks;
    ZHANDLE t = TableHandle({3, kEnd, kFree, 1});
    EXPECT_EQ(GetCurrentSect(0, 0, 512, t), 0u);
    EXPECT_EQ(GetCurrentSect(0, 511, 512, t), 0u);
    EXPECT_EQ(GetCurrentSect(0, 512, 512, t), 3u);
    EXPECT_EQ(GetCurrentSect(0, 1024, 512, t), 1u);
    EXPECT_EQ(GetCurrentSect(0, 1536, 512, t), kEnd);
    EXPECT_EQ(GetCurrentSect(0, 100, 64, t), 3u);
    // A walk that leaves the table ends the chain instead of reading outside it.
    EXPECT_EQ(GetCurrentSect(0, 2048, 512, t), kEnd);
    EXPECT_EQ(GetCurrentSect(9, 512, 512, t), kEnd);
    EXPECT_EQ(GetCurrentSect(9, 0, 512, t), 9u);
    EXPECT_EQ(GetCurrentSect(0, 512, 0, t), 0u) << "a sector size of 0 divides nothing";
    EXPECT_EQ(GetCurrentSect(0, 512, 512, 0), kEnd);
    GlobalFree(t);
}

TEST(DocStream, ClosingADocumentStreamFreesItsTables) {
    LeakCheck leaks;
    Bytes file = SectorFile(2);
    {
        HandStream s(file, 0, 10, {kEnd, kEnd}, {kEnd}, 1);
    }
}

TEST(DocStream, ReadOfNoStreamOrNothingReturnsZero) {
    uint8_t c;
    EXPECT_EQ(docRead(0, &c, 1), 0);
    EXPECT_EQ(docSeek(0, 0, 0), -1);
}

}  // namespace
