// Tiny hostile files that claim huge pictures: each is refused before its
// pixels are decoded, with a message naming its size, in little memory, and
// never with an uncaught exception; the budget is --limit-memory.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include "clirun.h"
#include "hostile.h"
#include "membudget.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

constexpr long kSmallRssKiB = 400 * 1024;  // far below any of the claimed pictures

// A bottom-up RGB TIFF of a few hundred bytes claiming w x h, its one strip
// a few bytes of deflate data.
void writeBottomUpTiff(const std::string &path, uint32_t w, uint32_t h) {
    TIFF *t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_BOTLEFT);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, h);
    uint8_t raw[16] = {0x78, 0x9C, 0x63, 0x60, 0x00, 0x00, 0x00, 0x04, 0x00, 0x01};
    TIFFWriteRawStrip(t, 0, raw, sizeof raw);
    TIFFClose(t);
}

// Runs mivo4 but kills it if it has not ended after a long grace period, so
// that a host that never ends fails the test instead of hanging it.
Outcome runBounded(const std::vector<std::string> &args, const ScratchDir &dir, const RunOptions &o = {}) {
    pid_t pid = startMivo4(args, dir / ".o", dir / ".e", o);
    Outcome r;
    auto ended = [&] {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
    };
    for (int i = 0; i < 1200 && !ended(); ++i) usleep(100000);  // two minutes at most
    if (!ended()) {
        kill(pid, SIGKILL);
        r.err = "did not end; ";
    }
    waitMivo4(pid, r);
    auto e = readBytes(dir / ".e");
    r.err += std::string(e.begin(), e.end());
    auto out = readBytes(dir / ".o");
    r.out.assign(out.begin(), out.end());
    std::filesystem::remove(dir / ".o");
    std::filesystem::remove(dir / ".e");
    return r;
}

// The address-space limit of the tests that run under one (ulimit -v),
// except in the sanitizer build, whose shadow memory needs more.
RunOptions limited(uint64_t bytes) {
    RunOptions o;
    if (!sanitized()) o.addressSpace = bytes;
    return o;
}

void expectRefused(const Outcome &r, const std::string &size) {
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, size)) << r.err;
    EXPECT_TRUE(contains(r.err, "--limit-memory")) << r.err;
    EXPECT_LT(r.maxRssKiB, kSmallRssKiB) << r.err;
}

}  // namespace

TEST(HostMemory, AProgressiveJpegClaimingAHugePictureIsRefusedBeforeDecoding) {
    ScratchDir dir;
    auto jpeg = smallJpeg(16, 16, false, true);
    claimJpegSize(jpeg, 65500, 65500);
    ASSERT_LT(jpeg.size(), 2000u);
    writeBytes(dir / "bomb.jpg", "", jpeg);
    expectRefused(runBounded({"export", dir / "bomb.jpg", dir / "o.cal"}, dir, limited(2ull << 30)), "65500 x 65500");
    EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
}

TEST(HostMemory, AGreyJpegOverTheLimitIsRefusedAndOneCutShortIsAnError) {
    ScratchDir dir;
    auto jpeg = smallJpeg(16, 16, true, false);
    claimJpegSize(jpeg, 65500, 65500);
    writeBytes(dir / "grey.jpg", "", jpeg);
    expectRefused(runBounded({"export", "--limit-memory", "1G", dir / "grey.jpg", dir / "o.cal"}, dir), "65500 x 65500");
    // Within the budget its data ends long before the picture does.
    claimJpegSize(jpeg, 20000, 20000);
    writeBytes(dir / "grey.jpg", "", jpeg);
    Outcome r = runBounded({"export", dir / "grey.jpg", dir / "o.cal"}, dir, limited(6ull << 30));
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "cut short")) << r.err;
    EXPECT_LT(r.maxRssKiB, kSmallRssKiB) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
}

