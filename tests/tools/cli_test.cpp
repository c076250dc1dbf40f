// The mivo4 program as a user runs it: exit codes, one-line messages, no
// half-written output, and the info and decode commands on good and damaged
// files.
#include <spawn.h>
#include <sys/wait.h>
#include <fcntl.h>

#include <cstring>

#include "clirun.h"
#include "oracles.h"
#include "toolfixture.h"

using toolstest::ScratchDir;
using toolstest::Outcome;
using toolstest::runMivo4;
using toolstest::lines;
using toolstest::contains;

namespace {

bool on(uint32_t x, uint32_t y) { return (x + y) % 9 < 4 || x % 31 == 0; }

void writePbm(const std::string &path, uint32_t w, uint32_t h) {
    toolstest::writeBytes(path, "P4\n" + std::to_string(w) + " " + std::to_string(h) + "\n",
                          toolstest::packedBits(w, h, on));
}

}  // namespace

TEST(Cli, ModuleInfoListsTheNineEntries) {
    ScratchDir dir;
    Outcome r = runMivo4({"module-info"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "version: 0x02000005")) << r.out;
    EXPECT_TRUE(contains(r.out, "entries: 9")) << r.out;
    EXPECT_TRUE(contains(r.out, "ExportCellData")) << r.out;
}

TEST(Cli, AModuleThatCannotBeLoadedIsOneLineAndExitOne) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 8, 8);
    Outcome r = runMivo4({"--module", dir / "missing.flt", "export", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "cannot load the module")) << r.err;
    toolstest::writeBytes(dir / "fake.flt", "not a shared object", {});
    r = runMivo4({"module-info"}, dir, (dir / "fake.flt").c_str());
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "cannot load the module")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "fake.flt"}));
}

TEST(Cli, ExportWritesTheFileAndSaysWhatItWrote) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 40);
    Outcome r = runMivo4({"export", "--source-dpi", "200", "--dpi", "200", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "64 x 40 pixels at 200 dpi")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.cal", "a.pbm"}));
    auto file = toolstest::readBytes(dir / "a.cal");
    ASSERT_GT(file.size(), 2048u);
    EXPECT_EQ(std::string(file.begin() + 1024, file.begin() + 1046), "rpelcnt: 000064,000040");
}

TEST(Cli, TheThreeOutputModesAndStandardOutputGiveTheSameBytes) {
    ScratchDir dir;
    std::vector<std::vector<uint8_t>> results;
    for (const char *mode : {"file", "memory", "callback"}) {
        std::string out = dir / (std::string(mode) + ".cal");
        Outcome r = runMivo4({"export", "--demo", "--output-mode", mode, out}, dir);
        ASSERT_EQ(r.code, 0) << r.err;
        results.push_back(toolstest::readBytes(out));
        Outcome s = runMivo4({"export", "--demo", "--output-mode", mode, "-"}, dir);
        ASSERT_EQ(s.code, 0) << s.err;
        EXPECT_EQ(s.outBytes, results.back()) << mode << " to standard output";
    }
    ASSERT_GT(results[0].size(), 2048u);
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[0], results[2]);
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"callback.cal", "file.cal", "memory.cal"}));
}

TEST(Cli, UnreadableInputFailsWithoutTouchingTheOutput) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "old.cal", "previous contents", {});
    toolstest::writeBytes(dir / "text.png", "just text\n", {});
    struct Case {
        std::string input, words;
    } cases[] = {{dir / "missing.png", "cannot open"}, {dir / "text.png", "not a picture"}};
    for (const Case &k : cases) {
        Outcome r = runMivo4({"export", k.input, dir / "old.cal"}, dir);
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, k.words)) << r.err;
        auto kept = toolstest::readBytes(dir / "old.cal");
        EXPECT_EQ(std::string(kept.begin(), kept.end()), "previous contents");
        Outcome n = runMivo4({"export", k.input, dir / "new.cal"}, dir);
        EXPECT_EQ(n.code, 1);
        EXPECT_FALSE(std::filesystem::exists(dir / "new.cal"));
    }
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"old.cal", "text.png"}));
}

TEST(Cli, OutOfRangeOptionsAreRefusedWithExitTwoAndNoOutput) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    struct Case {
        std::vector<std::string> options;
        std::string words;
    } cases[] = {
        {{"--width", "30"}, "--width 30 is out of range"},
        {{"--height", "0.01"}, "--height 0.01 is out of range"},
        {{"--dpi", "12000"}, "--dpi 12000 is out of range"},
        {{"--dpi", "0"}, "--dpi needs a whole number"},
        {{"--dpi", "abc"}, "--dpi needs a whole number"},
        {{"--size", "huge"}, "--size must be"},
        {{"--output-mode", "pipe"}, "--output-mode must be"},
        {{"--screen", "1280x1024"}, "--screen needs"},
        {{"--bogus"}, "unknown export option --bogus"},
    };
    for (const Case &k : cases) {
        std::vector<std::string> args = {"export"};
        args.insert(args.end(), k.options.begin(), k.options.end());
        args.push_back(dir / "a.pbm");
        args.push_back(dir / "a.cal");
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 2) << k.options[0];
        EXPECT_TRUE(contains(r.err, k.words)) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "a.cal")) << k.options[0];
    }
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm"}));
}

