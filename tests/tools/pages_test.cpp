// Multi-page TIFF files: the page count, --page (from 1), an OUTPUT with a
// page number writing every page, the warning when only page 1 of several
// is written, a page past the last refused naming the count, each page's
// output whole or not at all, and the options reaching a batch's workers.
#include <cstdlib>

#include "clirun.h"
#include "oracles.h"
#include "inputpictures.h"
#include "pages.h"
#include "toolfixture.h"

using namespace toolstest;
using mivo4::host::Image;
using mivo4::host::PictureSource;
using mivo4::host::ReadError;
using mivo4::host::isPageTemplate;
using mivo4::host::pageOutputName;
using mivo4::host::pageTemplateProblem;
using mivo4::host::parsePageNumber;

namespace {

bool stripes(uint32_t x, uint32_t y) { return (x / 3 + y) % 4 == 0 || x < 2; }
bool checks(uint32_t x, uint32_t y) { return ((x / 5) ^ (y / 5)) & 1; }

// Three pages of different sizes and kinds: bilevel, grey, RGB.
std::vector<TiffPage> threePages() {
    return {{bilevelSpec(40, 30, stripes), 0},
            {byteSpec(25, 35, 1, [](uint32_t x, uint32_t y, uint32_t) { return static_cast<uint8_t>(x * 10 + y); }), 0},
            {bilevelSpec(64, 16, checks), 0}};
}

std::vector<uint8_t> exportBytes(const ScratchDir &dir, std::vector<std::string> args) {
    const std::string out = dir / ".single.cal";
    args.push_back(out);
    args.insert(args.begin(), "export");
    Outcome r = runMivo4(args, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    auto bytes = readBytes(out);
    std::filesystem::remove(out);
    return bytes;
}

}  // namespace

TEST(PageOutputNames, PageNumbersArePlacedPaddedAndPercentSignsKept) {
    EXPECT_TRUE(isPageTemplate("out-%d.cal"));
    EXPECT_TRUE(isPageTemplate("out-%03d.cal"));
    EXPECT_FALSE(isPageTemplate("out.cal"));
    EXPECT_FALSE(isPageTemplate("50%.cal"));
    EXPECT_FALSE(isPageTemplate("a%%d.cal")) << "a percent sign, then d";
    EXPECT_FALSE(isPageTemplate("a%00d.cal")) << "no width of 0";
    EXPECT_EQ(pageOutputName("out-%d.cal", 1), "out-1.cal");
    EXPECT_EQ(pageOutputName("out-%d.cal", 12), "out-12.cal");
    EXPECT_EQ(pageOutputName("out-%03d.cal", 7), "out-007.cal");
    EXPECT_EQ(pageOutputName("out-%03d.cal", 1234), "out-1234.cal");
    EXPECT_EQ(pageOutputName("100%%-%d.cal", 2), "100%-2.cal");
    EXPECT_EQ(pageOutputName("%d/p%d.cal", 3), "3/p3.cal");
    EXPECT_EQ(pageTemplateProblem("out-%d.cal"), "");
    EXPECT_EQ(pageTemplateProblem("50%.cal"), "") << "no page number: taken literally";
    EXPECT_NE(pageTemplateProblem("50%-%d.cal"), "");
    EXPECT_NE(pageTemplateProblem("%d%"), "");
}

TEST(PageOutputNames, APageNumberIsAWholeNumberFromOne) {
    uint32_t p = 0;
    EXPECT_TRUE(parsePageNumber("1", p));
    EXPECT_EQ(p, 1u);
    EXPECT_TRUE(parsePageNumber("4294967295", p));
    EXPECT_EQ(p, 4294967295u);
    for (const char *bad : {"0", "", "-1", "+1", " 1", "1x", "4294967296", "99999999999999999999"})
        EXPECT_FALSE(parsePageNumber(bad, p)) << bad;
}

TEST(MultiPageTiff, PagesAreCountedAndTheAskedOneIsReadByNameOrFromMemory) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    const std::vector<uint8_t> bytes = readBytes(dir / "m.tif");
    const uint32_t widths[] = {40, 25, 64}, heights[] = {30, 35, 16};
    const int depths[] = {1, 8, 1};
    for (uint32_t page = 1; page <= 3; ++page) {
        for (bool memory : {false, true}) {
            HostMemory mem;
            PictureSource s(dir / "m.tif");
            s.page = page;
            if (memory) s.inMemory = true, s.bytes = bytes;
            Image im = mivo4::host::readImage(s, mem.allocator());
            EXPECT_EQ(im.pages, 3u);
            EXPECT_EQ(im.width, widths[page - 1]) << page;
            EXPECT_EQ(im.height, heights[page - 1]) << page;
            EXPECT_EQ(im.depth, depths[page - 1]) << page;
            if (page != 3) continue;
            for (uint32_t y = 0; y < 16; ++y)
                for (uint32_t x = 0; x < 64; ++x) ASSERT_EQ(bitAt(im.row(y), x), checks(x, y));
        }
    }
}

