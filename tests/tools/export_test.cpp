// Exports through the module opened with dlopen, as the mivo4 host does them:
// the three output ways agree byte for byte, and other programs' readers get
// back what went in.
#include <cstring>

#include "exporter.h"
#include "gp4file.h"
#include "module.h"
#include "oracles.h"
#include "toolfixture.h"

using namespace mivo4::host;
using toolstest::ScratchDir;

namespace {

// Loaded once and kept, as a host keeps a filter it has opened.
const Module &module() {
    static Module *m = [] {
        auto *mod = new Module;
        if (!mod->open(MIVO4_MODULE_PATH)) {
            ADD_FAILURE() << mod->error();
        }
        mod->keepLoaded();
        return mod;
    }();
    return *m;
}

bool bitOn(uint32_t x, uint32_t y) { return ((x / 3 + y / 2) % 5 == 0) || ((x * 7 + y * 3) % 11 < 4) || x == 2 * y; }

// Writes a picture file, reads it into the module's memory and exports it.
std::vector<uint8_t> exportFile(const std::string &input, const ExportSettings &s, const std::string &output) {
    ModuleMemory memory(module().api());
    Image image = readImage(input, memory.allocator());
    AtomicOutput out;
    EXPECT_TRUE(out.open(output)) << out.error();
    exportImage(module(), memory, image, s, out);
    EXPECT_TRUE(out.commit()) << out.error();
    return toolstest::readBytes(output);
}

ExportSettings ownSize(int dpi, OutputMode mode = OutputMode::File) {
    ExportSettings s;
    s.sizeMode = 2;  // user: the picture's own size in inches
    s.sourceDpi = dpi;
    s.dpi = dpi;
    s.mode = mode;
    return s;
}

void writePbm(const std::string &path, uint32_t w, uint32_t h) {
    toolstest::writeBytes(path, "P4\n" + std::to_string(w) + " " + std::to_string(h) + "\n",
                          toolstest::packedBits(w, h, bitOn));
}

void writePpm(const std::string &path, uint32_t w, uint32_t h) {
    std::vector<uint8_t> px;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (uint32_t c = 0; c < 3; ++c) px.push_back(toolstest::pattern(x, y, c));
    toolstest::writeBytes(path, "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n", px);
}

void writePgm(const std::string &path, uint32_t w, uint32_t h) {
    std::vector<uint8_t> px;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) px.push_back(toolstest::pattern(x, y));
    toolstest::writeBytes(path, "P5\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n", px);
}

Gp4Header headerOf(const std::vector<uint8_t> &file) { return parseGp4Header(file); }

}  // namespace

TEST(HostExport, ModuleOffersTheBitmapExport) {
    ASSERT_NE(module().api().exportCellData, nullptr) << "the module's ExportCellData entry is empty";
}

TEST(HostExport, FileMemoryAndCallbackWaysGiveByteIdenticalFiles) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 203, 120);
    writePgm(dir / "b.pgm", 150, 99);
    writePpm(dir / "c.ppm", 171, 64);
    for (const char *input : {"a.pbm", "b.pgm", "c.ppm"}) {
        SCOPED_TRACE(input);
        auto file = exportFile(dir / input, ownSize(200, OutputMode::File), dir / "file.cal");
        auto memory = exportFile(dir / input, ownSize(200, OutputMode::Memory), dir / "memory.cal");
        auto callback = exportFile(dir / input, ownSize(200, OutputMode::Callback), dir / "callback.cal");
        ASSERT_GT(file.size(), 2048u);
        EXPECT_EQ(file, memory);
        EXPECT_EQ(file, callback);
        EXPECT_EQ(std::string(file.begin(), file.begin() + 14), "srcdocid: NONE");
    }
    // Nothing but the three results is left in the directory.
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "b.pgm", "c.ppm", "callback.cal", "file.cal", "memory.cal"}));
}

TEST(HostExport, OneBitPicturesComeBackPixelForPixelThroughLibtiff) {
    ScratchDir dir;
    const uint32_t w = 301, h = 200;
    writePbm(dir / "a.pbm", w, h);
    auto file = exportFile(dir / "a.pbm", ownSize(300), dir / "a.cal");
    Gp4Header hd = headerOf(file);
    ASSERT_TRUE(hd.width && hd.height);
    EXPECT_EQ(*hd.width, w);
    EXPECT_EQ(*hd.height, h);
    EXPECT_EQ(hd.density.value_or(0), 300u);
    std::vector<uint8_t> coded(file.begin() + 2048, file.end());
    DecodeResult d = decodeG4(coded, w, h);
    ASSERT_TRUE(d.picture) << d.problem;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(d.picture->black(x, y), bitOn(x, y)) << x << "," << y;
}

