// How the last export ended, as GetLastExportStatus tells a host, while
// ExportCellData keeps its documented answers; and exports from several
// threads at once.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "export/mivo4/exportfixture.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using mivo4::test::HostPicture;
using mivo4::test::HostStream;

int32_t stopAtOnce(intptr_t, int32_t, int32_t, intptr_t, intptr_t, intptr_t, intptr_t) { return 1; }

class ExportStatus : public ::testing::Test {
protected:
    void SetUp() override {
        before_ = mivo4::mem::LiveHandles();
        setup_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(setup_, 0u);
        int32_t mode[2] = {783, 300};
        ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
        path_ = oracle::scratchPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
        import_.hOutputData = setup_;
        import_.lpExport = &options_;
    }
    void TearDown() override {
        DestroySetup(setup_);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
        std::remove(path_.c_str());
    }
    // An export whose every write fails: a host stream that refuses them.
    int32_t exportFailing(HostPicture &p) {
        mivo4::test::gHostStream = &refusing_;
        refusing_.failWrites = true;
        xEscapeSetup(setup_, ESC_OUTPUT_CALLBACK, 4, reinterpret_cast<void *>(&mivo4::test::hostStreamProc),
                     nullptr, 0);
        int32_t rc = exportTo("host", p);
        static_cast<Gp4_SetupData *>(GlobalLock(setup_))->pIOCBProc = nullptr;
        GlobalUnlock(setup_);
        return rc;
    }
    int32_t exportTo(const char *name, HostPicture &p) {
        zepRasterInfoInput ri{96, 300, 300, p.r.cx, p.r.cy, 1280, 1078};
        return ExportCellData(name, &p.r, &ri, &import_);
    }

    ZHANDLE setup_ = 0;
    IMPORT_OPTIONS import_{};
    EXPORT_OPTIONS options_{};
    HostStream refusing_;
    uint32_t before_ = 0;
    std::string path_;
};

TEST_F(ExportStatus, ThreadThatHasNotExportedLearnsTheModulesLastExport) {
    HostPicture p(1, 8, 8, 9);
    EXPECT_EQ(exportFailing(p), 0);
    int32_t seen = -1;
    std::thread([&] { seen = GetLastExportStatus(); }).join();
    EXPECT_EQ(seen, MIVO4_EXPORT_WRITE_FAILED);
}