TEST(MultiPageTiff, APagePastTheLastIsRefusedNamingTheCount) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    HostMemory mem;
    PictureSource s(dir / "m.tif");
    s.page = 4;
    try {
        mivo4::host::readImage(s, mem.allocator());
        ADD_FAILURE() << "page 4 of 3 was read";
    } catch (const ReadError &e) {
        EXPECT_EQ(std::string(e.what()), dir / "m.tif" + ": has 3 pages; --page 4 is past the last");
    }
    Outcome r = runMivo4({"export", "--page", "9", dir / "m.tif", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "has 3 pages; --page 9 is past the last")) << r.err;
    writeBytes(dir / "one.pbm", "P4 8 2\n", {0xF0, 0x0F});
    r = runMivo4({"export", "--page", "2", dir / "one.pbm", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "has 1 page; --page 2")) << r.err;
    for (const char *bad : {"0", "x", "-2"}) {
        r = runMivo4({"export", "--page", bad, dir / "m.tif", dir / "o.cal"}, dir);
        EXPECT_EQ(r.code, 2) << bad;
        EXPECT_TRUE(contains(r.err, "--page needs a page number from 1")) << r.err;
    }
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"m.tif", "one.pbm"}));
}

TEST(MultiPageTiff, WithoutPageOrPageNumberPageOneIsWrittenWithOneWarningLine) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    Outcome r = runMivo4({"export", dir / "m.tif", dir / "o.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "warning: " + dir / "m.tif" + " has 3 pages; only page 1 was written")) << r.err;
    EXPECT_TRUE(contains(r.err, "--page N")) << r.err;
    EXPECT_TRUE(contains(r.err, "%d")) << r.err;
    EXPECT_EQ(lines(r.err), 2) << "the summary and the warning: " << r.err;
    EXPECT_EQ(readBytes(dir / "o.cal"), exportBytes(dir, {"--page", "1", dir / "m.tif"}));
    // An explicit page is no reason to warn; nor is a one-page file.
    r = runMivo4({"export", "--page", "2", dir / "m.tif", dir / "o2.cal"}, dir);
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(contains(r.err, "warning")) << r.err;
    ASSERT_TRUE(writeTiffPages(dir / "s.tif", {threePages()[0]}));
    r = runMivo4({"export", dir / "s.tif", dir / "s.cal"}, dir);
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(contains(r.err, "warning")) << r.err;
}

TEST(MultiPageTiff, AnOutputWithAPageNumberWritesEveryPageCountedFromOne) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    std::vector<std::vector<uint8_t>> single;
    for (const char *p : {"1", "2", "3"}) single.push_back(exportBytes(dir, {"--page", p, dir / "m.tif"}));
    EXPECT_NE(single[0], single[1]);
    Outcome r = runMivo4({"export", dir / "m.tif", dir / "out-%d.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_FALSE(contains(r.err, "warning")) << r.err;
    EXPECT_EQ(lines(r.err), 3) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"m.tif", "out-1.cal", "out-2.cal", "out-3.cal"}));
    for (int p = 1; p <= 3; ++p) EXPECT_EQ(readBytes(dir / ("out-" + std::to_string(p) + ".cal")), single[p - 1]) << p;
    // Padded, with a percent sign, and --page picking one.
    r = runMivo4({"export", dir / "m.tif", dir / "p%%-%02d.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(readBytes(dir / "p%-03.cal"), single[2]);
    r = runMivo4({"export", "--page", "2", dir / "m.tif", dir / "q-%d.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(readBytes(dir / "q-2.cal"), single[1]);
    EXPECT_FALSE(std::filesystem::exists(dir / "q-1.cal"));
    // A one-page picture is page 1.
    writeBytes(dir / "one.pbm", "P4 8 2\n", {0xF0, 0x0F});
    r = runMivo4({"export", dir / "one.pbm", dir / "one-%d.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(std::filesystem::exists(dir / "one-1.cal"));
}

TEST(MultiPageTiff, EveryPageOfAPipedFileIsWrittenFromOneReading) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    Outcome byName = runMivo4({"export", dir / "m.tif", dir / "a-%d.cal"}, dir);
    ASSERT_EQ(byName.code, 0) << byName.err;
    // A shell pipe: its bytes can be read only once.
    const std::string command = "cat " + shellQuote(dir / "m.tif") + " | MIVO4_MODULE=" + shellQuote(MIVO4_MODULE_PATH) +
                                " " + shellQuote(cliPath()) + " export - " + shellQuote(dir / "b-%d.cal") + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    for (int p = 1; p <= 3; ++p) {
        const std::string n = std::to_string(p) + ".cal";
        EXPECT_EQ(readBytes(dir / ("b-" + n)), readBytes(dir / ("a-" + n))) << p;
    }
}

TEST(MultiPageTiff, APageThatFailsStopsTheRestAndLeavesTheWrittenPagesWhole) {
    ScratchDir dir;
    // Page 2's only strip is not deflate data.
    TIFF *t = TIFFOpen((dir / "m.tif").c_str(), "w");
    ASSERT_NE(t, nullptr);
    for (int page = 1; page <= 3; ++page) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 16u);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, 8u);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(t, TIFFTAG_COMPRESSION, page == 2 ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 8u);
        std::vector<uint8_t> strip(16 * 8, static_cast<uint8_t>(page * 60));
        if (page == 2) strip.assign(12, 0xAB);
        TIFFWriteRawStrip(t, 0, strip.data(), static_cast<tmsize_t>(strip.size()));
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
    Outcome r = runMivo4({"export", dir / "m.tif", dir / "out-%d.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "wrote " + dir / "out-1.cal")) << r.err;
    EXPECT_TRUE(contains(r.err, "damaged")) << r.err;
    EXPECT_EQ(lines(r.err), 2) << r.err;
    // Page 1 as a single export writes it; nothing of page 2 or 3, no temporary file.
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"m.tif", "out-1.cal"}));
    EXPECT_EQ(readBytes(dir / "out-1.cal"), exportBytes(dir, {"--page", "1", dir / "m.tif"}));
}

TEST(MultiPageTiff, AnOutputWithAStrayPercentSignIsAUsageError) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    Outcome r = runMivo4({"export", dir / "m.tif", dir / "50%-%d.cal"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, "write %% for a percent sign")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"m.tif"}));
}

