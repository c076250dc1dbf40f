// The command line by the field's habits: usage when nothing is asked, help
// for every command, --opt=value and --, -q/--quiet, and a suggestion for a
// misspelt option or command. Each runs the built program as a user does.
#include "clirun.h"
#include "gp4file.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

const std::vector<std::string> kCommands = {"export", "replay", "info", "decode", "module-info", "cfb", "help"};

uint32_t densityOf(const std::string &path) { return mivo4::host::parseGp4Header(readBytes(path)).density.value_or(0); }

// The two lines of a usage error: the message, then the hint.
void expectUsageError(const Outcome &r, const std::string &message) {
    EXPECT_EQ(r.code, 2) << r.err;
    EXPECT_EQ(r.err, "mivo4: " + message + "\n(mivo4 --help lists the commands and options)\n");
    EXPECT_EQ(r.out, "");
}

}  // namespace

TEST(CliHabits, NoArgumentsPrintsTheUsageAndExitsTwo) {
    ScratchDir dir;
    Outcome r = runMivo4({}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.out.rfind("Usage: mivo4 ", 0), 0u) << r.out;
    for (const std::string &c : kCommands) EXPECT_TRUE(contains(r.out, "\n  " + c + " ")) << c << "\n" << r.out;
    EXPECT_TRUE(contains(r.out, "mivo4 help COMMAND")) << r.out;
    EXPECT_EQ(r.err, "");
}

TEST(CliHabits, InfoWithoutAFileIsAUsageErrorNotTheEntryTable) {
    ScratchDir dir;
    expectUsageError(runMivo4({"info"}, dir), "info takes one or more GP4 files");
}

TEST(CliHabits, HelpHelpDashDashHelpAndDashHAllGiveTheWholeHelp) {
    ScratchDir dir;
    Outcome help = runMivo4({"--help"}, dir);
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(help.out.rfind("Usage: mivo4 ", 0), 0u) << help.out;
    // The whole help holds export's options: the manual page is made from it.
    EXPECT_TRUE(contains(help.out, "--dpi N")) << help.out;
    EXPECT_TRUE(contains(help.out, "-q, --quiet")) << help.out;
    EXPECT_TRUE(contains(help.out, "--module PATH")) << help.out;
    for (auto args : {std::vector<std::string>{"-h"}, {"help"}}) {
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 0) << args[0];
        EXPECT_EQ(r.out, help.out) << args[0];
    }
}

TEST(CliHabits, EveryCommandHasItsOwnHelpOnStandardOutput) {
    ScratchDir dir;
    for (const std::string &c : kCommands) {
        Outcome byHelp = runMivo4({"help", c}, dir);
        EXPECT_EQ(byHelp.code, 0) << c << ": " << byHelp.err;
        EXPECT_EQ(byHelp.err, "") << c;
        EXPECT_EQ(byHelp.out.rfind("Usage: mivo4 " + c, 0), 0u) << byHelp.out;
        EXPECT_TRUE(contains(byHelp.out, "-h, --help")) << byHelp.out;
        for (const char *flag : {"--help", "-h"}) {
            Outcome r = runMivo4({c, flag}, dir);
            EXPECT_EQ(r.code, 0) << c << " " << flag << ": " << r.err;
            EXPECT_EQ(r.out, byHelp.out) << c << " " << flag;
        }
    }
}

TEST(CliHabits, EachCommandsHelpListsWhatItTakes) {
    ScratchDir dir;
    Outcome ex = runMivo4({"export", "--help"}, dir);
    for (const char *o : {"--dpi N", "--size screen|printer|user|picture", "-o, --output-dir DIR", "-j, --jobs N",
                          "--shard I/N", "--dither", "-q, --quiet", "--demo"})
        EXPECT_TRUE(contains(ex.out, o)) << o << "\n" << ex.out;
    // A replay sends recorded elements: no picture options, no batch.
    Outcome re = runMivo4({"replay", "--help"}, dir);
    EXPECT_TRUE(contains(re.out, "TRACE.ddt OUTPUT")) << re.out;
    EXPECT_TRUE(contains(re.out, "--dpi N")) << re.out;
    for (const char *o : {"--dither module", "--source-dpi N", "--output-dir DIR", "--demo ", "--via bitmap"})
        EXPECT_FALSE(contains(re.out, o)) << o << "\n" << re.out;
    for (const char *c : {"info", "decode"}) {
        Outcome r = runMivo4({c, "--help"}, dir);
        EXPECT_TRUE(contains(r.out, "--limit-memory SIZE")) << r.out;
        EXPECT_FALSE(contains(r.out, "--dpi")) << r.out;
    }
    Outcome cfb = runMivo4({"help", "cfb"}, dir);
    EXPECT_TRUE(contains(cfb.out, "mivo4 cfb list FILE")) << cfb.out;
    EXPECT_TRUE(contains(cfb.out, "mivo4 cfb cat FILE STREAM")) << cfb.out;
}

