// The picture libraries' modules (mivo4-png.so, mivo4-jpeg.so, mivo4-tiff.so:
// the readers, libtiff's decoder, the PNG writer): the program loads one only
// when a job needs it, and without it says so in one line and still does
// what needs none of it.
#include <cstdlib>
#include <filesystem>

#include "clirun.h"
#include "inputpictures.h"
#include "toolfixture.h"

using toolstest::contains;
using toolstest::lines;
using toolstest::Outcome;
using toolstest::RunOptions;
using toolstest::runMivo4;
using toolstest::ScratchDir;

namespace {

void writePbm(const std::string &path) {
    toolstest::writeBytes(path, "P4\n40 30\n",
                          toolstest::packedBits(40, 30, [](uint32_t x, uint32_t y) { return (x * y) % 7 == 0; }));
}

Outcome withoutCodecs(const std::vector<std::string> &args, const ScratchDir &dir) {
    RunOptions o;
    o.env.push_back("MIVO4_CODECS=" + (dir / "no-picture-libraries"));
    return runMivo4(args, dir, o);
}

}  // namespace

TEST(PictureLibraries, TheProgramItselfLinksNoPictureLibrary) {
    ScratchDir dir;
    // The dynamic loader lists what it would load, as ldd does.
    RunOptions o;
    o.env.push_back("LD_TRACE_LOADED_OBJECTS=1");
    Outcome r = runMivo4({"--version"}, dir, o);
    ASSERT_EQ(r.code, 0) << r.err;
    ASSERT_TRUE(contains(r.out, "libc.so")) << r.out;
    for (const char *lib : {"libpng", "libjpeg", "libtiff", "libz."}) EXPECT_FALSE(contains(r.out, lib)) << lib << "\n" << r.out;
}

TEST(PictureLibraries, WithoutThemAPngIsRefusedInOneLineAndAPnmStillExports) {
    ScratchDir dir;
    writePbm(dir / "a.pbm");
    Outcome r = runMivo4({"export", "-q", dir / "a.pbm", dir / "a.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    r = runMivo4({"decode", dir / "a.cal", dir / "a.png"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;

    r = withoutCodecs({"export", dir / "a.png", dir / "b.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "a.png: cannot load the picture libraries")) << r.err;

    r = withoutCodecs({"export", "--no-verify", dir / "a.pbm", dir / "c.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(toolstest::readBytes(dir / "c.cal"), toolstest::readBytes(dir / "a.cal"));

    // The check of a written file decodes it: without the decoder nothing is written.
    r = withoutCodecs({"export", dir / "a.pbm", dir / "d.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "cannot be checked")) << r.err;
    EXPECT_TRUE(contains(r.err, "--no-verify")) << r.err;

    r = withoutCodecs({"info", dir / "a.cal"}, dir);
    EXPECT_TRUE(contains(r.out, "rpelcnt: 000040,000030")) << r.out;
    EXPECT_TRUE(contains(r.out, "cannot load the picture libraries")) << r.out;

    r = withoutCodecs({"decode", dir / "a.cal", dir / "e.pbm"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "cannot load the picture libraries")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.cal", "a.pbm", "a.png", "c.cal"}));
}

TEST(PictureLibraries, AFileThatIsNotTheirModuleIsRefusedLikeAMissingOne) {
    ScratchDir dir;
    writePbm(dir / "a.pbm");
    const std::string libs = dir / "no-picture-libraries", tiff = libs + "/mivo4-tiff.so";
    std::filesystem::create_directory(libs);
    toolstest::writeBytes(tiff, "not a shared object", {});
    Outcome r = withoutCodecs({"export", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "cannot load the picture libraries")) << r.err;
    // The module itself is a shared object, but not this one.
    std::filesystem::remove(tiff);
    std::filesystem::copy_file(MIVO4_MODULE_PATH, tiff);
    r = withoutCodecs({"export", dir / "a.pbm", dir / "b.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "not the picture libraries of this mivo4")) << r.err;
}

// Each job maps only the picture library it uses, as the dynamic loader
// reports the files it opens.
TEST(PictureLibraries, AJobLoadsOnlyTheLibraryItsPictureNeeds) {
    ScratchDir dir;
    std::vector<uint8_t> px(40 * 30 * 3);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(i * 7);
    ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", 40, 30, 3, px));
    writePbm(dir / "a.pbm");
    Outcome r = runMivo4({"export", "-q", dir / "a.pbm", dir / "a.cal"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    r = runMivo4({"decode", dir / "a.cal", dir / "a.png"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    auto opened = [&](const std::vector<std::string> &args) {
        RunOptions o;
        o.env.push_back("LD_DEBUG=files");
        Outcome run = runMivo4(args, dir, o);
        EXPECT_EQ(run.code, 0) << run.err;
        std::vector<std::string> libs;
        for (const char *lib : {"mivo4-png.so", "mivo4-jpeg.so", "mivo4-tiff.so", "libpng", "libjpeg", "libtiff"})
            if (contains(run.err, std::string("file=") + lib) || contains(run.err, std::string("/") + lib))
                libs.push_back(lib);
        return libs;
    };
    EXPECT_EQ(opened({"export", "-q", "--no-verify", dir / "a.jpg", dir / "b.cal"}),
              (std::vector<std::string>{"mivo4-jpeg.so", "libjpeg"}));
    EXPECT_EQ(opened({"export", "-q", "--no-verify", dir / "a.png", dir / "c.cal"}),
              (std::vector<std::string>{"mivo4-png.so", "libpng"}));
    EXPECT_EQ(opened({"export", "-q", "--no-verify", dir / "a.pbm", dir / "d.cal"}), std::vector<std::string>{});
    // The check decodes with libtiff (which brings libjpeg for its own use).
    std::vector<std::string> checked = opened({"export", "-q", dir / "a.pbm", dir / "e.cal"});
    EXPECT_TRUE(std::find(checked.begin(), checked.end(), "mivo4-tiff.so") != checked.end());
    EXPECT_TRUE(std::find(checked.begin(), checked.end(), "mivo4-png.so") == checked.end());
}