TEST(MultiPageTiff, PageAndNoOrientReachEveryWorkerOfABatch) {
    ScratchDir dir;
    ASSERT_TRUE(writeTiffPages(dir / "m.tif", threePages()));
    std::vector<TiffPage> turned = {{bilevelSpec(30, 50, stripes), 6}};
    ASSERT_TRUE(writeTiffPages(dir / "t.tif", turned));
    std::filesystem::create_directory(dir / "out");
    Outcome r = runMivo4({"export", "-o", dir / "out", "--page", "3", "--no-orient", dir / "m.tif", dir / "t.tif"}, dir);
    ASSERT_EQ(r.code, 1) << "t.tif has no page 3: " << r.err;
    EXPECT_TRUE(contains(r.err, "has 1 page; --page 3")) << r.err;
    EXPECT_EQ(readBytes(dir / "out/m.cal"), exportBytes(dir, {"--page", "3", dir / "m.tif"}));
    r = runMivo4({"export", "-o", dir / "out", "--no-orient", dir / "t.tif"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    const auto kept = exportBytes(dir, {"--no-orient", dir / "t.tif"});
    EXPECT_EQ(readBytes(dir / "out/t.cal"), kept);
    EXPECT_NE(kept, exportBytes(dir, {dir / "t.tif"})) << "turned upright by default";
}

TEST(MultiPageTiff, HelpSaysPagesCountFromOneAndReplayRefusesTheInputOptions) {
    ScratchDir dir;
    Outcome h = runMivo4({"--help"}, dir);
    EXPECT_EQ(h.code, 0);
    EXPECT_TRUE(contains(h.out, "--page N")) << h.out;
    EXPECT_TRUE(contains(h.out, "counted from 1")) << h.out;
    EXPECT_TRUE(contains(h.out, "out-%d.cal")) << h.out;
    EXPECT_TRUE(contains(h.out, "--no-orient")) << h.out;
    EXPECT_TRUE(contains(h.out, "INPUT may be - for standard input")) << h.out;
    // A driver trace has no pages and no orientation: the options would do nothing.
    writeBytes(dir / "t.ddt", "MIVO4DT1", {});
    for (auto opt : {std::vector<std::string>{"--page", "2"}, std::vector<std::string>{"--no-orient"}}) {
        std::vector<std::string> args{"replay"};
        args.insert(args.end(), opt.begin(), opt.end());
        args.insert(args.end(), {dir / "t.ddt", dir / "r.cal"});
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 2) << opt[0];
        EXPECT_TRUE(contains(r.err, "replay does not take " + opt[0])) << r.err;
    }
}
