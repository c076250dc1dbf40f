// Inputs and settings a careless or hostile user gives the host: cut-short
// JPEGs, GP4 headers with damaged numbers or records, resolutions that give
// no pixels or more than a GP4 header holds, profiles that are not files,
// and a module that says its export went wrong.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "clirun.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

void writePbm(const std::string &path, uint32_t w, uint32_t h) {
    writeBytes(path, "P4\n" + std::to_string(w) + " " + std::to_string(h) + "\n",
               packedBits(w, h, [](uint32_t x, uint32_t y) { return (x + 2 * y) % 7 == 0; }));
}

void writePgm(const std::string &path, uint32_t w, uint32_t h) {
    std::vector<uint8_t> data(static_cast<size_t>(w) * h);
    for (size_t i = 0; i < data.size(); ++i) data[i] = pattern(static_cast<uint32_t>(i % w), static_cast<uint32_t>(i / w));
    writeBytes(path, "P5\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n", data);
}

// A good GP4 file made by the host, its header's raster records then
// replaced by the given ones.
std::vector<uint8_t> withRecords(const std::vector<uint8_t> &good, const std::vector<std::string> &raster) {
    std::string h = gp4Header(raster);
    std::vector<uint8_t> file(h.begin(), h.end());
    file.insert(file.end(), good.begin() + 2048, good.end());
    return file;
}

}  // namespace

TEST(HostFaults, AJpegCutShortIsAnErrorUnlessTruncationIsAllowed) {
    ScratchDir dir;
    for (bool progressive : {false, true}) {
        auto jpeg = smallJpeg(96, 96, false, progressive);
        jpeg.resize(jpeg.size() * 6 / 10);
        writeBytes(dir / "cut.jpg", "", jpeg);
        // The same data ending at an end marker: the scan is cut short too.
        auto marked = jpeg;
        marked.insert(marked.end(), {0xFF, 0xD9});
        writeBytes(dir / "marked.jpg", "", marked);
        Outcome m = runMivo4({"export", dir / "marked.jpg", dir / "o.cal"}, dir);
        EXPECT_EQ(m.code, 1) << m.err;
        EXPECT_TRUE(contains(m.err, "cut short")) << m.err;
        Outcome r = runMivo4({"export", dir / "cut.jpg", dir / "o.cal"}, dir);
        EXPECT_EQ(r.code, 1) << r.err;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, "cut short")) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
        r = runMivo4({"export", "--allow-truncated", dir / "cut.jpg", dir / "o.cal"}, dir);
        EXPECT_EQ(r.code, 0) << r.err;
        EXPECT_GT(std::filesystem::file_size(dir / "o.cal"), 2048u);
        std::filesystem::remove(dir / "o.cal");
    }
}

TEST(HostFaults, InfoReportsNumbersThatOverflowAndRepeatedOrMissingRecordsAsDamage) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 40, 30);
    ASSERT_EQ(runMivo4({"export", "--source-dpi", "300", dir / "a.pbm", dir / "a.cal"}, dir).code, 0);
    const auto good = readBytes(dir / "a.cal");
    const std::string pel = "rpelcnt: 000040,000030", dens = "rdensty: 0300";
    struct Case {
        std::vector<std::string> raster;
        std::string words;
    } cases[] = {
        {{"rtype: 1", "rorient: 000,270", "rpelcnt: 4294967297,1", dens}, "does not fit"},
        {{"rtype: 1", "rorient: 000,270", "rpelcnt: 000040,4294967326", dens}, "does not fit"},
        {{"rtype: 1", "rorient: 000,270", pel, "rdensty: 99999999999"}, "does not fit"},
        {{"rtype: 1", "rorient: 000,270", pel, dens, "rpelcnt: 000001,000001"}, "more than once"},
        {{"rtype: 1", "rorient: 000,270", pel, dens, "rdensty: 0200"}, "more than once"},
        {{"rtype: 1", "rorient: 000,270", pel}, "no \"rdensty\" record"},
        {{"rorient: 000,270", pel, dens}, "no \"rtype\" record"},
    };
    ASSERT_EQ(runMivo4({"info", dir / "a.cal"}, dir).code, 0);
    for (const Case &k : cases) {
        writeBytes(dir / "d.cal", "", withRecords(good, k.raster));
        Outcome r = runMivo4({"info", dir / "d.cal"}, dir);
        EXPECT_EQ(r.code, 1) << k.words << "\n" << r.out << r.err;
        EXPECT_TRUE(contains(r.out + r.err, k.words)) << r.out << r.err;
        EXPECT_FALSE(contains(r.out, "check: ok")) << r.out;
        r = runMivo4({"decode", dir / "d.cal", dir / "d.pbm"}, dir);
        EXPECT_EQ(r.code, 1) << k.words << ": " << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "d.pbm"));
    }
}

