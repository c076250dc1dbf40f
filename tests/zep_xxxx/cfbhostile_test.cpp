// Damaged and hostile documents: each is refused with a reason and no
// handle, never read outside a table, followed round a cycle or past the file.
#include <fcntl.h>

#include "zep_xxxx/cfbtest.h"

namespace {

using namespace zeptest;
using namespace cfbtest;

class HostileDocument : public ::testing::Test {
protected:
    // A healthy document to damage: a large stream, a small one, an empty one.
    void SetUp() override {
        doc = BuildDoc({{"Large", Pattern(9000, 1)}, {"Small", Pattern(700, 2)}, {"Empty", {}}});
    }
    int32_t Open(const Bytes &bytes, const char *stream) {
        std::string path = dir.Path("doc.ole");
        WriteFile(path, bytes);
        int32_t r = 12345;
        HZEPIO h = docOpenStream(path.c_str(), stream, &r);
        if (h != 0) {
            EXPECT_EQ(r, DOC_OK);
            ReadAll(h);
            zepClose(h);
        }
        return r;
    }
    int32_t List(const Bytes &bytes) {
        std::string path = dir.Path("doc.ole");
        WriteFile(path, bytes);
        return docListEntries(
            path.c_str(), [](const char *, int32_t, uint32_t, void *) -> int32_t { return 0; }, nullptr);
    }
    TempDir dir;
    BuiltDoc doc;
};

TEST_F(HostileDocument, HealthyDocumentOpensEveryStream) {
    LeakCheck leaks;
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_OK);
    EXPECT_EQ(Open(doc.bytes, "Small"), DOC_OK);
    EXPECT_EQ(Open(doc.bytes, "Empty"), DOC_OK);
    EXPECT_EQ(List(doc.bytes), DOC_OK);
}

TEST_F(HostileDocument, NamesOfTheStandardStreamsAreFilesInTheCurrentDirectory) {
    LeakCheck leaks;
    std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path(""));
    WriteFile("stdout", doc.bytes);
    int32_t r = 0;
    HZEPIO h = docOpenStream("stdout", "Small", &r);
    EXPECT_EQ(r, DOC_OK);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(ReadAll(h), Pattern(700, 2));
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_EQ(docOpenStream("stdin", "Small", &r), 0u);
    EXPECT_EQ(r, DOC_E_OPEN);
    std::filesystem::current_path(here);
    EXPECT_NE(::fcntl(STDOUT_FILENO, F_GETFD), -1) << "standard output is still open";
}

TEST_F(HostileDocument, TruncatedFilesAreRefused) {
    LeakCheck leaks;
    for (size_t keep : {size_t{0}, size_t{7}, size_t{511}, size_t{512}, size_t{1000}, size_t{1536}}) {
        Bytes cut(doc.bytes.begin(), doc.bytes.begin() + static_cast<std::ptrdiff_t>(keep));
        EXPECT_LT(Open(cut, "Large"), 0) << keep;
    }
    // Cut inside the large stream's last sector.
    Bytes cut(doc.bytes.begin(), doc.bytes.end() - 100);
    EXPECT_EQ(Open(cut, "Large"), DOC_E_CHAIN);
    EXPECT_EQ(Open(cut, "Small"), DOC_OK) << "what the small stream needs is all there";
}

TEST_F(HostileDocument, NotADocumentIsRefused) {
    LeakCheck leaks;
    Bytes b = doc.bytes;
    b[0] = 'P';
    EXPECT_EQ(Open(b, "Large"), DOC_E_NOTDOC);
    b = doc.bytes;
    PutLe16(b, 28, 0xFEFF);
    EXPECT_EQ(Open(b, "Large"), DOC_E_NOTDOC);
}

TEST_F(HostileDocument, VersionFourDocumentsAreRefusedAsAVersionThisModuleDoesNotRead) {
    LeakCheck leaks;
    Bytes b = doc.bytes;
    PutLe16(b, 26, 4);
    PutLe16(b, 30, 12);
    EXPECT_EQ(Open(b, "Large"), DOC_E_VERSION);
}

