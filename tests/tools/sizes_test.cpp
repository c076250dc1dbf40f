// Sizes as a user of the field's tools expects them: a picture without a
// resolution keeps its pixel size, --density sets both resolutions, --width
// and --height size the output or are refused, and a size mode that shrinks
// the picture to a sliver says so.
#include "clirun.h"
#include "gp4file.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

// Width and height stated by a GP4 file's header.
std::pair<uint32_t, uint32_t> sizeOf(const std::string &path) {
    auto h = mivo4::host::parseGp4Header(readBytes(path));
    return {h.width.value_or(0), h.height.value_or(0)};
}

uint32_t densityOf(const std::string &path) { return mivo4::host::parseGp4Header(readBytes(path)).density.value_or(0); }

}  // namespace

TEST(HostSizes, APictureWithoutAResolutionKeepsItsPixelSize) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 640, 480);  // PPM states no resolution
    for (const char *dpi : {"300", "200", "457"}) {
        Outcome r = runMivo4({"export", "--dpi", dpi, dir / "a.ppm", dir / "a.cal"}, dir);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(sizeOf(dir / "a.cal"), (std::pair<uint32_t, uint32_t>{640, 480})) << dpi;
        EXPECT_EQ(densityOf(dir / "a.cal"), static_cast<uint32_t>(std::stoi(dpi)));
    }
    // Said to have none, it is taken as points (72 to the inch), as before.
    Outcome r = runMivo4({"export", "--source-dpi", "0", dir / "a.ppm", dir / "b.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(sizeOf(dir / "b.cal"), (std::pair<uint32_t, uint32_t>{2666, 2000}));
}

TEST(HostSizes, DensitySetsThePicturesResolutionAndTheOutputsAtOnce) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 300, 200);
    Outcome r = runMivo4({"export", "--density", "150", dir / "a.ppm", dir / "a.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(sizeOf(dir / "a.cal"), (std::pair<uint32_t, uint32_t>{300, 200}));
    EXPECT_EQ(densityOf(dir / "a.cal"), 150u);
    EXPECT_EQ(runMivo4({"export", "--density", "0", dir / "a.ppm", dir / "b.cal"}, dir).code, 2);
}

TEST(HostSizes, WidthOrHeightSizeTheOutputKeepingTheAspect) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 600, 400);
    // 2 inches wide at 300 dpi: the picture is taken at 300 pixels per inch.
    Outcome r = runMivo4({"export", "--dpi", "300", "--width", "2", dir / "a.ppm", dir / "w.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(sizeOf(dir / "w.cal"), (std::pair<uint32_t, uint32_t>{600, 400}));
    r = runMivo4({"export", "--dpi", "300", "--height", "2", dir / "a.ppm", dir / "h.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(sizeOf(dir / "h.cal"), (std::pair<uint32_t, uint32_t>{900, 600}));
    // Both: the picture fits the box (here its height decides).
    r = runMivo4({"export", "--dpi", "300", "--width", "4", "--height", "1", dir / "a.ppm", dir / "b.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(sizeOf(dir / "b.cal"), (std::pair<uint32_t, uint32_t>{450, 300}));
}

TEST(HostSizes, WidthAndHeightOutsideSizeModeUserAreRefusedNotIgnored) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 60, 40);
    for (const char *mode : {"screen", "printer", "picture"}) {
        Outcome r = runMivo4({"export", "--size", mode, "--width", "2", dir / "a.ppm", dir / "a.cal"}, dir);
        EXPECT_EQ(r.code, 2) << mode;
        EXPECT_TRUE(r.err.find("size mode user only") != std::string::npos) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "a.cal"));
    }
}

TEST(HostSizes, ASizeModeThatShrinksThePictureToASliverWarns) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 2400, 1600);
    Outcome r = runMivo4({"export", "--size", "picture", "--source-dpi", "100", dir / "a.ppm", dir / "a.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(r.err.find("warning: the output will be") != std::string::npos) << r.err;
    r = runMivo4({"export", dir / "a.ppm", dir / "b.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(r.err.find("warning") == std::string::npos) << r.err;
}
