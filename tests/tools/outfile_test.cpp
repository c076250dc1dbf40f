// Where an export's output goes when things go wrong or the name is not a
// plain file: a full file system, devices, FIFOs, links, permissions, the
// input itself. OUTPUT is replaced whole or left exactly as it was, and no
// temporary file stays behind.
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "clirun.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

// A small tmpfs mounted on a directory for the life of the object (root only).
class SmallTmpfs {
public:
    SmallTmpfs(const std::string &dir, const char *size) : dir_(dir) {
        std::filesystem::create_directories(dir);
        std::string options = std::string("size=") + size;
        mounted_ = geteuid() == 0 && mount("tmpfs", dir.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallTmpfs() {
        if (mounted_) umount2(dir_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }

private:
    std::string dir_;
    bool mounted_ = false;
};

std::vector<std::string> listOf(const std::string &dir) {
    std::vector<std::string> names;
    for (const auto &e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void writePbm(const std::string &path, uint32_t w, uint32_t h) {
    writeBytes(path, "P4\n" + std::to_string(w) + " " + std::to_string(h) + "\n",
               packedBits(w, h, [](uint32_t x, uint32_t y) { return (x ^ y) % 5 == 0; }));
}

}  // namespace

TEST(HostOutput, AFullFileSystemExitsOneNamesTheCauseAndKeepsTheOldFile) {
    ScratchDir dir;
    writeNoisePpm(dir / "noise.ppm", 240, 240);
    SmallTmpfs small(dir / "small", "12k");
    if (!small.mounted()) GTEST_SKIP() << "mounting a 12 KiB tmpfs needs root (and mount rights)";
    const std::vector<uint8_t> old(8192, 'o');
    writeBytes(dir / "small/o.cal", "", old);
    for (const char *mode : {"file", "memory", "callback"}) {
        Outcome r = runMivo4({"export", "--output-mode", mode, "--source-dpi", "100", dir / "noise.ppm",
                              dir / "small/o.cal"},
                             dir);
        EXPECT_EQ(r.code, 1) << mode << ": " << r.err;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, "no space left on device")) << mode << ": " << r.err;
        EXPECT_EQ(readBytes(dir / "small/o.cal"), old) << mode;
        EXPECT_EQ(listOf(dir / "small"), std::vector<std::string>{"o.cal"}) << mode;
    }
}

TEST(HostOutput, AFullDeviceIsWrittenIntoAndItsErrorReported) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    RunOptions o;
    o.env.push_back("TMPDIR=" + dir.path().string());
    Outcome r = runMivo4({"export", dir / "a.pbm", "/dev/full"}, dir, o);
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "no space left on device")) << r.err;
    struct stat st;
    ASSERT_EQ(stat("/dev/full", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    EXPECT_EQ(dir.list(), std::vector<std::string>{"a.pbm"}) << "no temporary file is left";
}

TEST(HostOutput, ACharacterDeviceIsWrittenIntoNotReplaced) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    if (mknod((dir / "mynull").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0)
        GTEST_SKIP() << "making a device node needs root";
    RunOptions o;
    o.env.push_back("TMPDIR=" + dir.path().string());
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "mynull"}, dir, o);
    EXPECT_EQ(r.code, 0) << r.err;
    struct stat st;
    ASSERT_EQ(lstat((dir / "mynull").c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode)) << "the device is still a device";
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "mynull"}));
}