TEST_F(HostileDocument, OtherSectorSizesAndCutoffsAreRefused) {
    LeakCheck leaks;
    Bytes b = doc.bytes;
    PutLe16(b, 30, 10);
    EXPECT_EQ(Open(b, "Large"), DOC_E_VERSION);
    b = doc.bytes;
    PutLe16(b, 32, 7);
    EXPECT_EQ(Open(b, "Large"), DOC_E_VERSION);
    b = doc.bytes;
    PutLe32(b, 56, 8192);
    EXPECT_EQ(Open(b, "Large"), DOC_E_VERSION);
}

TEST_F(HostileDocument, FatCycleInAStreamIsRefused) {
    LeakCheck leaks;
    uint32_t first = doc.starts[0];
    doc.SetFat(first + 5, first + 2);
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_E_CHAIN);
}

TEST_F(HostileDocument, StreamChainThatEndsTooSoonIsRefused) {
    LeakCheck leaks;
    doc.SetFat(doc.starts[0] + 10, kEnd);
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_E_CHAIN);
}

TEST_F(HostileDocument, FreeMarkerInsideOrRightAfterAChainIsRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    d.SetFat(d.starts[0] + 3, kFree);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_CHAIN);
    d = doc;
    d.SetFat(d.starts[0] + 17, kFree);  // the last of 18 sectors
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_CHAIN);
}

TEST_F(HostileDocument, SectorNumbersPastTheEndAreRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    d.SetFat(d.starts[0] + 3, 100000);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_CHAIN);
    d = doc;
    PutLe32(d.bytes, d.EntryAt(1) + 116, 0xFFFFFFF0u);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_CHAIN);
    d = doc;
    PutLe32(d.bytes, 48, 5000);  // directory start
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_DIRECTORY);
    d = doc;
    PutLe32(d.bytes, 76, 5000);  // first FAT sector
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_FAT);
}

TEST_F(HostileDocument, StreamThroughTheAllocationTableIsRefused) {
    LeakCheck leaks;
    PutLe32(doc.bytes, doc.EntryAt(1) + 116, 0);  // sector 0 holds the FAT
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_E_CHAIN);
}

TEST_F(HostileDocument, DirectoryThatPointsAtItselfIsRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    PutLe32(d.bytes, d.EntryAt(2) + 68, 2);  // left sibling of itself
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_DIRECTORY);
    EXPECT_EQ(List(d.bytes), DOC_E_DIRECTORY);
    d = doc;
    PutLe32(d.bytes, d.EntryAt(3) + 72, 1);  // right sibling back to the first
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_DIRECTORY);
    d = doc;
    PutLe32(d.bytes, d.EntryAt(0) + 76, 0);  // the root holds itself
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_DIRECTORY);
    d = doc;
    d.SetFat(d.dirStart, d.dirStart);  // the directory's chain loops
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_DIRECTORY);
    d = doc;
    PutLe32(d.bytes, d.EntryAt(1) + 72, 400);  // an entry past the directory
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_DIRECTORY);
}

TEST_F(HostileDocument, StorageHoldingItsParentIsRefused) {
    LeakCheck leaks;
    doc.bytes[doc.EntryAt(1) + 66] = 1;  // Large becomes a storage ...
    PutLe32(doc.bytes, doc.EntryAt(1) + 76, 1);  // ... holding itself
    EXPECT_EQ(Open(doc.bytes, "Small"), DOC_E_DIRECTORY);
}

TEST_F(HostileDocument, MalformedEntriesInTheTreeAreRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    PutLe16(d.bytes, d.EntryAt(2) + 64, 65);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_DIRECTORY);
    d = doc;
    d.bytes[d.EntryAt(2) + 66] = 0;
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_DIRECTORY);
    d = doc;
    d.bytes[d.EntryAt(0) + 66] = 1;
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_DIRECTORY);
}

TEST_F(HostileDocument, MiniStreamLargerThanItsChainIsRefused) {
    LeakCheck leaks;
    PutLe32(doc.bytes, doc.EntryAt(0) + 120, 64 * 1000);
    EXPECT_EQ(Open(doc.bytes, "Small"), DOC_E_MINI);
}