TEST(CliHabits, HelpForAnUnknownCommandSuggestsOne) {
    ScratchDir dir;
    expectUsageError(runMivo4({"help", "decod"}, dir), "unknown command decod (did you mean decode?)");
    expectUsageError(runMivo4({"help", "export", "info"}, dir), "help takes one COMMAND");
}

TEST(CliHabits, OptEqualsValueGivesTheSameBytesAsTwoWords) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 90, 60);
    Outcome two = runMivo4({"export", "--dpi", "600", "--size", "user", dir / "a.ppm", dir / "two.cal"}, dir);
    ASSERT_EQ(two.code, 0) << two.err;
    Outcome eq = runMivo4({"export", "--dpi=600", "--size=user", dir / "a.ppm", dir / "eq.cal"}, dir);
    ASSERT_EQ(eq.code, 0) << eq.err;
    EXPECT_EQ(readBytes(dir / "eq.cal"), readBytes(dir / "two.cal"));
    EXPECT_EQ(densityOf(dir / "eq.cal"), 600u);
    // A value that itself holds "=" is kept whole.
    Outcome t = runMivo4({"export", "--dither=threshold=30", "--demo", dir / "t.cal"}, dir);
    ASSERT_EQ(t.code, 0) << t.err;
    Outcome t2 = runMivo4({"export", "--dither", "threshold=30", "--demo", dir / "t2.cal"}, dir);
    ASSERT_EQ(t2.code, 0) << t2.err;
    EXPECT_EQ(readBytes(dir / "t.cal"), readBytes(dir / "t2.cal"));
}

TEST(CliHabits, OptEqualsValueWorksForGlobalAndEveryCommandsOptions) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 40, 30);
    ASSERT_EQ(runMivo4({"export", dir / "a.ppm", dir / "a.cal"}, dir).code, 0);
    Outcome r = runMivo4({"--module=" MIVO4_MODULE_PATH, "--limit-memory=512M", "info", "--limit-memory=64M",
                          dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "check: ok")) << r.out;
    r = runMivo4({"decode", "--limit-memory=64M", dir / "a.cal", dir / "a.pbm"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    r = runMivo4({"--limit-memory=lots", "module-info"}, dir);
    expectUsageError(r, "--limit-memory needs a size such as 512M or 2G, not \"lots\"");
}

TEST(CliHabits, ShortOptionsTakeTheirValueJoinedOrApartAndGoTogether) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 40, 30);
    std::filesystem::create_directory(dir / "out");
    Outcome r = runMivo4({"export", "-qj1", "-o" + dir / "out", dir / "a.ppm"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(std::filesystem::exists(dir / "out/a.cal"));
}

TEST(CliHabits, DoubleDashThenAFileNamedLikeAnOption) {
    ScratchDir dir;
    writeNoisePpm(dir / "-x.ppm", 40, 30);
    RunOptions in;
    in.cwd = dir.path().string();
    Outcome r = runMivo4({"export", "--", "-x.ppm", "-y.cal"}, dir, in);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "wrote -y.cal: 40 x 30 pixels")) << r.err;
    EXPECT_GT(readBytes(dir / "-y.cal").size(), 2048u);
    // Without "--" the name is taken for an option.
    Outcome o = runMivo4({"export", "-x.ppm", "z.cal"}, dir, in);
    expectUsageError(o, "unknown export option -x.ppm");
    EXPECT_FALSE(std::filesystem::exists(dir / "z.cal"));
    // After "--", "--dpi" is a file name too.
    Outcome d = runMivo4({"export", "--", "-x.ppm", "--dpi"}, dir, in);
    EXPECT_EQ(d.code, 0) << d.err;
    EXPECT_TRUE(std::filesystem::exists(dir / "--dpi"));
}

