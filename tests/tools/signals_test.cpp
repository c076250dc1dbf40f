// Signals that end the host at any moment (while it reads, exports, checks
// or moves the result into place) take its temporary file with them, and the
// host dies of the signal (a shell sees 128 + the signal).
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>

#include "clirun.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

bool hasTemporary(const ScratchDir &dir) {
    for (const std::string &name : dir.list())
        if (name.find(".part-") != std::string::npos) return true;
    return false;
}


// Exports with `way` (extra export options), each ended by a signal at a
// random moment of its run.
void signalAtRandomMoments(const std::vector<std::string> &way) {
    auto exportArgs = [&](const std::string &in, const std::string &out) {
        std::vector<std::string> args{"export", "--source-dpi", "100"};
        args.insert(args.end(), way.begin(), way.end());
        args.push_back(in);
        args.push_back(out);
        return args;
    };
    ScratchDir dir;
    writeNoisePpm(dir / "in.ppm", 700, 700);
    // The finished file, to tell a complete output from anything else.
    Outcome ref = runMivo4(exportArgs(dir / "in.ppm", dir / "ref.cal"), dir);
    ASSERT_EQ(ref.code, 0) << ref.err;
    const auto complete = readBytes(dir / "ref.cal");
    // How long one export takes here, only to spread the signals over it.
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(runMivo4(exportArgs(dir / "in.ppm", dir / "ref2.cal"), dir).code, 0);
    const auto span = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0);
    std::mt19937 random(14);
    const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    int killed = 0;
    for (int trial = 0; trial < 48; ++trial) {
        const int sig = signals[trial % 4];
        writeBytes(dir / "out.cal", "old", {});
        std::uniform_int_distribution<long> when(0, span.count() * 11 / 10);
        pid_t pid = startMivo4(exportArgs(dir / "in.ppm", dir / "out.cal"), dir / ".o",
                               dir / ".e");
        ASSERT_GT(pid, 0);
        usleep(static_cast<useconds_t>(when(random)));
        kill(pid, sig);
        Outcome r;
        waitMivo4(pid, r);
        ASSERT_FALSE(hasTemporary(dir)) << "signal " << sig << " in trial " << trial << " left " << ::testing::PrintToString(dir.list());
        // Either it finished first, or it died of the signal (a first Ctrl-C
        // during the export asks the module to stop: exit 130).
        if (r.code != 0) {
            ++killed;
            EXPECT_EQ(r.code, 128 + sig) << "trial " << trial << ": " << r.err;
            auto now = readBytes(dir / "out.cal");
            EXPECT_TRUE(std::string(now.begin(), now.end()) == "old" || now == complete) << "trial " << trial;
        } else {
            EXPECT_EQ(readBytes(dir / "out.cal"), complete) << "trial " << trial;
        }
    }
    EXPECT_GT(killed, 0) << "no trial was interrupted";
}

}  // namespace

TEST(HostSignals, EveryFatalSignalAtARandomMomentLeavesNoTemporaryFile) { signalAtRandomMoments({}); }

TEST(HostSignals, SignalsOnTheDriverPathLeaveNoTemporaryFileInAnyOutputWay) {
    for (const char *mode : {"file", "memory", "callback"}) {
        SCOPED_TRACE(mode);
        signalAtRandomMoments({"--via", "gdp", "--output-mode", mode});
    }
}

TEST(HostSignals, AClosedPipeOnStandardOutputLeavesNoTemporaryFile) {
    ScratchDir dir;
    writeNoisePpm(dir / "in.ppm", 200, 200);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ::close(fds[0]);  // nobody will read
    std::string writeEnd = "/proc/self/fd/" + std::to_string(fds[1]);
    // The child's standard output is the pipe with no reader.
    RunOptions o;
    o.env.push_back("TMPDIR=" + dir.path().string());
    pid_t pid = startMivo4({"export", dir / "in.ppm", "-"}, writeEnd, dir / ".e", o);
    ::close(fds[1]);
    Outcome r;
    waitMivo4(pid, r);
    EXPECT_EQ(r.signal, SIGPIPE) << "exit " << r.code;
    EXPECT_EQ(r.code, 128 + SIGPIPE);
    EXPECT_FALSE(hasTemporary(dir)) << ::testing::PrintToString(dir.list());
    std::filesystem::remove(dir / ".e");
    EXPECT_EQ(dir.list(), std::vector<std::string>{"in.ppm"});
}
