// Pictures from standard input ("-"): read once into memory, told apart by
// their first bytes, decoded from memory by the same readers as files, and
// exported byte for byte as the same picture given by name, whether standard
// input is a file or a pipe. An empty input, an unknown one, one that cannot
// be read, a terminal and one over the memory limit are each one line.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "clirun.h"
#include "exifbytes.h"
#include "hostile.h"
#include "inputpictures.h"
#include "toolfixture.h"

using namespace toolstest;
using mivo4::host::Image;
using mivo4::host::PictureSource;
using mivo4::host::ReadError;

namespace {

bool dots(uint32_t x, uint32_t y) { return (x * 5 + y * 3) % 7 < 3 || y == 2; }

// One picture of each kind the host reads, written in dir; their names.
std::vector<std::string> everyKind(const ScratchDir &dir) {
    writeNoisePpm(dir / "a.ppm", 61, 29, 3);
    writeBytes(dir / "a.pbm", "P4\n45 17\n", packedBits(45, 17, dots));
    writeBytes(dir / "a.pgm", "P5\n3 2\n65535\n", {0, 0, 1, 2, 255, 255, 128, 0, 7, 7, 9, 9});
    std::string p1 = "P1 # plain\n9 2\n";
    for (uint32_t y = 0; y < 2; ++y)
        for (uint32_t x = 0; x < 9; ++x) p1 += dots(x, y) ? "1 " : "0 ";
    writeBytes(dir / "b.pbm", p1, {});
    PngSpec png;
    png.width = 33, png.height = 21, png.interlaced = true, png.colourType = PNG_COLOR_TYPE_RGB_ALPHA;
    for (uint32_t y = 0; y < png.height; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < png.width; ++x)
            for (uint32_t c = 0; c < 4; ++c) r.push_back(pattern(x, y, c));
        png.rows.push_back(r);
    }
    EXPECT_TRUE(writePngFile(dir / "a.png", png));
    std::vector<uint8_t> px(40 * 30 * 3);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(i * 7);
    EXPECT_TRUE(writeJpegFile(dir / "a.jpg", 40, 30, 3, px, exifOrientationSegment(true, 6)));
    EXPECT_TRUE(writeTiffPages(dir / "a.tif", {{bilevelSpec(50, 20, dots), 0}}));
    auto tiled = byteSpec(37, 21, 3, [](uint32_t x, uint32_t y, uint32_t c) { return pattern(x, y, c); });
    tiled.tiled = true;
    EXPECT_TRUE(writeTiffPages(dir / "t.tif", {{tiled, 3}}));
    return {"a.ppm", "a.pbm", "a.pgm", "b.pbm", "a.png", "a.jpg", "a.tif", "t.tif"};
}

Image readFromMemory(const std::vector<uint8_t> &bytes, HostMemory &mem, bool orient = true) {
    PictureSource s;
    s.name = "standard input";
    s.inMemory = true;
    s.bytes = bytes;
    s.orient = orient;
    return mivo4::host::readImage(s, mem.allocator());
}

// Runs mivo4 with standard input a pipe (a FIFO) that another thread fills
// with bytes, the way a shell pipeline feeds it.
Outcome runFromPipe(const std::vector<std::string> &args, const ScratchDir &dir, const std::vector<uint8_t> &bytes) {
    const std::string fifo = dir / ".stdin.fifo";
    ::unlink(fifo.c_str());
    EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // A reader that stops early closes the pipe: the writer just stops.
    signal(SIGPIPE, SIG_IGN);
    std::thread writer([&] {
        int fd = ::open(fifo.c_str(), O_WRONLY);
        if (fd < 0) return;
        size_t at = 0;
        while (at < bytes.size()) {
            ssize_t n = ::write(fd, bytes.data() + at, std::min<size_t>(bytes.size() - at, 4096));
            if (n <= 0) break;
            at += static_cast<size_t>(n);
        }
        ::close(fd);
    });
    RunOptions o;
    o.stdinPath = fifo;
    Outcome r = runMivo4(args, dir, o);
    writer.join();
    ::unlink(fifo.c_str());
    return r;
}

Outcome runFromFile(const std::vector<std::string> &args, const ScratchDir &dir, const std::string &file) {
    RunOptions o;
    o.stdinPath = file;
    return runMivo4(args, dir, o);
}

}  // namespace

TEST(MemoryInput, EveryKindReadsFromMemoryExactlyAsFromItsFile) {
    ScratchDir dir;
    for (const std::string &name : everyKind(dir)) {
        SCOPED_TRACE(name);
        HostMemory mem;
        PictureSource byName(dir / name);
        byName.orient = true;
        Image a = mivo4::host::readImage(byName, mem.allocator());
        Image b = readFromMemory(readBytes(dir / name), mem);
        ASSERT_EQ(a.depth, b.depth);
        ASSERT_EQ(a.width, b.width);
        ASSERT_EQ(a.height, b.height);
        EXPECT_EQ(a.palette, b.palette);
        EXPECT_EQ(a.dpi, b.dpi);
        EXPECT_EQ(a.pages, b.pages);
        ASSERT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
    }
}

TEST(MemoryInput, EveryCutOfEveryKindIsReadOrRefusedWithAReadError) {
    ScratchDir dir;
    for (const std::string &name : everyKind(dir)) {
        const std::vector<uint8_t> whole = readBytes(dir / name);
        for (size_t n = 0; n < whole.size(); n += std::max<size_t>(1, whole.size() / 97)) {
            // An exact block, so that a read past the cut is caught by the sanitizer build.
            std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
            cut.shrink_to_fit();
            HostMemory mem;
            try {
                Image im = readFromMemory(cut, mem);
                EXPECT_GT(im.width, 0u);
            } catch (const ReadError &e) {
                EXPECT_EQ(std::string(e.what()).rfind("standard input: ", 0), 0u) << e.what();
            }
        }
    }
}