TEST(Cli, AnOutputThatCannotBeWrittenIsOneLineAndExitOne) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    for (const char *mode : {"file", "memory", "callback"}) {
        Outcome r = runMivo4({"export", "--output-mode", mode, dir / "a.pbm", dir / "no/such/dir/a.cal"}, dir);
        EXPECT_EQ(r.code, 1) << mode;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, "cannot write")) << r.err;
    }
    std::filesystem::create_directory(dir / "d.cal");
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "d.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "is a directory")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "d.cal"}));
}

TEST(Cli, ProgressDrawsABarThatEndsAtOneHundred) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 200, 300);
    Outcome r = runMivo4({"export", "--progress", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "exporting [")) << r.err;
    EXPECT_TRUE(contains(r.err, "] 100%")) << r.err;
    Outcome q = runMivo4({"export", dir / "a.pbm", dir / "b.cal"}, dir);
    EXPECT_FALSE(contains(q.err, "exporting [")) << "no bar unless asked for";
}

TEST(Cli, ProfileAndModeMustComeTogetherAndExist) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    Outcome r = runMivo4({"export", "--mode", "Fax", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, "--mode needs --profile")) << r.err;
    toolstest::writeBytes(dir / "p.ini", "[Fax]\nDriver=MIVO4.1\nResolution Mode=777\nSize Mode=602\n", {});
    r = runMivo4({"export", "--profile", dir / "p.ini", "--mode", "Photo", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "no mode \"Photo\"")) << r.err;
    r = runMivo4({"export", "--profile", dir / "nothere.ini", "--mode", "Fax", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "profile not found")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "a.cal"));
    // The profile's mode gives 200 dpi; the picture says 100.
    r = runMivo4({"export", "--profile", dir / "p.ini", "--mode", "Fax", "--source-dpi", "100", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "32 x 32 pixels at 200 dpi")) << r.err;
}