// The same picture from a black-first table (a 1-bit PNG) and a white-first
// one (PBM): the table decides which bits are black.
TEST(HostExport, OneBitPicturesComeBackPixelForPixelThroughGraphicsMagickAndImageMagick) {
    auto gm = toolstest::graphicsMagick();
    auto im = toolstest::imageMagick();
    if (!gm && !im) GTEST_SKIP() << "neither GraphicsMagick nor ImageMagick is installed";
    ScratchDir dir;
    const uint32_t w = 517, h = 330;
    writePbm(dir / "a.pbm", w, h);
    toolstest::PngSpec s;
    s.width = w;
    s.height = h;
    s.colourType = PNG_COLOR_TYPE_GRAY;
    s.bitDepth = 1;
    auto bits = toolstest::packedBits(w, h, [](uint32_t x, uint32_t y) { return !bitOn(x, y); });  // 1 is white
    const size_t stride = (w + 7) / 8;
    for (uint32_t y = 0; y < h; ++y) s.rows.emplace_back(bits.begin() + y * stride, bits.begin() + (y + 1) * stride);
    ASSERT_TRUE(toolstest::writePngFile(dir / "b.png", s));

    for (const char *input : {"a.pbm", "b.png"}) {
        SCOPED_TRACE(input);
        exportFile(dir / input, ownSize(300), dir / "x.cal");
        struct Reader {
            const char *name;
            std::optional<std::string> command;
        } readers[] = {{"GraphicsMagick", gm}, {"ImageMagick", im}};
        for (const Reader &r : readers) {
            if (!r.command) {
                std::printf("note: %s is not installed; its round trip is not checked\n", r.name);
                continue;
            }
            SCOPED_TRACE(r.name);
            std::string out = dir / "back.pbm";
            std::filesystem::remove(out);
            ASSERT_EQ(toolstest::runQuiet(*r.command + " " + toolstest::shellQuote(dir / "x.cal") + " " +
                                          toolstest::shellQuote(out)),
                      0);
            auto pbm = toolstest::readPbm(out);
            ASSERT_TRUE(pbm) << "no PBM from " << r.name;
            ASSERT_EQ(pbm->width, w);
            ASSERT_EQ(pbm->height, h);
            uint32_t wrong = 0;
            for (uint32_t y = 0; y < h; ++y)
                for (uint32_t x = 0; x < w; ++x) wrong += pbm->black(x, y) != bitOn(x, y);
            EXPECT_EQ(wrong, 0u);
        }
    }
}

TEST(HostExport, EightAndTwentyFourBitPicturesDecodeToTheirOwnSize) {
    auto gm = toolstest::graphicsMagick();
    ScratchDir dir;
    writePgm(dir / "g.pgm", 333, 250);
    writePpm(dir / "c.ppm", 640, 480);
    struct Case {
        const char *input;
        uint32_t w, h;
    } cases[] = {{"g.pgm", 333, 250}, {"c.ppm", 640, 480}};
    for (const Case &k : cases) {
        SCOPED_TRACE(k.input);
        auto file = exportFile(dir / k.input, ownSize(300), dir / "x.cal");
        Gp4Header hd = headerOf(file);
        ASSERT_TRUE(hd.width && hd.height);
        EXPECT_EQ(*hd.width, k.w);
        EXPECT_EQ(*hd.height, k.h);
        std::vector<uint8_t> coded(file.begin() + 2048, file.end());
        DecodeResult d = decodeG4(coded, k.w, k.h);
        EXPECT_TRUE(d.picture) << d.problem;
        EXPECT_FALSE(codesMoreRows(coded, k.w, k.h));
        if (!gm) {
            std::printf("note: GraphicsMagick is not installed; its decoding is not checked\n");
            continue;
        }
        std::string out = dir / "back.pbm";
        ASSERT_EQ(toolstest::runQuiet(*gm + " " + toolstest::shellQuote(dir / "x.cal") + " " + toolstest::shellQuote(out)), 0);
        auto pbm = toolstest::readPbm(out);
        ASSERT_TRUE(pbm);
        EXPECT_EQ(pbm->width, k.w);
        EXPECT_EQ(pbm->height, k.h);
    }
}

TEST(HostExport, TheFilesResolutionIsThePicturesWhenNoneIsGiven) {
    ScratchDir dir;
    toolstest::PngSpec s;
    s.width = 120;
    s.height = 80;
    s.colourType = PNG_COLOR_TYPE_GRAY;
    s.pixelsPerMetre = 5906;  // 150 dots per inch
    for (uint32_t y = 0; y < s.height; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < s.width; ++x) r.push_back(toolstest::pattern(x, y));
        s.rows.push_back(r);
    }
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    ExportSettings settings;
    settings.sizeMode = 2;
    settings.dpi = 300;
    auto file = exportFile(dir / "a.png", settings, dir / "a.cal");
    Gp4Header hd = headerOf(file);
    ASSERT_TRUE(hd.width && hd.height);
    EXPECT_EQ(*hd.width, 240u) << "0.8 inches at 300 dpi";
    EXPECT_EQ(*hd.height, 160u);
    EXPECT_EQ(hd.density.value_or(0), 300u);
}

TEST(HostExport, OutOfRangeOptionsAreRefusedAsTheModuleAnswers) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    ExportSettings s;
    s.width = 30;
    try {
        exportFile(dir / "a.pbm", s, dir / "a.cal");
        FAIL() << "a width of 30 inches was taken";
    } catch (const ExportError &e) {
        EXPECT_EQ(e.exitCode, 2);
        EXPECT_NE(std::string(e.what()).find("--width 30"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "a.cal"));
}

TEST(HostExport, ManyExportsInOneProcessGiveTheSameFile) {
    ScratchDir dir;
    writePpm(dir / "c.ppm", 97, 40);
    auto first = exportFile(dir / "c.ppm", ownSize(240), dir / "1.cal");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(exportFile(dir / "c.ppm", ownSize(240), dir / "n.cal"), first) << i;
}
