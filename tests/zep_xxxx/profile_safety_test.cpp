// Profiles under hostile conditions: permissions, owners, read-only
// directories, devices and FIFOs, concurrent writers, and how often a profile
// is read.
#include <gtest/gtest.h>
#include <grp.h>
#include <mivo4/profile.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "zep_xxxx/profile_files.h"
#include "zep_xxxx/iniload.h"
#include "zep_xxxx/iniwrite.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

std::string slurp(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void spill(const fs::path &p, const std::string &text) {
    std::ofstream out(p, std::ios::binary);
    out << text;
}

// Runs fn in a child process, as an ordinary user when the tests run as
// root (root may read and write any file, which hides what a user meets).
// The child is killed if it takes longer than 30 seconds: nothing here may
// hang. Returns whether the child ran to its end.
bool inChild(const std::function<void()> &fn, bool unprivileged) {
    pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        alarm(30);
        if (unprivileged && geteuid() == 0) {
            if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(3);
        }
        fn();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class ProfileSafety : public ::testing::Test {
protected:
    void SetUp() override {
        const char *base = std::getenv("MIVO4_TEST_TMP");
        fs::path root = base != nullptr ? fs::path(base) : fs::temp_directory_path();
        fs::create_directories(root);
        std::string pattern = (root / "profsafeXXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        chmod(dir_.c_str(), 0777);  // an ordinary user works here too
        saved_ = fs::current_path();
        fs::current_path(dir_);
        unsetenv("INIDIR");
        mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::None);
    }
    void TearDown() override {
        fs::current_path(saved_);
        for (const auto &e : fs::recursive_directory_iterator(dir_))
            chmod(e.path().c_str(), e.is_directory() ? 0777 : 0666);
        fs::remove_all(dir_);
    }
    static std::string get(const char *file, const char *section, const char *key) {
        char buf[64];
        GetPrivateProfileString(section, key, "dflt", buf, sizeof buf, file);
        return buf;
    }

    fs::path dir_;
    fs::path saved_;
};

const std::string kThreeSections = "[A]\nx=1\n[S]\ny=2\n[Z]\nz=3\n";

TEST_F(ProfileSafety, WriteOnlyProfileThatCannotBeReadIsNotWiped) {
    spill("p.ini", kThreeSections);
    chmod("p.ini", 0200);
    chown("p.ini", kNobody, kNobody);
    ASSERT_TRUE(inChild([] { WritePrivateProfileString("S", "A_0", "v0", "p.ini"); }, true));
    EXPECT_EQ(slurp("p.ini"), kThreeSections) << "byte for byte";
}

TEST_F(ProfileSafety, ReadOnlyProfileIsNotWrittenEvenByRoot) {
    spill("p.ini", kThreeSections);
    chmod("p.ini", 0444);
    EXPECT_EQ(WritePrivateProfileString("S", "y", "9", "p.ini"), 0);
    EXPECT_EQ(slurp("p.ini"), kThreeSections);
    ASSERT_TRUE(inChild([] { WritePrivateProfileString("S", "y", "9", "p.ini"); }, true));
    EXPECT_EQ(slurp("p.ini"), kThreeSections);
}

TEST_F(ProfileSafety, RootOwnedReadOnlyProfileInAnOpenDirectoryKeepsItsOwnerAndContent) {
    if (geteuid() != 0) GTEST_SKIP() << "needs a profile owned by another user";
    spill("p.ini", kThreeSections);
    chmod("p.ini", 0444);
    ASSERT_TRUE(inChild([] { WritePrivateProfileString("S", "y", "9", "p.ini"); }, true));
    struct stat st;
    ASSERT_EQ(stat("p.ini", &st), 0);
    EXPECT_EQ(st.st_uid, 0u);
    EXPECT_EQ(slurp("p.ini"), kThreeSections);
}

TEST_F(ProfileSafety, NewVersionKeepsModeOwnerAndGroup) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give a file to another user";
    spill("p.ini", kThreeSections);
    chown("p.ini", kNobody, kNobody);
    chmod("p.ini", 0640);
    WritePrivateProfileString("S", "y", "9", "p.ini");
    struct stat st;
    ASSERT_EQ(stat("p.ini", &st), 0);
    EXPECT_EQ(st.st_uid, kNobody);
    EXPECT_EQ(st.st_gid, kNobody);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(slurp("p.ini"), "[A]\nx=1\n[S]\ny=9\n[Z]\nz=3\n");
}

TEST_F(ProfileSafety, WritableProfileOfAnotherOwnerIsRewrittenInPlaceAndKeepsItsOwner) {
    if (geteuid() != 0) GTEST_SKIP() << "needs a profile owned by another user";
    spill("p.ini", kThreeSections);
    chmod("p.ini", 0666);  // root's, writable by everyone
    ASSERT_TRUE(inChild([] { WritePrivateProfileString("S", "y", "9", "p.ini"); }, true));
    struct stat st;
    ASSERT_EQ(stat("p.ini", &st), 0);
    EXPECT_EQ(st.st_uid, 0u) << "the profile does not change hands";
    EXPECT_EQ(st.st_mode & 07777, 0666u);
    EXPECT_EQ(slurp("p.ini"), "[A]\nx=1\n[S]\ny=9\n[Z]\nz=3\n");
}

TEST_F(ProfileSafety, WritableProfileInReadOnlyDirectoryIsRewrittenInPlace) {
    fs::create_directory("ro");
    spill("ro/p.ini", kThreeSections);
    chown("ro/p.ini", kNobody, kNobody);
    chmod("ro", 0555);
    ASSERT_TRUE(inChild([] { WritePrivateProfileString("S", "y", "9", "ro/p.ini"); }, true));
    EXPECT_EQ(slurp("ro/p.ini"), "[A]\nx=1\n[S]\ny=9\n[Z]\nz=3\n");
    EXPECT_EQ(mivo4::test::filesBesideLocks("ro"), 1) << "nothing left beside it";
}

TEST_F(ProfileSafety, ProfileReachedThroughALinkIsReplacedAtItsTargetAndTheLinkStays) {
    fs::create_directory("real");
    spill("real/p.ini", kThreeSections);
    fs::create_symlink("real/p.ini", "l.ini");
    WritePrivateProfileString("S", "y", "9", "l.ini");
    EXPECT_TRUE(fs::is_symlink("l.ini"));
    EXPECT_EQ(slurp("real/p.ini"), "[A]\nx=1\n[S]\ny=9\n[Z]\nz=3\n");
    EXPECT_EQ(mivo4::test::filesBesideLocks("real"), 1);
}

TEST_F(ProfileSafety, MemoryRunningOutDuringAWriteLeavesTheProfileAndAnswersZero) {
    spill("p.ini", kThreeSections);
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::NoMemory);
    EXPECT_EQ(WritePrivateProfileString("S", "y", "9", "p.ini"), 0);
    EXPECT_EQ(slurp("p.ini"), kThreeSections);
    EXPECT_EQ(mivo4::test::filesBesideLocks("."), 1) << "nothing but the lock file is left beside it";
    WritePrivateProfileString("S", "y", "9", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[A]\nx=1\n[S]\ny=9\n[Z]\nz=3\n") << "the next write is not locked out";
}

TEST_F(ProfileSafety, NoFileLeftBesideTheProfileAfterAWrite) {
    spill("p.ini", kThreeSections);
    WritePrivateProfileString("S", "y", "9", "p.ini");
    EXPECT_EQ(mivo4::test::filesBesideLocks("."), 1) << "no temporary file stays";
}

TEST_F(ProfileSafety, TwoProcessesWritingThreeHundredKeysEachKeepAllSixHundred) {
    spill("p.ini", "[S]\n");
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        children[c] = fork();
        ASSERT_GE(children[c], 0);
        if (children[c] == 0) {
            for (int i = 0; i < 300; ++i) {
                std::string key = std::string("k") + std::to_string(c) + std::string("_") + std::to_string(i);
                WritePrivateProfileString("S", key.c_str(), "v", "p.ini");
            }
            _exit(0);
        }
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    int kept = 0;
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 300; ++i) {
            std::string key = std::string("k") + std::to_string(c) + std::string("_") + std::to_string(i);
            kept += get("p.ini", "S", key.c_str()) == "v" ? 1 : 0;
        }
    EXPECT_EQ(kept, 600);
}