TEST(Cli, InfoShowsTheHeaderAndChecksTheCodedData) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 90, 60);
    ASSERT_EQ(runMivo4({"export", "--source-dpi", "300", dir / "a.pbm", dir / "a.cal"}, dir).code, 0);
    Outcome r = runMivo4({"info", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "rpelcnt: 000090,000060")) << r.out;
    EXPECT_TRUE(contains(r.out, "width: 90 pixels")) << r.out;
    EXPECT_TRUE(contains(r.out, "density: 300 dpi")) << r.out;
    EXPECT_TRUE(contains(r.out, "check: ok, decodes to exactly 90 x 60 pixels")) << r.out;

    auto file = toolstest::readBytes(dir / "a.cal");
    // Coded data cut short.
    auto cut = file;
    cut.resize(2048 + (file.size() - 2048) / 2);
    toolstest::writeBytes(dir / "cut.cal", "", cut);
    r = runMivo4({"info", dir / "cut.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.out, "check: FAILED")) << r.out;
    // A header that claims fewer rows than the data holds.
    auto tall = file;
    std::memcpy(&tall[1024], "rpelcnt: 000090,000059", 22);
    toolstest::writeBytes(dir / "tall.cal", "", tall);
    r = runMivo4({"info", dir / "tall.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.out, "more than 59 rows")) << r.out;
    // Not a GP4 file at all.
    toolstest::writeBytes(dir / "small.cal", "hello", {});
    r = runMivo4({"info", dir / "small.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "not a GP4 file")) << r.err;
}

TEST(Cli, DecodeWritesPbmAndPngAndRefusesDamagedFiles) {
    ScratchDir dir;
    const uint32_t w = 77, h = 50;
    writePbm(dir / "a.pbm", w, h);
    ASSERT_EQ(runMivo4({"export", "--source-dpi", "300", dir / "a.pbm", dir / "a.cal"}, dir).code, 0);
    Outcome r = runMivo4({"decode", dir / "a.cal", dir / "back.pbm"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    auto pbm = toolstest::readPbm(dir / "back.pbm");
    ASSERT_TRUE(pbm);
    ASSERT_EQ(pbm->width, w);
    ASSERT_EQ(pbm->height, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(pbm->black(x, y), on(x, y)) << x << "," << y;

    r = runMivo4({"decode", dir / "a.cal", dir / "back.png"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    if (auto gm = toolstest::graphicsMagick()) {
        // Someone else's PNG reader sees the same picture.
        ASSERT_EQ(toolstest::runQuiet(*gm + " " + toolstest::shellQuote(dir / "back.png") + " " +
                                      toolstest::shellQuote(dir / "png.pbm")), 0);
        auto viaPng = toolstest::readPbm(dir / "png.pbm");
        ASSERT_TRUE(viaPng);
        EXPECT_EQ(viaPng->bits, pbm->bits);
        std::filesystem::remove(dir / "png.pbm");
    }

    r = runMivo4({"decode", dir / "a.cal", dir / "back.jpg"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, ".pbm or .png")) << r.err;

    auto file = toolstest::readBytes(dir / "a.cal");
    file.resize(2048 + 10);
    toolstest::writeBytes(dir / "cut.cal", "", file);
    r = runMivo4({"decode", dir / "cut.cal", dir / "cut.png"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "does not decode")) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.cal", "a.pbm", "back.pbm", "back.png", "cut.cal"}));
}

TEST(Cli, UsageErrorsExitTwo) {
    ScratchDir dir;
    for (auto args : {std::vector<std::string>{"export"}, {"export", "a.png"}, {"decode", "a.cal"},
                      {"frobnicate"}, {"--nonsense"}, {"export", "--demo"}}) {
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 2) << args[0];
        EXPECT_TRUE(contains(r.err, "mivo4")) << r.err;
    }
    Outcome h = runMivo4({"--help"}, dir);
    EXPECT_EQ(h.code, 0);
    EXPECT_TRUE(contains(h.out, "--output-mode file|memory|callback")) << h.out;
}

TEST(Cli, ExportViaTheDriverGivesTheBitmapBytesAndRecordsATraceThatReplays) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 120, 77);
    Outcome bitmap = runMivo4({"export", "--source-dpi", "200", "--dpi", "200", dir / "a.pbm", dir / "b.cal"}, dir);
    ASSERT_EQ(bitmap.code, 0) << bitmap.err;
    Outcome gdp = runMivo4({"export", "--via", "gdp", "--source-dpi", "200", "--dpi", "200", "--rows-per-element", "7",
                            "--trace", dir / "t.ddt", dir / "a.pbm", dir / "g.cal"}, dir);
    ASSERT_EQ(gdp.code, 0) << gdp.err;
    EXPECT_EQ(toolstest::readBytes(dir / "g.cal"), toolstest::readBytes(dir / "b.cal"));
    Outcome replay = runMivo4({"replay", "--dpi", "200", dir / "t.ddt", dir / "r.cal"}, dir);
    ASSERT_EQ(replay.code, 0) << replay.err;
    EXPECT_EQ(toolstest::readBytes(dir / "r.cal"), toolstest::readBytes(dir / "b.cal"));
    for (const char *mode : {"memory", "callback"}) {
        Outcome r = runMivo4({"replay", "--dpi", "200", "--output-mode", mode, dir / "t.ddt", dir / "m.cal"}, dir);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(toolstest::readBytes(dir / "m.cal"), toolstest::readBytes(dir / "b.cal")) << mode;
    }
}

TEST(Cli, ReplayRefusesWhatIsNotATraceInOneLine) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    Outcome r = runMivo4({"replay", dir / "a.pbm", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "not a driver trace")) << r.err;
    // A record that claims more bytes than the file holds.
    toolstest::writeBytes(dir / "cut.ddt", "MIVO4DT1", {200, 0, 0, 0, 1, 0, 0, 0});
    r = runMivo4({"replay", dir / "cut.ddt", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "more than the")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "o.cal")) << "no output for a refused trace";
    // A device never ends: it is refused, not read.
    r = runMivo4({"replay", "/dev/zero", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "not a regular file")) << r.err;
}

TEST(Cli, DriverOptionsAreCheckedLikeTheOthers) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    EXPECT_EQ(runMivo4({"export", "--via", "metafile", dir / "a.pbm", dir / "o.cal"}, dir).code, 2);
    EXPECT_EQ(runMivo4({"export", "--rows-per-element", "0", "--via", "gdp", dir / "a.pbm", dir / "o.cal"}, dir).code, 2);
    Outcome r = runMivo4({"export", "--trace", dir / "t.ddt", dir / "a.pbm", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, "--via gdp")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
}

TEST(Cli, ProgressDrawsOnTheDriverPathToo) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 200, 300);
    Outcome r = runMivo4({"export", "--via", "gdp", "--progress", dir / "a.pbm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "] 100%")) << r.err;
}

TEST(Cli, DitherChoosesWhoMakesBlackAndWhite) {
    ScratchDir dir;
    for (const char *way : {"module", "floyd", "threshold", "threshold=30", "ordered"}) {
        Outcome r = runMivo4({"export", "--dither", way, "--demo", dir / "d.cal"}, dir);
        ASSERT_EQ(r.code, 0) << way << ": " << r.err;
        Outcome i = runMivo4({"info", dir / "d.cal"}, dir);
        EXPECT_TRUE(contains(i.out, "check: ok")) << way << ": " << i.out;
    }
    for (const char *bad : {"threshold=101", "threshold=", "bayer"}) {
        Outcome r = runMivo4({"export", "--dither", bad, "--demo", dir / "e.cal"}, dir);
        EXPECT_EQ(r.code, 2) << bad;
        EXPECT_TRUE(contains(r.err, "--dither")) << r.err;
    }
}
