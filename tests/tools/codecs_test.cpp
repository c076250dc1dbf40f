// The picture libraries' module (PNG, JPEG and TIFF readers, libtiff's
// decoder, the PNG writer): the program loads it only when a job needs it,
// and without it says so in one line and still does what needs none of it.
#include <cstdlib>

#include "clirun.h"
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
    o.env.push_back("MIVO4_CODECS=" + (dir / "missing-codecs.so"));
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
    toolstest::writeBytes(dir / "missing-codecs.so", "not a shared object", {});
    Outcome r = withoutCodecs({"export", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "cannot load the picture libraries")) << r.err;
    // The module itself is a shared object, but not this one.
    RunOptions o;
    o.env.push_back(std::string("MIVO4_CODECS=") + MIVO4_MODULE_PATH);
    r = runMivo4({"export", dir / "a.pbm", dir / "b.cal"}, dir, o);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "not the picture libraries of this mivo4")) << r.err;
}