TEST(HostFaults, ResolutionsThatGiveNoPixelsSaySoInsteadOfBlamingTheSize) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    writeBytes(dir / "p.ini", "[Tiny]\nDriver=MIVO4.1\nResolution Mode=783\nSize Mode=602\nNot Defined=1\n", {});
    const std::vector<std::vector<std::string>> cases = {
        // A user resolution, and a picture said to have none (taken as points).
        {"--source-dpi", "0", "--dpi", "1"},
        {"--source-dpi", "32767"},
        {"--source-dpi", "0", "--profile", dir / "p.ini", "--mode", "Tiny"},
    };
    for (const auto &options : cases) {
        std::vector<std::string> args = {"export"};
        args.insert(args.end(), options.begin(), options.end());
        args.push_back(dir / "a.pbm");
        args.push_back(dir / "o.cal");
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 1) << options[0] << ": " << r.err;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, "would be 0 x 0 pixels")) << r.err;
        EXPECT_FALSE(contains(r.err, "too large")) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
    }
}

TEST(HostFaults, OutputsLargerThanAGp4HeaderHoldsAreRefusedNamingTheSize) {
    ScratchDir dir;
    writePgm(dir / "wide.pgm", 5600, 2);
    writePbm(dir / "wide.pbm", 8200, 2);
    writePbm(dir / "tall.pbm", 8, 65535);
    struct Case {
        std::vector<std::string> args;
        std::string size;
    } cases[] = {
        {{"--source-dpi", "100", "--dpi", "1200", dir / "wide.pgm"}, "67200 x 24"},
        {{"--source-dpi", "100", "--dpi", "1200", dir / "wide.pbm"}, "98400 x 24"},
        {{"--source-dpi", "300", "--dpi", "300", dir / "tall.pbm"}, "8 x 65536"},
    };
    for (const Case &k : cases) {
        std::vector<std::string> args = {"export"};
        args.insert(args.end(), k.args.begin(), k.args.end());
        args.push_back(dir / "o.cal");
        Outcome r = runMivo4(args, dir);
        EXPECT_EQ(r.code, 1) << k.size << ": " << r.err;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, k.size)) << r.err;
        EXPECT_TRUE(contains(r.err, "65535")) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
    }
    // Just inside the limit is fine.
    writePbm(dir / "edge.pbm", 8, 65534);
    Outcome r = runMivo4({"export", "--source-dpi", "300", "--dpi", "300", dir / "edge.pbm", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "8 x 65534 pixels")) << r.err;
}

TEST(HostFaults, AProfileThatIsNotARegularFileIsRefused) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 16, 16);
    ASSERT_EQ(mkfifo((dir / "fifo.ini").c_str(), 0644), 0);
    for (std::string profile : {std::string("/dev/zero"), dir / "fifo.ini", dir.path().string()}) {
        // A host that read the FIFO would wait for a writer for ever: the
        // test's alarm ends it instead.
        pid_t pid = startMivo4({"export", "--profile", profile, "--mode", "Fax", dir / "a.pbm", dir / "o.cal"},
                               dir / ".o", dir / ".e");
        int waited = 0;
        siginfo_t info{};
        while (waited < 600 && !(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                                 info.si_pid == pid)) {
            usleep(100000);
            ++waited;
        }
        if (waited >= 600) kill(pid, SIGKILL);
        Outcome r;
        waitMivo4(pid, r);
        auto e = readBytes(dir / ".e");
        r.err.assign(e.begin(), e.end());
        EXPECT_EQ(r.code, 1) << profile << ": " << r.err;
        EXPECT_TRUE(contains(r.err, "not a regular file")) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
    }
}

TEST(HostFaults, AnExportTheModuleReportsAsIncompleteIsNotKept) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    writeBytes(dir / "o.cal", "old", {});
    struct Case {
        int status;
        std::string words;
    } cases[] = {{2, "stopped"}, {3, "could not write"}, {4, "ran out of memory"}, {5, "no picture"}};
    for (const Case &k : cases) {
        RunOptions o;
        o.moduleEnv = MIVO4_STATUS_SHIM_PATH;
        o.env = {std::string("SHIM_REAL_MODULE=") + MIVO4_MODULE_PATH, "SHIM_STATUS=" + std::to_string(k.status)};
        Outcome r = runMivo4({"export", dir / "a.pbm", dir / "o.cal"}, dir, o);
        EXPECT_EQ(r.code, 1) << k.status << ": " << r.err;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, k.words)) << r.err;
        auto kept = readBytes(dir / "o.cal");
        EXPECT_EQ(std::string(kept.begin(), kept.end()), "old");
        EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "o.cal"}));
    }
    // A complete export through the same module is kept.
    RunOptions o;
    o.moduleEnv = MIVO4_STATUS_SHIM_PATH;
    o.env = {std::string("SHIM_REAL_MODULE=") + MIVO4_MODULE_PATH, "SHIM_STATUS=1"};
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "o.cal"}, dir, o);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_GT(std::filesystem::file_size(dir / "o.cal"), 2048u);
}
