// The standard streams by name, and attaching to them. Each case runs in a
// child process whose standard input or output is redirected, so that the
// test runner's own streams are never written to or closed.
#include <fcntl.h>

#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

bool DescriptorIsOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

// Exit codes of the children: 0 when every check passed, else the failing step.
enum Step { kOk = 0, kRedirect = 10, kOpen, kWrite, kRead, kClose, kStillOpen, kClosed, kAfter };

TEST(StandardStreams, StdoutStreamWritesToStandardOutputAndCloseClosesIt) {
    TempDir dir;
    std::string path = dir.Path("stdout.txt");
    int status = RunInChild([&] {
        int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || ::dup2(fd, 1) < 0) return int{kRedirect};
        ::close(fd);
        HZEPIO h = zepOpen("stdout", nullptr, ZEP_OPEN_WRITE);
        if (h == 0 || Record(h)->hFileHandle != stdout) return int{kOpen};
        if (zepWrite(h, "to standard output\n", 19) != 19) return int{kWrite};
        if (zepClose(h) != 0) return int{kClose};
        if (DescriptorIsOpen(1)) return int{kStillOpen};
        return int{kOk};
    });
    EXPECT_EQ(status, kOk);
    EXPECT_EQ(ReadFile(path), B("to standard output\n"));
}

TEST(StandardStreams, StdoutOnAPipeIsWrittenInOrderAcrossBuffers) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    Bytes data = Pattern(3 * 12288 + 100, 5);
    int status = -1;
    Bytes received;
    {
        std::fflush(stdout);
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(fds[0]);
            if (::dup2(fds[1], 1) < 0) ::_exit(kRedirect);
            ::close(fds[1]);
            HZEPIO h = zepOpen("stdout", nullptr, ZEP_OPEN_WRITE);
            if (h == 0) ::_exit(kOpen);
            for (size_t at = 0; at < data.size(); at += 1000) {
                auto n = static_cast<int32_t>(std::min<size_t>(1000, data.size() - at));
                if (zepWrite(h, data.data() + at, n) != n) ::_exit(kWrite);
            }
            ::_exit(zepClose(h) == 0 ? kOk : kClose);
        }
        ::close(fds[1]);
        received = Drain(fds[0]);
        ::close(fds[0]);
        int raw = 0;
        ASSERT_EQ(::waitpid(pid, &raw, 0), pid);
        status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }
    EXPECT_EQ(status, kOk);
    EXPECT_TRUE(received == data) << received.size() << " bytes received";
}

TEST(StandardStreams, AttachedStdoutIsWrittenButNotClosed) {
    TempDir dir;
    std::string path = dir.Path("attached.txt");
    int status = RunInChild([&] {
        int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || ::dup2(fd, 1) < 0) return int{kRedirect};
        ::close(fd);
        IOINFO info{};
        info.hFile = stdout;
        HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_ATTACH);
        if (h == 0) return int{kOpen};
        if (zepWrite(h, "stream;", 7) != 7) return int{kWrite};
        if (zepClose(h) != 0) return int{kClose};
        if (!DescriptorIsOpen(1)) return int{kClosed};
        if (std::fputs("host", stdout) < 0 || std::fflush(stdout) != 0) return int{kAfter};
        return int{kOk};
    });
    EXPECT_EQ(status, kOk);
    EXPECT_EQ(ReadFile(path), B("stream;host"));
}

TEST(StandardStreams, StdinStreamReadsStandardInputAndCloseClosesIt) {
    TempDir dir;
    std::string path = dir.Path("stdin.bin");
    Bytes data = Pattern(20000, 3);
    WriteFile(path, data);
    int status = RunInChild([&] {
        int fd = ::open(path.c_str(), O_RDONLY);
        if (fd < 0 || ::dup2(fd, 0) < 0) return int{kRedirect};
        ::close(fd);
        HZEPIO h = zepOpen("stdin", nullptr, ZEP_OPEN_READ);
        if (h == 0 || Record(h)->hFileHandle != stdin) return int{kOpen};
        if (Record(h)->ZepIOBuff.lEndOfFilePos != 20000) return int{kOpen};
        Bytes got(30000);
        if (zepRead(h, got.data(), 30000) != 20000) return int{kRead};
        got.resize(20000);
        if (got != data) return int{kRead};
        if (zepClose(h) != 0) return int{kClose};
        if (DescriptorIsOpen(0)) return int{kStillOpen};
        return int{kOk};
    });
    EXPECT_EQ(status, kOk);
}

TEST(StandardStreams, StdinOnAPipeIsReadInOrderAcrossBuffers) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    Bytes data = Pattern(30000, 4);  // fits in the pipe, so the parent can write it all first
    ASSERT_EQ(::write(fds[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
    ::close(fds[1]);
    int status = RunInChild([&] {
        if (::dup2(fds[0], 0) < 0) return int{kRedirect};
        ::close(fds[0]);
        HZEPIO h = zepOpen("stdin", nullptr, ZEP_OPEN_READ);
        if (h == 0) return int{kOpen};
        Bytes got;
        uint8_t chunk[777];
        for (;;) {
            int32_t n = zepRead(h, chunk, sizeof chunk);
            if (n < 0) return int{kRead};
            if (n == 0) break;
            got.insert(got.end(), chunk, chunk + n);
        }
        if (got != data) return int{kRead};
        if (zepSeek(h, 5, 0) != -1) return int{kAfter};  // a pipe cannot be positioned
        zepClose(h);
        return int{kOk};
    });
    ::close(fds[0]);
    EXPECT_EQ(status, kOk);
}

}  // namespace