TEST(CliHabits, QuietPrintsNothingOnSuccess) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 60, 40);
    for (const char *q : {"-q", "--quiet"}) {
        Outcome r = runMivo4({"export", q, dir / "a.ppm", dir / "a.cal"}, dir);
        EXPECT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(r.err, "") << q;
        EXPECT_EQ(r.out, "") << q;
        EXPECT_GT(readBytes(dir / "a.cal").size(), 2048u);
    }
    // A batch: no summary from it, none from its workers.
    std::filesystem::create_directory(dir / "out");
    writeNoisePpm(dir / "b.ppm", 50, 40, 2);
    Outcome b = runMivo4({"export", "-q", "-j", "2", "-o", dir / "out", dir / "a.ppm", dir / "b.ppm"}, dir);
    EXPECT_EQ(b.code, 0) << b.err;
    EXPECT_EQ(b.err, "");
    EXPECT_EQ((std::vector<std::string>{"a.cal", "b.cal"}), [&] {
        std::vector<std::string> names;
        for (const auto &e : std::filesystem::directory_iterator(dir / "out")) names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }());
    // A replay says nothing either.
    Outcome g = runMivo4({"export", "--via", "gdp", "--trace", dir / "t.ddt", dir / "a.ppm", dir / "g.cal"}, dir);
    ASSERT_EQ(g.code, 0) << g.err;
    Outcome re = runMivo4({"replay", "-q", dir / "t.ddt", dir / "r.cal"}, dir);
    EXPECT_EQ(re.code, 0) << re.err;
    EXPECT_EQ(re.err, "");
}

TEST(CliHabits, QuietStillSaysWhatFailed) {
    ScratchDir dir;
    Outcome r = runMivo4({"export", "-q", dir / "missing.ppm", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "cannot open")) << r.err;
}

TEST(CliHabits, QuietLeavesOutTheWarningOfASmallOutput) {
    ScratchDir dir;
    writeNoisePpm(dir / "wide.ppm", 2000, 16);
    // 2000 pixels at 2000 dpi, one inch, come out as 200 pixels at 200 dpi.
    Outcome loud = runMivo4({"export", "--source-dpi", "2000", "--dpi", "200", dir / "wide.ppm", dir / "a.cal"}, dir);
    ASSERT_EQ(loud.code, 0) << loud.err;
    ASSERT_TRUE(contains(loud.err, "warning: the output will be")) << loud.err;
    Outcome quiet =
        runMivo4({"export", "-q", "--source-dpi", "2000", "--dpi", "200", dir / "wide.ppm", dir / "b.cal"}, dir);
    EXPECT_EQ(quiet.code, 0) << quiet.err;
    EXPECT_EQ(quiet.err, "");
    EXPECT_EQ(readBytes(dir / "a.cal"), readBytes(dir / "b.cal"));
}

TEST(CliHabits, QuietStillTellsADpiOverrideThatChangedThePixelSize) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 64, 40);
    // A resolution outside the module's fixed ones goes as the user's, which
    // the module takes from the picture: 457 asked, 100 written.
    Outcome quiet = runMivo4({"export", "-q", "--source-dpi", "100", "--dpi", "457", dir / "a.ppm", dir / "q.cal"}, dir);
    EXPECT_EQ(quiet.code, 0) << quiet.err;
    EXPECT_EQ(quiet.err, "mivo4: " + dir / "q.cal" + ": the module wrote 64 x 40 pixels at 100 dpi, not at the "
                                                        "457 dpi asked for\n");
    EXPECT_EQ(densityOf(dir / "q.cal"), 100u);
    // Without -q the summary line says it, unchanged, and nothing more.
    Outcome loud = runMivo4({"export", "--source-dpi", "100", "--dpi", "457", dir / "a.ppm", dir / "l.cal"}, dir);
    EXPECT_EQ(loud.code, 0) << loud.err;
    EXPECT_EQ(lines(loud.err), 1) << loud.err;
    EXPECT_TRUE(contains(loud.err, "mivo4: wrote " + dir / "l.cal" + ": 64 x 40 pixels at 100 dpi, ")) << loud.err;
    // A resolution the module keeps: quiet is silent.
    Outcome kept = runMivo4({"export", "-q", "--source-dpi", "100", "--dpi", "600", dir / "a.ppm", dir / "k.cal"}, dir);
    EXPECT_EQ(kept.code, 0) << kept.err;
    EXPECT_EQ(kept.err, "");
    EXPECT_EQ(densityOf(dir / "k.cal"), 600u);
}