TEST(HostMemory, ABottomUpTiffClaimingAHugePictureIsRefused) {
    ScratchDir dir;
    writeBottomUpTiff(dir / "bomb.tif", 40000, 40000);
    ASSERT_LT(std::filesystem::file_size(dir / "bomb.tif"), 1000u);
    expectRefused(runBounded({"export", dir / "bomb.tif", dir / "o.cal"}, dir, limited(2ull << 30)), "40000 x 40000");
    // Under a small address space the default budget shrinks with it (the
    // sanitizer build runs without one). A bottom-up picture is read row by
    // row and flipped in place: its pixels alone count.
    writeBottomUpTiff(dir / "mid.tif", 14000, 14000);
    if (!sanitized())
        expectRefused(runBounded({"export", dir / "mid.tif", dir / "o.cal"}, dir, limited(1ull << 30)), "14000 x 14000");
    expectRefused(runBounded({"export", "--limit-memory", "256M", dir / "mid.tif", dir / "o.cal"}, dir), "14000 x 14000");
}

TEST(HostMemory, AnInterlacedRgbaPngClaimingAHugePictureIsRefused) {
    ScratchDir dir;
    auto png = tinyPngClaiming(30000, 30000, 6, true);
    ASSERT_LT(png.size(), 100u);
    writeBytes(dir / "bomb.png", "", png);
    expectRefused(runBounded({"export", dir / "bomb.png", dir / "o.cal"}, dir, limited(2ull << 30)), "30000 x 30000");
    // Within the budget, the missing data ends the reading at once.
    writeBytes(dir / "mid.png", "", tinyPngClaiming(8000, 8000, 6, true));
    Outcome r = runBounded({"export", dir / "mid.png", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_LT(r.maxRssKiB, kSmallRssKiB) << r.err;
}

TEST(HostMemory, APlainPnmClaimingAHugePictureIsRefused) {
    ScratchDir dir;
    writeBytes(dir / "bomb.ppm", "P3\n60000 60000\n255\n0 0 0\n", {});
    expectRefused(runBounded({"export", "--limit-memory", "100M", dir / "bomb.ppm", dir / "o.cal"}, dir),
                  "60000 x 60000");
}

TEST(HostMemory, InfoOnACalsFileClaimingAHugePictureEndsWithAnError) {
    ScratchDir dir;
    std::string h = gp4Header({"rtype: 1", "rorient: 000,270", "rpelcnt: 065536,524288", "rdensty: 0300"});
    writeBytes(dir / "bomb.cal", h, std::vector<uint8_t>(16, 0));
    ASSERT_EQ(std::filesystem::file_size(dir / "bomb.cal"), 2064u);
    for (const char *command : {"info", "decode"}) {
        std::vector<std::string> args = {command, dir / "bomb.cal"};
        if (std::string(command) == "decode") args.push_back(dir / "out.pbm");
        Outcome r = runBounded(args, dir, limited(2ull << 30));
        EXPECT_EQ(r.code, 1) << command << ": " << r.err;
        EXPECT_EQ(r.signal, 0) << command << ": " << r.err;
        EXPECT_LT(r.maxRssKiB, kSmallRssKiB) << command;
        EXPECT_TRUE(r.err.empty() ? contains(r.out, "check: FAILED") : lines(r.err) == 1) << r.out << r.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.pbm"));
}

TEST(HostMemory, InfoOnAnEndlessDeviceEndsWithAnError) {
    ScratchDir dir;
    Outcome r = runBounded({"info", "/dev/zero"}, dir);
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "not a GP4 file")) << r.err;
}

TEST(HostMemory, LimitMemoryTakesSizesAndRefusesNonsense) {
    uint64_t v = 0;
    EXPECT_TRUE(mivo4::host::parseMemorySize("512M", v));
    EXPECT_EQ(v, 512ull << 20);
    EXPECT_TRUE(mivo4::host::parseMemorySize("2GiB", v));
    EXPECT_EQ(v, 2ull << 30);
    EXPECT_TRUE(mivo4::host::parseMemorySize("4096", v));
    EXPECT_EQ(v, 4096u);
    for (const char *bad : {"", "0", "-1", "12Q", "M", "99999999999999999999", "20000000T"})
        EXPECT_FALSE(mivo4::host::parseMemorySize(bad, v)) << bad;
    const uint64_t d = mivo4::host::defaultMemoryBudget();
    EXPECT_LE(d, 4ull << 30);
    EXPECT_GT(d, 0u);
    ScratchDir dir;
    Outcome r = runMivo4({"export", "--limit-memory", "lots", "--demo", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, "--limit-memory needs a size")) << r.err;
}