TEST(StandardInput, AFileOrAPipeGivesTheBytesOfThePictureGivenByName) {
    ScratchDir dir;
    for (const std::string &name : everyKind(dir)) {
        SCOPED_TRACE(name);
        Outcome byName = runMivo4({"export", dir / name, dir / "byname.cal"}, dir);
        ASSERT_EQ(byName.code, 0) << byName.err;
        const auto expected = readBytes(dir / "byname.cal");
        ASSERT_GT(expected.size(), 2048u);
        Outcome fromFile = runFromFile({"export", "-", dir / "file.cal"}, dir, dir / name);
        ASSERT_EQ(fromFile.code, 0) << fromFile.err;
        EXPECT_EQ(readBytes(dir / "file.cal"), expected);
        Outcome fromPipe = runFromPipe({"export", "-", dir / "pipe.cal"}, dir, readBytes(dir / name));
        ASSERT_EQ(fromPipe.code, 0) << fromPipe.err;
        EXPECT_EQ(readBytes(dir / "pipe.cal"), expected);
        EXPECT_TRUE(contains(fromPipe.err, "wrote " + (dir / "pipe.cal"))) << fromPipe.err;
        // From a pipe to standard output.
        Outcome through = runFromPipe({"export", "-", "-"}, dir, readBytes(dir / name));
        ASSERT_EQ(through.code, 0) << through.err;
        EXPECT_EQ(through.outBytes, expected);
    }
}

TEST(StandardInput, EmptyUnknownUnreadableAndTerminalInputsAreOneLineAndExitOne) {
    ScratchDir dir;
    writeBytes(dir / "empty", "", {});
    writeBytes(dir / "text", "hello, this is no picture\n", {});
    std::filesystem::create_directory(dir / "adir");
    const int pty = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(pty, 0);
    ASSERT_EQ(grantpt(pty), 0);
    ASSERT_EQ(unlockpt(pty), 0);
    const std::string terminal = ptsname(pty);
    struct Case {
        std::string stdinPath, says;
    } cases[] = {{dir / "empty", "standard input: empty"},
                 {dir / "text", "standard input: not a picture"},
                 {dir / "adir", "standard input: cannot read: is a directory"},
                 {terminal, "standard input is a terminal"}};
    for (const Case &c : cases) {
        Outcome r = runFromFile({"export", "-", dir / "out.cal"}, dir, c.stdinPath);
        EXPECT_EQ(r.code, 1) << c.says;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, c.says)) << r.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.cal")) << c.says;
    }
    Outcome empty = runFromPipe({"export", "-", dir / "out.cal"}, dir, {});
    EXPECT_EQ(empty.code, 1);
    EXPECT_TRUE(contains(empty.err, "standard input: empty")) << empty.err;
    EXPECT_EQ(lines(empty.err), 1) << empty.err;
    ::close(pty);
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"adir", "empty", "text"}));
}

TEST(StandardInput, MoreThanTheMemoryLimitIsRefusedWhileReading) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 100, 100, 1);  // 30,015 bytes
    Outcome r = runFromPipe({"export", "--limit-memory", "8K", "-", dir / "out.cal"}, dir, readBytes(dir / "a.ppm"));
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "standard input: more than the memory limit of 8.0 KiB")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "out.cal"));
}

TEST(StandardInput, TheBytesHeldCountAgainstTheMemoryLimitWithThePicture) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 100, 100, 1);  // 30,015 bytes; 30,000 bytes of pixels
    // By name the pixels fit; from standard input the file held besides them does not.
    Outcome byName = runMivo4({"export", "--limit-memory", "40000", dir / "a.ppm", dir / "a.cal"}, dir);
    EXPECT_EQ(byName.code, 0) << byName.err;
    Outcome r = runFromFile({"export", "--limit-memory", "40000", "-", dir / "b.cal"}, dir, dir / "a.ppm");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "besides the 29.3 KiB of the file held in memory")) << r.err;
    EXPECT_TRUE(contains(r.err, "--limit-memory")) << r.err;
    Outcome enough = runFromFile({"export", "--limit-memory", "70000", "-", dir / "b.cal"}, dir, dir / "a.ppm");
    EXPECT_EQ(enough.code, 0) << enough.err;
    EXPECT_EQ(readBytes(dir / "b.cal"), readBytes(dir / "a.cal"));
}

TEST(StandardInput, IsRefusedAsAnInputOfABatchAsAUsageError) {
    ScratchDir dir;
    writeNoisePpm(dir / "a.ppm", 20, 10, 1);
    std::filesystem::create_directory(dir / "out");
    writeBytes(dir / "list", std::string("a.ppm\n-\n"), {});
    for (auto args : {std::vector<std::string>{"export", "-o", dir / "out", dir / "a.ppm", "-"},
                      std::vector<std::string>{"export", "-o", dir / "out", "--", "-"},
                      std::vector<std::string>{"export", "-o", dir / "out", "--files-from", dir / "list"}}) {
        Outcome r = runFromFile(args, dir, dir / "a.ppm");
        EXPECT_EQ(r.code, 2);
        EXPECT_EQ(lines(r.err), 2) << "the refusal and the hint to --help: " << r.err;
        EXPECT_TRUE(contains(r.err, "mivo4: - (standard input) cannot be an INPUT of -o DIR")) << r.err;
        EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
    }
}