TEST(CliHabits, AMisspeltOptionGetsASuggestion) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 16, 16);
    struct Case {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{"export", "--dpl", "600"}, "unknown export option --dpl (did you mean --dpi?)"},
        {{"export", "--dpl=600"}, "unknown export option --dpl (did you mean --dpi?)"},
        {{"export", "--widht", "2"}, "unknown export option --widht (did you mean --width?)"},
        // The start of one name only: suggested, not taken.
        {{"export", "--allow"}, "unknown export option --allow (did you mean --allow-truncated?)"},
        {{"export", "--dp", "600"}, "unknown export option --dp (did you mean --dpi?)"},
        // The field's one-dash habit.
        {{"export", "-dpi", "600"}, "unknown export option -dpi (did you mean --dpi?)"},
        {{"export", "--bogus"}, "unknown export option --bogus"},
        {{"info", "--limit-memroy", "1G"}, "unknown info option --limit-memroy (did you mean --limit-memory?)"},
        {{"--modul", "x.flt", "module-info"}, "unknown option --modul (did you mean --module?)"},
        {{"replay", "--dpii", "200"}, "unknown export option --dpii (did you mean --dpi?)"},
    };
    for (const Case &k : cases) {
        std::vector<std::string> args = k.args;
        args.insert(args.end(), {dir / "a.ppm", dir / "a.cal"});
        expectUsageError(runMivo4(args, dir), k.message);
    }
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.ppm"}));
}

TEST(CliHabits, AMisspeltCommandGetsASuggestion) {
    ScratchDir dir;
    expectUsageError(runMivo4({"exprot", "a.ppm", "a.cal"}, dir), "unknown command exprot (did you mean export?)");
    expectUsageError(runMivo4({"modul-info"}, dir), "unknown command modul-info (did you mean module-info?)");
    expectUsageError(runMivo4({"frobnicate"}, dir), "unknown command frobnicate");
}

TEST(CliHabits, AnEmptyValueIsRefused) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 16, 16);
    for (auto opts : {std::vector<std::string>{"--dpi="}, {"--dpi", ""}, {"--profile="}, {"--output-mode="}}) {
        std::vector<std::string> args = {"export"};
        args.insert(args.end(), opts.begin(), opts.end());
        args.insert(args.end(), {dir / "a.ppm", dir / "a.cal"});
        const std::string name = opts[0].substr(0, opts[0].find('='));
        expectUsageError(runMivo4(args, dir), name + " needs a value");
    }
    expectUsageError(runMivo4({"export", "-o", "", dir / "a.ppm"}, dir), "-o needs a value");
    expectUsageError(runMivo4({"--module=", "module-info"}, dir), "--module needs a value");
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.ppm"}));
}

TEST(CliHabits, AMissingValueOrAValueForAFlagIsRefused) {
    ScratchDir dir;
    expectUsageError(runMivo4({"export", "--demo", "--dpi"}, dir), "--dpi needs a value");
    expectUsageError(runMivo4({"export", "-q", "-j"}, dir), "-j needs a value");
    expectUsageError(runMivo4({"export", "--progress=yes", "--demo", dir / "a.cal"}, dir), "--progress takes no value");
    EXPECT_FALSE(std::filesystem::exists(dir / "a.cal"));
}

TEST(CliHabits, ReplayRefusesPictureOptionsByName) {
    ScratchDir dir;
    expectUsageError(runMivo4({"replay", "--dither", "floyd", dir / "t.ddt", dir / "a.cal"}, dir),
                     "replay does not take --dither: it sends recorded elements, not a picture");
    expectUsageError(runMivo4({"replay", "-o", dir / "out", dir / "t.ddt"}, dir), "unknown export option -o");
}

TEST(CliHabits, ABatchPassesOptEqualsValueToEveryPicture) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 60, 40);
    writeNoisePpm(dir / "b.ppm", 50, 30, 2);
    std::filesystem::create_directory(dir / "out");
    Outcome r = runMivo4({"export", "--dpi=200", "--source-dpi=100", "--dither=floyd", "-j2", "--output-dir=" + dir / "out",
                          dir / "a.ppm", dir / "b.ppm"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char *n : {"a", "b"}) {
        Outcome one = runMivo4({"export", "--dpi", "200", "--source-dpi", "100", "--dither", "floyd",
                                dir / (std::string(n) + ".ppm"), dir / (std::string(n) + ".cal")}, dir);
        ASSERT_EQ(one.code, 0) << one.err;
        EXPECT_EQ(readBytes(dir / ("out/" + std::string(n) + ".cal")), readBytes(dir / (std::string(n) + ".cal"))) << n;
        EXPECT_EQ(densityOf(dir / ("out/" + std::string(n) + ".cal")), 200u);
    }
}