TEST_F(HostileDocument, SmallStreamOutsideTheMiniStreamIsRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    PutLe32(d.bytes, d.EntryAt(2) + 116, 100);  // mini sector 100 of 11
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_MINI);
    d = doc;
    PutLe32(d.bytes, d.EntryAt(0) + 120, 64 * 5);  // the mini stream shrinks under the stream
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_MINI);
    d = doc;
    PutLe32(d.bytes, SectorAt(d.miniFatStart) + 4 * 3, 1);  // mini chain loops
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_MINI);
    d = doc;
    PutLe32(d.bytes, 64, 0);  // no mini table at all
    EXPECT_EQ(Open(d.bytes, "Small"), DOC_E_MINI);
}

TEST_F(HostileDocument, StreamSizeOfFourGibMinusOneIsRefused) {
    LeakCheck leaks;
    PutLe32(doc.bytes, doc.EntryAt(1) + 120, 0xFFFFFFFFu);
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_E_TOOLARGE);
    PutLe32(doc.bytes, doc.EntryAt(1) + 120, 0x7FFFFFFFu);
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_E_CHAIN);
}

TEST_F(HostileDocument, FatLongerThanTheFileOrWithAFatSectorTwiceIsRefused) {
    LeakCheck leaks;
    BuiltDoc d = doc;
    PutLe32(d.bytes, 44, 0x7FFFFFFFu);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_FAT);
    d = doc;
    PutLe32(d.bytes, 44, 2);
    PutLe32(d.bytes, 80, 0);  // the second FAT sector is the first again
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_FAT);
    d = doc;
    PutLe32(d.bytes, 44, 0);
    EXPECT_EQ(Open(d.bytes, "Large"), DOC_E_FAT);
}

TEST_F(HostileDocument, DifatCycleIsRefused) {
    LeakCheck leaks;
    // 120 FAT sectors need one DIFAT sector; point its "next" at itself and
    // claim more FAT sectors than it lists.
    BuiltDoc big = BuildDoc({{"Big", Pattern(120 * 128 * 512 - 200 * 512, 5)}});
    ASSERT_GT(big.difSectors, 0u);
    EXPECT_EQ(Open(big.bytes, "Big"), DOC_OK);
    uint32_t dif = big.fatSectors;
    PutLe32(big.bytes, SectorAt(dif) + 4 * 127, dif);
    PutLe32(big.bytes, 44, big.fatSectors + 127);
    EXPECT_EQ(Open(big.bytes, "Big"), DOC_E_FAT);
}

TEST_F(HostileDocument, LongerChainThanTheStreamNeedsIsAccepted) {
    LeakCheck leaks;
    // The large stream's last sector goes on into the small streams' area:
    // never read, so accepted (as olefile accepts it).
    doc.SetFat(doc.starts[0] + 17, doc.dirStart);
    EXPECT_EQ(Open(doc.bytes, "Large"), DOC_OK);
}

}  // namespace

namespace {

using namespace zeptest;
using namespace cfbtest;

// Every allocation of an open, and of the reads after it, failed in turn:
// each failure gives no handle and DOC_E_NOMEM (or, when the file stream
// itself could not be had, DOC_E_OPEN), or a stream that still reads right;
// nothing leaks.
TEST(DocumentMemory, EveryAllocationFailureOfAnOpenAndReadIsReportedAndLeaksNothing) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("doc.ole");
    std::vector<DocStream> streams = {{"Large", Pattern(9000, 1)}, {"Small", Pattern(700, 2)}};
    WriteFile(path, BuildDoc(streams).bytes);
    for (const DocStream &stream : streams) {
        bool reachedTheEnd = false;
        for (uint32_t n = 1; n < 50 && !reachedTheEnd; ++n) {
            mivo4::mem::FailNth(n);
            int32_t r = 12345;
            HZEPIO h = docOpenStream(path.c_str(), stream.name.c_str(), &r);
            if (h == 0) {
                EXPECT_TRUE(r == DOC_E_NOMEM || r == DOC_E_OPEN) << n << ": " << r;
                continue;
            }
            EXPECT_EQ(r, DOC_OK);
            EXPECT_EQ(ReadAll(h, 1000), stream.data) << n;
            reachedTheEnd = mivo4::mem::FailurePending();  // n is past every allocation made
            mivo4::mem::FailNth(0);
            EXPECT_EQ(zepClose(h), 0);
        }
        EXPECT_TRUE(reachedTheEnd);
    }
}

}  // namespace