TEST(HostOutput, AFifoReceivesTheFileAndStaysAFifo) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    ASSERT_EQ(runMivo4({"export", dir / "a.pbm", dir / "plain.cal"}, dir).code, 0);
    ASSERT_EQ(mkfifo((dir / "pipe.cal").c_str(), 0644), 0);
    // The reader never blocks, so that a host that replaced the FIFO instead
    // of writing into it cannot hang the test.
    std::vector<uint8_t> received;
    std::atomic<bool> finished{false};
    int fd = ::open((dir / "pipe.cal").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    std::thread reader([&] {
        uint8_t chunk[4096];
        for (;;) {
            bool last = finished.load();
            ssize_t n = ::read(fd, chunk, sizeof chunk);
            if (n > 0) {
                received.insert(received.end(), chunk, chunk + n);
                continue;
            }
            if (last) break;
            usleep(1000);
        }
    });
    RunOptions o;
    o.env.push_back("TMPDIR=" + dir.path().string());
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "pipe.cal"}, dir, o);
    finished = true;
    reader.join();
    ::close(fd);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(received, readBytes(dir / "plain.cal"));
    struct stat st;
    ASSERT_EQ(lstat((dir / "pipe.cal").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"a.pbm", "pipe.cal", "plain.cal"}));
}

TEST(HostOutput, ASymbolicLinkIsFollowedItsTargetReplacedAndTheLinkKept) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    std::filesystem::create_directory(dir / "real");
    writeBytes(dir / "real/t.cal", "old", {});
    std::filesystem::create_symlink("real/t.cal", dir / "link.cal");
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "link.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.cal"));
    auto bytes = readBytes(dir / "real/t.cal");
    ASSERT_GT(bytes.size(), 2048u);
    EXPECT_EQ(std::string(bytes.begin() + 1024, bytes.begin() + 1031), "rpelcnt");
    EXPECT_EQ(listOf(dir / "real"), std::vector<std::string>{"t.cal"});
    // A link to a name that does not exist yet makes that file.
    std::filesystem::create_symlink("real/new.cal", dir / "dangling.cal");
    r = runMivo4({"export", dir / "a.pbm", dir / "dangling.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "dangling.cal"));
    EXPECT_GT(std::filesystem::file_size(dir / "real/new.cal"), 2048u);
}

TEST(HostOutput, AnExistingFileKeepsItsModeOwnerAndGroup) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 64, 64);
    writeBytes(dir / "o.cal", "old", {});
    ASSERT_EQ(chmod((dir / "o.cal").c_str(), 0600), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown((dir / "o.cal").c_str(), 1234, 5678), 0);
    }
    Outcome r = runMivo4({"export", dir / "a.pbm", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    struct stat st;
    ASSERT_EQ(stat((dir / "o.cal").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    if (root) {
        EXPECT_EQ(st.st_uid, 1234u);
        EXPECT_EQ(st.st_gid, 5678u);
    }
    EXPECT_GT(st.st_size, 2048);
}

TEST(HostOutput, OutputThatIsTheInputIsRefusedWhateverItIsCalled) {
    ScratchDir dir;
    writePbm(dir / "same.pbm", 64, 64);
    const auto before = readBytes(dir / "same.pbm");
    std::filesystem::create_hard_link(dir / "same.pbm", dir / "hard.pbm");
    std::filesystem::create_symlink("same.pbm", dir / "soft.pbm");
    for (const char *name : {"same.pbm", "hard.pbm", "soft.pbm"}) {
        Outcome r = runMivo4({"export", dir / "same.pbm", dir / name}, dir);
        EXPECT_EQ(r.code, 1) << name;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_TRUE(contains(r.err, "is the input file itself")) << r.err;
        EXPECT_EQ(readBytes(dir / "same.pbm"), before) << name;
    }
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"hard.pbm", "same.pbm", "soft.pbm"}));
}

TEST(HostOutput, NoVerifyGivesTheSameFileAsTheCheckedDefault) {
    ScratchDir dir;
    writePbm(dir / "a.pbm", 300, 200);
    Outcome a = runMivo4({"export", dir / "a.pbm", dir / "checked.cal"}, dir);
    Outcome b = runMivo4({"export", "--no-verify", dir / "a.pbm", dir / "unchecked.cal"}, dir);
    EXPECT_EQ(a.code, 0) << a.err;
    EXPECT_EQ(b.code, 0) << b.err;
    EXPECT_GT(readBytes(dir / "checked.cal").size(), 2048u);
    EXPECT_EQ(readBytes(dir / "checked.cal"), readBytes(dir / "unchecked.cal"));
}