TEST_F(ExportStatus, WholePictureIsComplete) {
    HostPicture p(1, 70, 41, 1);
    EXPECT_EQ(exportTo(path_.c_str(), p), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
    auto decoded = oracle::decodeG4(oracle::splitGp4(oracle::readFile(path_)).data, 70, 42);
    EXPECT_TRUE(decoded.has_value());
}

TEST_F(ExportStatus, WholePictureToMemoryIsComplete) {
    HostPicture p(8, 33, 20, 2);
    EXPECT_EQ(exportTo("", p), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
    EXPECT_GT(mivo4::test::memoryOutput(options_.hMF).size(), 2048u);
    GlobalFree(options_.hMF);
}

TEST_F(ExportStatus, StopAskedByTheHostIsStopped) {
    options_.GetSet_Status = &stopAtOnce;
    HostPicture p(1, 64, 64, 3);
    EXPECT_EQ(exportTo(path_.c_str(), p), 0) << "the documented answer";
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_STOPPED);
}

TEST_F(ExportStatus, FullDiskIsAWriteFailure) {
    // In a child whose file-size limit makes every write past 3000 bytes
    // fail, as a full disk does; the header fits, the coded rows do not.
    HostPicture p(1, 300, 300, 4);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {3000, 3000};
        setrlimit(RLIMIT_FSIZE, &limit);
        int32_t rc = exportTo(path_.c_str(), p);
        _exit(rc == 0 && GetLastExportStatus() == MIVO4_EXPORT_WRITE_FAILED ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "answer 0 as documented, and the status tells the write failed";
}

TEST_F(ExportStatus, SmallPictureOnAFullDiskIsAWriteFailureToo) {
    // Everything fits the stream's buffer: the failure comes at the close.
    HostPicture p(1, 8, 8, 14);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        int32_t rc = exportTo(path_.c_str(), p);
        _exit(rc == 0 && GetLastExportStatus() == MIVO4_EXPORT_WRITE_FAILED ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(ExportStatus, HostStreamRefusingWritesIsAWriteFailure) {
    HostStream stream;
    stream.failWrites = true;
    mivo4::test::gHostStream = &stream;
    ASSERT_EQ(xEscapeSetup(setup_, ESC_OUTPUT_CALLBACK, 4,
                           reinterpret_cast<void *>(&mivo4::test::hostStreamProc), nullptr, 0), 1);
    HostPicture p(1, 300, 300, 5);
    EXPECT_EQ(exportTo("host", p), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_WRITE_FAILED);
}

TEST_F(ExportStatus, OutputThatCannotBeOpenedIsAWriteFailure) {
    HostPicture p(1, 8, 8, 6);
    EXPECT_EQ(exportTo("/nonexistent-dir/x.cal", p), 303);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_WRITE_FAILED);
}

TEST_F(ExportStatus, MissingPictureIsNothingToWrite) {
    zepRasterInfoInput ri{96, 300, 300, 8, 8, 1280, 1078};
    EXPECT_EQ(ExportCellData(path_.c_str(), nullptr, &ri, &import_), 300);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_NOTHING);
}

TEST_F(ExportStatus, NoMemoryForTheMemoryBlockIsNoMemory) {
    HostPicture p(1, 8, 8, 7);
    testing::internal::CaptureStderr();
    mivo4::mem::FailNth(1);
    EXPECT_EQ(exportTo("", p), 303);
    mivo4::mem::FailNth(0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_NO_MEMORY);
}

TEST_F(ExportStatus, EachThreadLearnsHowItsOwnLastExportEnded) {
    HostPicture p(1, 8, 8, 8);
    EXPECT_EQ(exportFailing(p), 0);
    ASSERT_EQ(GetLastExportStatus(), MIVO4_EXPORT_WRITE_FAILED);
    int32_t other = -1;
    std::thread([&] {
        exportTo(path_.c_str(), p);
        other = GetLastExportStatus();
    }).join();
    EXPECT_EQ(other, MIVO4_EXPORT_COMPLETE);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_WRITE_FAILED) << "another thread's export";
}

// Four threads, each with its own setup and picture, export 25 times at
// once; every file equals what a lone export of the same job writes.
TEST(ExportThreads, FourThreadsOfTwentyFiveExportsWriteWhatLoneExportsWrite) {
    constexpr int kThreads = 4, kRounds = 25;
    const uint32_t before = mivo4::mem::LiveHandles();
    struct Job {
        ZHANDLE setup = 0;
        std::unique_ptr<HostPicture> picture;
        EXPORT_OPTIONS options{};
        IMPORT_OPTIONS import{};
        zepRasterInfoInput ri{};
        int32_t mode[2] = {783, 0};
        std::vector<uint8_t> expected;
        std::vector<std::string> paths;
        std::vector<int32_t> statuses;
    };
    std::vector<Job> jobs(kThreads);
    const uint16_t depths[kThreads] = {1, 4, 8, 24};
    for (int t = 0; t < kThreads; ++t) {
        Job &j = jobs[t];
        j.setup = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(j.setup, 0u);
        j.picture = std::make_unique<HostPicture>(depths[t], static_cast<uint16_t>(90 + 17 * t),
                                                   static_cast<uint16_t>(60 + 5 * t), 100 + t);
        j.mode[1] = 100 + 50 * t;
        j.import.hOutputData = j.setup;
        j.import.lpExport = &j.options;
        j.ri = zepRasterInfoInput{96, 300, 100, j.picture->r.cx, j.picture->r.cy, 1280, 1078};
        ASSERT_EQ(xEscapeSetup(j.setup, ESC_RES_MODE, 8, j.mode, nullptr, 0), 1);
        std::string reference = oracle::scratchPath(std::string("threads-ref-") + std::to_string(t));
        ASSERT_EQ(ExportCellData(reference.c_str(), &j.picture->r, &j.ri, &j.import), 0);
        j.expected = oracle::readFile(reference);
        std::remove(reference.c_str());
        ASSERT_GT(j.expected.size(), 2048u);
        for (int i = 0; i < kRounds; ++i)
            j.paths.push_back(oracle::scratchPath(std::string("threads-") + std::to_string(t) + std::string("-") + std::to_string(i)));
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&jobs, t] {
            Job &j = jobs[t];
            for (int i = 0; i < kRounds; ++i) {
                xEscapeSetup(j.setup, ESC_RES_MODE, 8, j.mode, nullptr, 0);
                ExportCellData(j.paths[i].c_str(), &j.picture->r, &j.ri, &j.import);
                j.statuses.push_back(GetLastExportStatus());
            }
        });
    }
    for (auto &th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) {
        Job &j = jobs[t];
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(oracle::readFile(j.paths[i]), j.expected) << "thread " << t << " export " << i;
            EXPECT_EQ(j.statuses[i], MIVO4_EXPORT_COMPLETE);
            std::remove(j.paths[i].c_str());
        }
        DestroySetup(j.setup);
        j.picture.reset();
    }
    EXPECT_EQ(mivo4::mem::LiveHandles(), before);
}

}  // namespace