TEST_F(ProfileSafety, TheLockFileStaysSoThatEveryWriterLocksTheSameFile) {
    spill("p.ini", "[S]\n");
    WritePrivateProfileString("S", "a", "1", "p.ini");
    struct stat first{};
    ASSERT_EQ(stat(".p.ini.lock", &first), 0) << "the lock file is left in place";
    WritePrivateProfileString("S", "b", "2", "p.ini");
    struct stat second{};
    ASSERT_EQ(stat(".p.ini.lock", &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino) << "the next writer locked the same file";
    EXPECT_EQ(get("p.ini", "S", "a"), "1");
    EXPECT_EQ(get("p.ini", "S", "b"), "2");
}

TEST_F(ProfileSafety, DeviceAsProfileIsRefusedWithoutReading) {
    ASSERT_TRUE(inChild([] {
        char buf[16];
        if (GetPrivateProfileString("S", "k", "dflt", buf, sizeof buf, "/dev/zero") != 4) _exit(1);
        if (std::strcmp(buf, "dflt") != 0) _exit(2);
        char name[144] = "/dev/zero";
        if (GetProfileDirectory(name, nullptr) != 1) _exit(4);
    }, false));
}

TEST_F(ProfileSafety, FifoAsProfileIsRefusedAndNeverWaitedOn) {
    ASSERT_EQ(mkfifo("f.ini", 0666), 0);
    ASSERT_TRUE(inChild([] {
        char buf[16];
        if (GetPrivateProfileString("S", "k", "dflt", buf, sizeof buf, "f.ini") != 4) _exit(1);
        WritePrivateProfileString("S", "k", "v", "f.ini");
        char name[144] = "f.ini";
        if (GetProfileDirectory(name, nullptr) != 1) _exit(4);
        if (INIopen(name, 0, 0) != 0) _exit(5);
    }, false));
    struct stat st;
    ASSERT_EQ(lstat("f.ini", &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the FIFO was not replaced by a file";
}

TEST_F(ProfileSafety, ManyKeysOfOneUnchangedProfileReadItOnce) {
    std::string text = "[S]\n";
    for (int i = 0; i < 50; ++i) text += std::string("k") + std::to_string(i) + std::string("=") + std::to_string(i) + "\n";
    spill("p.ini", text);
    uint64_t before = mivo4::ini::ReadCount();
    for (int i = 0; i < 50; ++i) {
        std::string key = std::string("k") + std::to_string(i);
        EXPECT_EQ(get("p.ini", "S", key.c_str()), std::to_string(i));
        EXPECT_EQ(GetPrivateProfileInt("S", key.c_str(), -1, "p.ini"), i);
    }
    EXPECT_EQ(mivo4::ini::ReadCount() - before, 1u);
}

TEST_F(ProfileSafety, ProfileIsReadAgainAfterItChanges) {
    spill("p.ini", "[S]\nk=1\n");
    EXPECT_EQ(get("p.ini", "S", "k"), "1");
    WritePrivateProfileString("S", "k", "22", "p.ini");
    EXPECT_EQ(get("p.ini", "S", "k"), "22") << "the module's own write";
    spill("p.ini", "[S]\nk=333\n");
    EXPECT_EQ(get("p.ini", "S", "k"), "333") << "another program's write";
}

}  // namespace
