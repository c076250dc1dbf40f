// Opening streams of real documents: documents written by gsf, read back
// through docOpenStream and zepRead, and compared with what olefile reads
// from the same file and with the bytes that went in.
#include <random>

#include "zep_xxxx/cfbtest.h"

namespace {

using namespace zeptest;
using namespace cfbtest;

// A name with a number (kept out of string concatenation, which GCC 12 warns
// about wrongly at -O3).
std::string Numbered(const char *prefix, size_t n) {
    std::ostringstream out;
    out << prefix << n;
    return out.str();
}

struct Listed {
    std::string path;
    int32_t type;
    uint32_t size;
};

std::vector<Listed> List(const std::string &document, int32_t *result = nullptr) {
    std::vector<Listed> out;
    int32_t r = docListEntries(
        document.c_str(),
        [](const char *path, int32_t type, uint32_t size, void *user) -> int32_t {
            static_cast<std::vector<Listed> *>(user)->push_back({path, type, size});
            return 0;
        },
        &out);
    if (result != nullptr) *result = r;
    return out;
}

Bytes ReadStream(const std::string &document, const std::string &path, int32_t *result = nullptr) {
    int32_t r = 12345;
    HZEPIO h = docOpenStream(document.c_str(), path.c_str(), &r);
    if (result != nullptr) *result = r;
    if (h == 0) return {};
    EXPECT_EQ(r, DOC_OK);
    Bytes out = ReadAll(h, 777);
    EXPECT_EQ(zepClose(h), 0);
    return out;
}

class GsfDocument : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(ToolsPresent()) << "gsf (libgsf-bin) and olefile (python3-olefile) are installed by scripts/setup.sh";
    }
    // Writes files under tree/ and makes doc.ole of them.
    void Put(const std::string &path, const Bytes &bytes) {
        std::filesystem::path p = std::filesystem::path(dir.Path("tree")) / path;
        std::filesystem::create_directories(p.parent_path());
        WriteFile(p.string(), bytes);
        expected[path] = bytes;
    }
    std::string Make() {
        std::string document = dir.Path("doc.ole");
        EXPECT_TRUE(GsfCreate(dir.Path("tree"), document));
        return document;
    }
    // Every stream olefile finds reads back the same through the module, and
    // both give what went in.
    void CheckAgainstOlefile(const std::string &document) {
        OleView view = OlefileRead(document, dir.Path("olefile"));
        ASSERT_TRUE(view.ok);
        EXPECT_EQ(view.streams.size(), expected.size());
        for (const auto &[path, bytes] : view.streams) {
            int32_t r = 0;
            EXPECT_EQ(ReadStream(document, path, &r), bytes) << path;
            EXPECT_EQ(r, DOC_OK) << path;
            EXPECT_EQ(bytes, expected[path]) << path;
        }
        std::vector<Listed> listed = List(document);
        size_t streams = 0, storages = 0;
        for (const Listed &l : listed) {
            if (l.type == DOC_ENTRY_STREAM) {
                ++streams;
                ASSERT_TRUE(view.streams.count(l.path)) << l.path;
                EXPECT_EQ(l.size, view.streams[l.path].size()) << l.path;
            } else {
                ++storages;
                EXPECT_NE(std::find(view.storages.begin(), view.storages.end(), l.path), view.storages.end()) << l.path;
            }
        }
        EXPECT_EQ(streams, view.streams.size());
        EXPECT_EQ(storages, view.storages.size());
    }
    TempDir dir;
    std::map<std::string, Bytes> expected;
};

TEST_F(GsfDocument, StreamsAroundTheMiniSectorAndCutoffSizesReadBackAsOlefileReadsThem) {
    LeakCheck leaks;
    uint32_t seed = 1;
    for (size_t size : {0, 1, 63, 64, 65, 511, 512, 513, 4095, 4096, 4097, 100000}) {
        Put(Numbered("s", size), Pattern(size, seed++));
    }
    CheckAgainstOlefile(Make());
}

TEST_F(GsfDocument, ManyStreamsAndNestedStoragesReadBackAsOlefileReadsThem) {
    LeakCheck leaks;
    uint32_t seed = 100;
    for (int i = 0; i < 120; ++i) Put(Numbered("many", static_cast<size_t>(i)), Pattern(static_cast<size_t>(i * 97 % 5000), seed++));
    Put("Pictures/Page1", Pattern(70000, seed++));
    Put("Pictures/Page2", Pattern(300, seed++));
    Put("Pictures/Thumbs/Small", Pattern(4096, seed++));
    Put("Pictures/Thumbs/Deeper/Deepest/x", Pattern(5, seed++));
    CheckAgainstOlefile(Make());
}

