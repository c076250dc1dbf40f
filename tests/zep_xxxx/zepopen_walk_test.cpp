// Allocation-failure walks over every way a stream is opened: for N = 1, 2,
// ... the N-th allocation of an open, a write or read and the close fails,
// until the sequence runs with no failure. Each run gives a documented answer
// (a handle or 0), leaks nothing, and a stream that did open still closes.
#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/stream.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "zep_xxxx/memdebug.h"

namespace {

int32_t quietCallback(intptr_t, int32_t op, intptr_t, intptr_t a2) {
    if (op == ZEP_CB_OPEN) return 5;
    if (op == ZEP_CB_WRITE || op == ZEP_CB_READ) return static_cast<int32_t>(a2);
    return 0;
}

class StreamOpenWalk : public ::testing::Test {
protected:
    void SetUp() override {
        const char *base = std::getenv("MIVO4_TEST_TMP");
        std::filesystem::path root = base != nullptr ? base : std::filesystem::temp_directory_path();
        std::filesystem::create_directories(root);
        path_ = (root / (std::string("openwalk-") + std::to_string(::getpid()))).string();
    }
    void TearDown() override { std::remove(path_.c_str()); }
    void existing() { std::ofstream(path_, std::ios::binary) << "some bytes of an existing file\n"; }

    // Walks open + use + close until no failure was injected.
    void walk(const std::function<HZEPIO()> &open, const char *what) {
        testing::internal::CaptureStderr();
        uint32_t n = 1;
        for (; n < 1000; ++n) {
            SCOPED_TRACE(std::string(what) + std::string(": allocation ") + std::to_string(n) + " fails");
            const uint32_t live = mivo4::mem::LiveHandles();
            mivo4::mem::FailNth(n);
            HZEPIO h = open();
            if (h != 0) {
                char buf[16] = "0123456789";
                zepWrite(h, buf, 10);
                zepSeek(h, 0, 0);
                zepRead(h, buf, 4);
                zepClose(h);
            }
            bool delivered = !mivo4::mem::FailurePending();
            mivo4::mem::FailNth(0);
            EXPECT_EQ(mivo4::mem::LiveHandles(), live) << "leaked";
            if (!delivered) {
                EXPECT_NE(h, 0u) << "with no failure the stream opens";
                break;
            }
        }
        testing::internal::GetCapturedStderr();
        EXPECT_GT(n, 1u) << what << " allocates nothing";
    }

    std::string path_;
};

TEST_F(StreamOpenWalk, ReadingAnExistingFile) {
    existing();
    walk([&] { return zepOpen(path_.c_str(), nullptr, ZEP_OPEN_READ); }, "read");
}

TEST_F(StreamOpenWalk, WritingAFile) {
    walk([&] { return zepOpen(path_.c_str(), nullptr, ZEP_OPEN_WRITE); }, "write");
}

TEST_F(StreamOpenWalk, UpdatingAFile) {
    existing();
    walk([&] { return zepOpen(path_.c_str(), nullptr, ZEP_OPEN_UPDATE); }, "update");
}

TEST_F(StreamOpenWalk, CreatingAFile) {
    walk([&] { return zepOpen(path_.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE); }, "create");
}

TEST_F(StreamOpenWalk, GrowingMemoryBlock) {
    testing::internal::CaptureStderr();
    uint32_t n = 1;
    for (; n < 1000; ++n) {
        SCOPED_TRACE(std::string("memory: allocation ") + std::to_string(n) + " fails");
        const uint32_t live = mivo4::mem::LiveHandles();
        ZHANDLE block = GlobalAlloc(GHND, 1);
        auto *memory = static_cast<uint8_t *>(GlobalLock(block));
        ASSERT_NE(memory, nullptr);
        IOINFO info{};
        info.lplpBuffer = &memory;
        info.dwExpSize = 4;  // grows every few bytes
        mivo4::mem::FailNth(n);
        HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        if (h != 0) {
            char buf[16] = "0123456789";
            zepWrite(h, buf, 10);
            zepClose(h);
        }
        bool delivered = !mivo4::mem::FailurePending();
        mivo4::mem::FailNth(0);
        // The block stays the caller's, wherever growing moved it.
        GlobalFree(GlobalHandle(memory));
        EXPECT_EQ(mivo4::mem::LiveHandles(), live) << "leaked";
        if (!delivered) {
            EXPECT_NE(h, 0u);
            break;
        }
    }
    testing::internal::GetCapturedStderr();
    EXPECT_GT(n, 1u);
}

TEST_F(StreamOpenWalk, HostCallback) {
    walk(
        [&] {
            IOINFO info{};
            info.pIOProc = &quietCallback;
            return zepOpen("host", &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        },
        "callback");
}

TEST_F(StreamOpenWalk, AttachedFile) {
    existing();
    FILE *file = std::fopen(path_.c_str(), "r+");
    ASSERT_NE(file, nullptr);
    walk(
        [&] {
            IOINFO info{};
            info.hFile = file;
            return zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
        },
        "attach");
    std::fclose(file);
}

}  // namespace
