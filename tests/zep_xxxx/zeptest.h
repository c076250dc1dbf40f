// Shared helpers of the stream tests: a scratch directory per test, file
// contents, a caller-owned memory block, a recording host callback, and a way
// to run a piece of code in a child process.
#pragma once

#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/stream.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "zep_xxxx/memdebug.h"
#include "zep_xxxx/zepio.h"

namespace zeptest {

using Bytes = std::vector<uint8_t>;

inline Bytes B(std::initializer_list<int> values) {
    Bytes out;
    for (int v : values) out.push_back(static_cast<uint8_t>(v));
    return out;
}

inline Bytes B(const std::string &text) { return Bytes(text.begin(), text.end()); }

// The record behind a stream handle, to look at the state the routines keep.
inline ZEPIODATA *Record(HZEPIO h) { return static_cast<ZEPIODATA *>(GlobalLock(h)); }

// A scratch directory of the test's own, removed with everything in it.
class TempDir {
public:
    TempDir() {
        const char *base = std::getenv("MIVO4_TEST_TMP");
        if (base == nullptr || *base == '\0') base = std::getenv("TMPDIR");
        if (base == nullptr || *base == '\0') base = "/tmp";
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string leaf = std::string(info != nullptr ? info->test_suite_name() : "suite") + "." +
                           (info != nullptr ? info->name() : "test") + "." + std::to_string(::getpid()) + "." +
                           std::to_string(counter_++);
        dir_ = std::filesystem::path(base) / "streams" / leaf;
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    std::string Path(const std::string &name) const { return (dir_ / name).string(); }

private:
    std::filesystem::path dir_;
    static inline int counter_ = 0;
};

inline Bytes ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline bool Exists(const std::string &path) { return std::filesystem::exists(path); }

// Bytes that differ from position to position, so that misplaced reads show.
inline Bytes Pattern(size_t n, uint32_t seed = 1) {
    Bytes out(n);
    uint32_t x = seed * 2654435761u + 12345u;
    for (auto &b : out) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(x >> 24);
    }
    return out;
}

// Number of open file descriptors of this process.
inline size_t OpenDescriptors() {
    size_t n = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
    return n;
}

// A memory block the caller owns, as a host would hand it to a memory stream.
class CallerBlock {
public:
    explicit CallerBlock(uint32_t size) {
        ZHANDLE h = GlobalAlloc(GHND, size);
        ptr = static_cast<uint8_t *>(GlobalLock(h));
    }
    ~CallerBlock() {
        if (ptr != nullptr) GlobalFree(GlobalHandle(ptr));
    }
    CallerBlock(const CallerBlock &) = delete;
    CallerBlock &operator=(const CallerBlock &) = delete;

    uint32_t Size() const { return GlobalSize(GlobalHandle(ptr)); }
    ZHANDLE Handle() const { return GlobalHandle(ptr); }
    IOINFO Info(int32_t length, uint32_t growth = 4096) {
        IOINFO info{};
        info.lplpBuffer = &ptr;
        info.lBuffer = length;
        info.dwExpSize = growth;
        return info;
    }
    Bytes Contents() const { return Bytes(ptr, ptr + Size()); }

    uint8_t *ptr = nullptr;
};

// One call the module made to the host's stream function.
struct HostCall {
    intptr_t handle;
    int32_t op;
    intptr_t arg1;
    intptr_t arg2;
    std::string text;       // the name, for open, exists and delete
    int32_t seekOffset = 0; // the offset found at the address a seek passes
};

// A host stream function over an in-memory file, recording every call.
class FakeHost {
public:
    FakeHost() { current_ = this; }
    ~FakeHost() { current_ = nullptr; }
    FakeHost(const FakeHost &) = delete;
    FakeHost &operator=(const FakeHost &) = delete;

    static int32_t Proc(intptr_t handle, int32_t op, intptr_t arg1, intptr_t arg2) {
        return current_->Handle(handle, op, arg1, arg2);
    }

    std::vector<int32_t> Ops() const {
        std::vector<int32_t> ops;
        for (const auto &c : calls) ops.push_back(c.op);
        return ops;
    }

    std::vector<HostCall> calls;
    Bytes content;
    size_t position = 0;
    int32_t openResult = 77;
    int32_t existsResult = 5;
    int32_t deleteResult = 1;
    int32_t closeResult = 0;
    int failWriteAt = -1;      // this write (counting from 0) returns writeFailure
    int32_t writeFailure = -1;
    int writes = 0;

private:
    int32_t Handle(intptr_t handle, int32_t op, intptr_t arg1, intptr_t arg2) {
        HostCall call{handle, op, arg1, arg2, {}, 0};
        if ((op == ZEP_CB_OPEN || op == ZEP_CB_EXISTS || op == ZEP_CB_DELETE) && arg1 != 0) {
            call.text = reinterpret_cast<const char *>(arg1);
        }
        if (op == ZEP_CB_SEEK) call.seekOffset = *reinterpret_cast<const int32_t *>(arg1);
        calls.push_back(call);
        switch (op) {
        case ZEP_CB_OPEN: return openResult;
        case ZEP_CB_READ: {
            size_t n = std::min<size_t>(static_cast<size_t>(arg2), content.size() - std::min(position, content.size()));
            if (n > 0) std::memcpy(reinterpret_cast<void *>(arg1), content.data() + position, n);
            position += n;
            return static_cast<int32_t>(n);
        }
        case ZEP_CB_WRITE: {
            if (writes++ == failWriteAt) return writeFailure;
            const auto *in = reinterpret_cast<const uint8_t *>(arg1);
            if (content.size() < position + static_cast<size_t>(arg2)) content.resize(position + static_cast<size_t>(arg2));
            std::copy(in, in + arg2, content.begin() + static_cast<std::ptrdiff_t>(position));
            position += static_cast<size_t>(arg2);
            return static_cast<int32_t>(arg2);
        }
        case ZEP_CB_SEEK: {
            int64_t base = arg2 == 0 ? 0 : arg2 == 1 ? static_cast<int64_t>(position) : static_cast<int64_t>(content.size());
            int64_t target = base + call.seekOffset;
            if (target < 0) return -1;
            position = static_cast<size_t>(target);
            return static_cast<int32_t>(target);
        }
        case ZEP_CB_CLOSE: return closeResult;
        case ZEP_CB_EXISTS: return existsResult;
        case ZEP_CB_DELETE: return deleteResult;
        default: return -1;
        }
    }

    static inline FakeHost *current_ = nullptr;
};

// Runs body in a child process and returns its exit status (-1 when it did
// not exit normally). Whatever the parent has buffered for standard output is
// written first, so that the child cannot write it a second time.
inline int RunInChild(const std::function<int()> &body) {
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t pid = ::fork();
    if (pid < 0) return -1;
    if (pid == 0) ::_exit(body());
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads everything from a descriptor until its writers are gone.
inline Bytes Drain(int fd) {
    Bytes out;
    uint8_t chunk[4096];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0) break;
        out.insert(out.end(), chunk, chunk + n);
    }
    return out;
}

// Checks that every handle and descriptor taken during a test was given back.
class LeakCheck {
public:
    LeakCheck() : handles_(mivo4::mem::LiveHandles()), descriptors_(OpenDescriptors()) {}
    ~LeakCheck() {
        mivo4::mem::FailNth(0);
        EXPECT_EQ(mivo4::mem::LiveHandles(), handles_) << "memory handles leaked";
        EXPECT_EQ(OpenDescriptors(), descriptors_) << "file descriptors leaked";
    }

private:
    uint32_t handles_;
    size_t descriptors_;
};

}  // namespace zeptest
