// A setup's profile is read once per CreateSetup, and only a regular file is
// taken as one.
#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "export/mivo4/tempdir.h"
#include "zep_xxxx/iniload.h"

namespace {

class SetupProfile : public mivo4::test::InTempDir {};

const char kProfile[] =
    "[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=GP4.1\nColor Mode=104\nSize Mode=602\n"
    "Resolution Mode=783\nNot Defined=150\nWidth=4.5\nHeight=3.25\n";

TEST_F(SetupProfile, CreateSetupReadsItsProfileOnce) {
    spill("p.ini", kProfile);
    uint64_t before = mivo4::ini::ReadCount();
    ZHANDLE h = CreateSetup(0, "p.ini", nullptr, nullptr);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(mivo4::ini::ReadCount() - before, 1u) << "ten keys, one read";
    const auto *s = static_cast<const Gp4_SetupData *>(GlobalLock(h));
    EXPECT_STREQ(s->szDriver, "Fax");
    EXPECT_EQ(s->XResolution, 150);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 4.5);
    GlobalUnlock(h);
    ZHANDLE again = CreateSetup(0, "p.ini", nullptr, nullptr);
    EXPECT_EQ(mivo4::ini::ReadCount() - before, 1u) << "the unchanged profile is not read again";
    DestroySetup(again);
    DestroySetup(h);
}

TEST_F(SetupProfile, LargeProfileIsReadOnceAndStillGivesItsKeys) {
    std::string text = "[MIVO4]\n~Mode=Fax\n";
    for (int i = 0; i < 20000; ++i) text += std::string("[Other") + std::to_string(i) + "]\nkey=value\n";
    text += "[Fax]\nDriver=GP4.1\nResolution Mode=780\n";
    spill("big.ini", text);
    uint64_t before = mivo4::ini::ReadCount();
    ZHANDLE h = CreateSetup(0, "big.ini", nullptr, nullptr);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(mivo4::ini::ReadCount() - before, 1u);
    const auto *s = static_cast<const Gp4_SetupData *>(GlobalLock(h));
    EXPECT_EQ(s->XResolution, 400);
    GlobalUnlock(h);
    DestroySetup(h);
}

// In a child, so that a wait on the FIFO ends the child, not the suite.
void expectDefaultsFrom(const char *profile) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        ZHANDLE h = CreateSetup(0, profile, nullptr, nullptr);
        if (h == 0) _exit(1);
        const auto *s = static_cast<const Gp4_SetupData *>(GlobalLock(h));
        bool defaults = s->szProfile[0] == '\0' && s->ResMode == 779 && s->XResolution == 96;
        _exit(defaults ? 0 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << profile << " status " << status;
}

TEST_F(SetupProfile, FifoAsProfileGivesTheDefaultsWithoutWaiting) {
    ASSERT_EQ(mkfifo("fifo.ini", 0600), 0);
    expectDefaultsFrom("fifo.ini");
}

TEST_F(SetupProfile, DeviceAsProfileGivesTheDefaults) { expectDefaultsFrom("/dev/zero"); }

}  // namespace