TEST_F(GsfDocument, DocumentLargeEnoughToIndexItsTableInDifatSectorsReadsBack) {
    LeakCheck leaks;
    Put("big", Pattern(7600000, 9));
    Put("small", Pattern(1000, 10));
    std::string document = Make();
    int32_t r = 0;
    HZEPIO h = docOpenStream(document.c_str(), "big", &r);
    ASSERT_NE(h, 0u) << r;
    EXPECT_GT(Record(h)->DocHdr.FatLength, 109u);
    EXPECT_GT(Record(h)->DocHdr.DifLength, 0u);
    zepClose(h);
    CheckAgainstOlefile(document);
}

TEST_F(GsfDocument, RandomSeeksReadTheSameBytesAsOlefile) {
    LeakCheck leaks;
    Put("large", Pattern(100000, 3));
    Put("small", Pattern(4000, 4));
    std::string document = Make();
    OleView view = OlefileRead(document, dir.Path("olefile"));
    ASSERT_TRUE(view.ok);
    std::mt19937 rng(42);
    for (const char *name : {"large", "small"}) {
        const Bytes &truth = view.streams[name];
        const auto length = static_cast<int32_t>(truth.size());
        HZEPIO h = docOpenStream(document.c_str(), name, nullptr);
        ASSERT_NE(h, 0u);
        int32_t here = 0;
        for (int i = 0; i < 300; ++i) {
            int32_t whence = static_cast<int32_t>(rng() % 3);
            int32_t offset = static_cast<int32_t>(rng() % (length + 200)) - 100;
            int64_t target = whence == 0 ? offset : whence == 1 ? int64_t{here} + offset : int64_t{length} - offset;
            target = std::clamp<int64_t>(target, 0, length);
            ASSERT_EQ(zepSeek(h, offset, whence), target);
            here = static_cast<int32_t>(target);
            int32_t want = static_cast<int32_t>(rng() % 3000);
            Bytes got(static_cast<size_t>(want));
            int32_t n = zepRead(h, got.data(), want);
            int32_t expectedCount = std::min(want, length - here);
            ASSERT_EQ(n, expectedCount);
            ASSERT_TRUE(std::equal(got.begin(), got.begin() + n, truth.begin() + here)) << name << " at " << here;
            here += n;
            ASSERT_EQ(zepSeek(h, 0, 1), here);
        }
        zepClose(h);
    }
}

TEST_F(GsfDocument, NamesAreFoundWithoutRegardToCase) {
    LeakCheck leaks;
    Put("Pictures/Page1", B("one"));
    Put("Straße", B("two"));
    std::string document = Make();
    EXPECT_EQ(ReadStream(document, "pictures/PAGE1"), B("one"));
    EXPECT_EQ(ReadStream(document, "/Pictures//Page1"), B("one")) << "empty names between slashes are skipped";
    EXPECT_EQ(ReadStream(document, "STRASSE"), Bytes()) << "upper-casing is one unit for one unit";
    EXPECT_EQ(ReadStream(document, "STRAßE"), B("two"));
}

TEST_F(GsfDocument, NonAsciiNamesAreUpperCasedByTheUnicodeTables) {
    LeakCheck leaks;
    Put("Ärger", B("a"));
    Put("ωμέγα", B("b"));
    std::string document = Make();
    EXPECT_EQ(ReadStream(document, "äRGER"), B("a"));
    EXPECT_EQ(ReadStream(document, "ΩΜΈΓΑ"), B("b"));
}

TEST_F(GsfDocument, MissingNamesStoragesAndPathsThroughStreamsAreRefused) {
    LeakCheck leaks;
    Put("Pictures/Page1", B("one"));
    std::string document = Make();
    int32_t r = 0;
    EXPECT_EQ(docOpenStream(document.c_str(), "Pictures/Page2", &r), 0u);
    EXPECT_EQ(r, DOC_E_NOTFOUND);
    EXPECT_EQ(docOpenStream(document.c_str(), "Pictures", &r), 0u);
    EXPECT_EQ(r, DOC_E_NOTSTREAM);
    EXPECT_EQ(docOpenStream(document.c_str(), "Pictures/Page1/x", &r), 0u);
    EXPECT_EQ(r, DOC_E_NOTFOUND);
    EXPECT_EQ(docOpenStream(document.c_str(), "", &r), 0u);
    EXPECT_EQ(r, DOC_E_ARGUMENT);
    EXPECT_EQ(docOpenStream(document.c_str(), nullptr, &r), 0u);
    EXPECT_EQ(r, DOC_E_ARGUMENT);
    EXPECT_EQ(docOpenStream(dir.Path("none.ole").c_str(), "x", &r), 0u);
    EXPECT_EQ(r, DOC_E_OPEN);
}

TEST_F(GsfDocument, ListingStopsWhenTheCallerSaysSo) {
    LeakCheck leaks;
    Put("a", B("1"));
    Put("b", B("2"));
    std::string document = Make();
    int calls = 0;
    EXPECT_EQ(docListEntries(
                  document.c_str(),
                  [](const char *, int32_t, uint32_t, void *user) -> int32_t {
                      ++*static_cast<int *>(user);
                      return 1;
                  },
                  &calls),
              DOC_OK);
    EXPECT_EQ(calls, 1);
}

}  // namespace
