// The progress bar: its stages, that it only goes forwards, how often it is
// redrawn (by a clock the test turns), and where the command line draws it:
// on a terminal by itself, into pipes and files only when asked.
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "clirun.h"
#include "progress.h"
#include "toolfixture.h"

using mivo4::host::ProgressBar;
using toolstest::contains;
using toolstest::ScratchDir;

namespace {

// One drawn state of the bar.
struct Frame {
    int percent = -1;
    std::string label;
};

// The frames in the text written to a terminal or pipe (lines are ended by
// carriage returns, and by the terminal's CR LF).
std::vector<Frame> frames(const std::string &text) {
    std::vector<Frame> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find_first_of("\r\n", start);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        const size_t close = line.find("] ");
        if (line.rfind("exporting [", 0) != 0 || close == std::string::npos) continue;
        Frame f;
        f.percent = std::atoi(line.c_str() + close + 2);
        const size_t pct = line.find("% ", close);
        if (pct != std::string::npos) {
            f.label = line.substr(pct + 2);
            while (!f.label.empty() && f.label.back() == ' ') f.label.pop_back();
        }
        out.push_back(f);
    }
    return out;
}

// Whether the line before the first `what` is a frame of the bar ended by
// the terminal's CR LF (a message on a line of its own after the bar).
bool onItsOwnLineAfterTheBar(const std::string &text, const std::string &what) {
    const size_t at = text.find(what);
    if (at == std::string::npos || at < 2 || text.compare(at - 2, 2, "\r\n") != 0) return false;
    const size_t lineStart = text.rfind('\r', at - 3);
    return text.compare(lineStart == std::string::npos ? 0 : lineStart + 1, 11, "exporting [") == 0;
}

bool forwardsOnly(const std::vector<Frame> &fs) {
    for (size_t i = 1; i < fs.size(); ++i)
        if (fs[i].percent < fs[i - 1].percent) return false;
    return true;
}

// A bar drawn into memory with a clock the test moves.
struct TestBar {
    std::chrono::steady_clock::time_point now{};
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    ProgressBar bar;
    explicit TestBar(std::vector<ProgressBar::Stage> stages, bool show = true)
        : bar(show, std::move(stages), out, [this] { return now; }) {}
    ~TestBar() {
        std::fclose(out);
        std::free(text);
    }
    std::string written() {
        std::fflush(out);
        return std::string(text, size);
    }
    void wait(int ms) { now += std::chrono::milliseconds(ms); }
};

const std::vector<ProgressBar::Stage> kThree = {{"one", 1}, {"two", 1}, {"three", 2}};

struct Shown {
    int code = -1;
    std::string text;  // everything the program wrote to the terminal or pipe
};

std::vector<std::string> commandLine(const std::vector<std::string> &args) {
    std::vector<std::string> argv = {toolstest::cliPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

[[noreturn]] void execMivo4(std::vector<std::string> argv) {
    setenv("MIVO4_MODULE", MIVO4_MODULE_PATH, 1);
    std::vector<char *> cargv;
    for (auto &a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    execv(cargv[0], cargv.data());
    _exit(127);
}

std::string drain(int fd) {
    std::string text;
    char buf[4096];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n > 0) text.append(buf, static_cast<size_t>(n));
        else if (n < 0 && errno == EINTR) continue;
        else break;  // end of the pipe, or EIO once the terminal's last user has gone
    }
    return text;
}

int waitFor(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// mivo4 with all three standard streams on a pseudo-terminal.
Shown onTerminal(const std::vector<std::string> &args) {
    std::vector<std::string> argv = commandLine(args);
    int master = -1;
    struct winsize size{};
    size.ws_col = 120;
    size.ws_row = 40;
    pid_t pid = forkpty(&master, nullptr, nullptr, &size);
    if (pid == 0) execMivo4(argv);
    Shown r;
    if (pid < 0) return r;
    r.text = drain(master);
    close(master);
    r.code = waitFor(pid);
    return r;
}

// mivo4 with standard error into a pipe (standard output to /dev/null).
Shown intoPipe(const std::vector<std::string> &args) {
    std::vector<std::string> argv = commandLine(args);
    int fds[2];
    if (pipe(fds) != 0) return {};
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(fds[1], 2);
        close(fds[0]);
        execMivo4(argv);
    }
    close(fds[1]);
    Shown r;
    r.text = drain(fds[0]);
    close(fds[0]);
    r.code = waitFor(pid);
    return r;
}

// A colour picture, so that every stage of an export runs.
void writeColourPpm(const std::string &path, uint32_t w, uint32_t h) {
    std::vector<uint8_t> rgb(size_t{w} * h * 3);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = toolstest::pattern(static_cast<uint32_t>(i / 3 % w), static_cast<uint32_t>(i / 3 / w), static_cast<uint32_t>(i % 3));
    toolstest::writeBytes(path, "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n", rgb);
}

}  // namespace

// ---------------------------------------------------------------- the bar

TEST(ProgressBar, StartsAtZeroOnItsFirstReportAndEndsAtHundredWithANewline) {
    TestBar t(kThree);
    EXPECT_EQ(t.written(), "") << "nothing before the first report";
    t.bar.advance(0, 0);
    t.bar.finish();
    const std::string text = t.written();
    auto fs = frames(text);
    ASSERT_EQ(fs.size(), 2u) << text;
    EXPECT_EQ(fs.front().percent, 0);
    EXPECT_EQ(fs.front().label, "one");
    EXPECT_EQ(fs.back().percent, 100);
    EXPECT_EQ(fs.back().label, "done");
    EXPECT_EQ(text.back(), '\n');
    t.bar.finish();
    EXPECT_EQ(t.written(), text) << "finishing twice draws nothing more";
}

TEST(ProgressBar, StagesShareTheBarByWeight) {
    TestBar t(kThree);
    t.bar.advance(0, 1);
    EXPECT_EQ(t.bar.percent(), 25);
    t.bar.advance(1, 0.5);
    EXPECT_EQ(t.bar.percent(), 37);
    t.bar.advance(2, 0.5);
    EXPECT_EQ(t.bar.percent(), 75);
}

TEST(ProgressBar, NeverGoesBackwards) {
    TestBar t(kThree);
    t.bar.advance(2, 0.5);
    const int reached = t.bar.percent();
    t.wait(1000);
    t.bar.advance(2, 0.1);  // less of the same stage
    t.wait(1000);
    t.bar.advance(1, 1);  // an earlier stage
    t.wait(1000);
    t.bar.advance(0, 0.3);
    EXPECT_EQ(t.bar.percent(), reached);
    EXPECT_EQ(t.bar.stage(), 2u);
    t.bar.finish();
    auto fs = frames(t.written());
    EXPECT_TRUE(forwardsOnly(fs));
    for (const Frame &f : fs) EXPECT_NE(f.label, "one") << "no frame of an earlier stage";
}

TEST(ProgressBar, AStageStartedLaterEndsTheCurrentOneAndSkipsThoseBetween) {
    TestBar t(kThree);
    t.bar.advance(0, 0.2);
    t.bar.advance(2, 0);
    EXPECT_EQ(t.bar.percent(), 25);
    t.bar.advance(2, 0.5);
    EXPECT_EQ(t.bar.percent(), 62);
    t.bar.advance(2, 1);
    EXPECT_EQ(t.bar.percent(), 100);
}

TEST(ProgressBar, ASkippedStageLeavesItsShareToTheStagesAfterIt) {
    TestBar t(kThree);
    t.bar.skip(1);
    t.bar.advance(0, 1);
    EXPECT_EQ(t.bar.percent(), 25);
    t.bar.advance(2, 0.5);
    EXPECT_EQ(t.bar.percent(), 62);  // 25 + 75 / 2
    TestBar first(kThree);
    first.bar.skip(0);
    first.bar.advance(1, 1);
    EXPECT_EQ(first.bar.percent(), 33);  // one of three
}

TEST(ProgressBar, IsRedrawnForAWholePercentAtMostTenTimesASecond) {
    TestBar t({{"only", 1}});
    t.bar.advance(0, 0);
    // Many reports at one instant: no redraw before a tenth of a second.
    for (int i = 1; i <= 50; ++i) t.bar.advance(0, i / 10000.0);
    EXPECT_EQ(frames(t.written()).size(), 1u);
    // Later, but less than a whole percent further: still none.
    t.wait(500);
    t.bar.advance(0, 0.0099);
    EXPECT_EQ(frames(t.written()).size(), 1u);
    t.bar.advance(0, 0.2);
    EXPECT_EQ(frames(t.written()).size(), 2u);
    t.wait(99);
    t.bar.advance(0, 0.9);
    EXPECT_EQ(frames(t.written()).size(), 2u);
    t.wait(1);
    t.bar.advance(0, 0.9);
    auto fs = frames(t.written());
    ASSERT_EQ(fs.size(), 3u);
    EXPECT_EQ(fs[1].percent, 20);
    EXPECT_EQ(fs[2].percent, 90);
}

TEST(ProgressBar, ANewStageIsShownAtOnce) {
    TestBar t(kThree);
    t.bar.advance(0, 0);
    t.bar.advance(1, 0);
    t.bar.advance(2, 0);
    auto fs = frames(t.written());
    ASSERT_EQ(fs.size(), 3u);
    EXPECT_EQ(fs[1].label, "two");
    EXPECT_EQ(fs[2].label, "three");
}

TEST(ProgressBar, BreakingTheLineLetsAMessageStandAloneAndTheNextReportRedraws) {
    TestBar t(kThree);
    t.bar.advance(0, 0.5);
    t.bar.breakLine();
    std::fputs("a message\n", t.out);
    t.bar.advance(0, 0.6);
    t.bar.finish();
    const std::string text = t.written();
    EXPECT_TRUE(contains(text, "% one")) << text;
    EXPECT_TRUE(contains(text, "\na message\n\rexporting [")) << text;
}

TEST(ProgressBar, AnUnfinishedBarEndsItsLineWhenItGoes) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    {
        ProgressBar outer(true, kThree, out);
        outer.advance(0, 0.5);
        {
            ProgressBar inner(true, kThree, out);
            EXPECT_EQ(ProgressBar::active(), &inner) << "messages break the newest bar";
        }
        EXPECT_EQ(ProgressBar::active(), &outer);
    }
    EXPECT_EQ(ProgressBar::active(), nullptr);
    std::fclose(out);
    const std::string written(text, size);
    std::free(text);
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(written.back(), '\n');
}

TEST(ProgressBar, AHiddenBarWritesNothing) {
    TestBar t(kThree, false);
    t.bar.advance(0, 0.5);
    t.bar.advance(2, 1);
    t.bar.breakLine();
    t.bar.finish();
    EXPECT_EQ(t.written(), "");
    EXPECT_EQ(ProgressBar::active(), nullptr);
}

// ---------------------------------------------------------------- where it is drawn

TEST(ProgressOnTheCommandLine, OnATerminalTheBarAppearsUnaskedAndGoesFromReadingToHundred) {
    ScratchDir dir;
    writeColourPpm(dir / "a.ppm", 300, 400);
    Shown r = onTerminal({"export", dir / "a.ppm", dir / "a.cal"});
    ASSERT_EQ(r.code, 0) << r.text;
    auto fs = frames(r.text);
    ASSERT_GE(fs.size(), 5u) << r.text;
    EXPECT_EQ(fs.front().percent, 0);
    EXPECT_EQ(fs.front().label, "reading");
    EXPECT_EQ(fs.back().percent, 100);
    EXPECT_EQ(fs.back().label, "done");
    EXPECT_TRUE(forwardsOnly(fs)) << r.text;
    // Every stage appears, in the order the work is done.
    std::vector<std::string> stages;
    for (const Frame &f : fs)
        if (stages.empty() || stages.back() != f.label) stages.push_back(f.label);
    EXPECT_EQ(stages, (std::vector<std::string>{"reading", "reducing colours", "coding", "checking", "done"})) << r.text;
    // The summary starts a line of its own.
    EXPECT_TRUE(onItsOwnLineAfterTheBar(r.text, "mivo4: wrote")) << r.text;
}

TEST(ProgressOnTheCommandLine, AOneBitPictureHasNothingToReduce) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.pbm", "P4\n64 64\n", std::vector<uint8_t>(8 * 64, 0x5A));
    Shown r = onTerminal({"export", "--no-verify", dir / "a.pbm", dir / "a.cal"});
    ASSERT_EQ(r.code, 0) << r.text;
    auto fs = frames(r.text);
    ASSERT_FALSE(fs.empty()) << r.text;
    for (const Frame &f : fs) {
        EXPECT_NE(f.label, "reducing colours");
        EXPECT_NE(f.label, "checking") << "--no-verify skips the check";
    }
    EXPECT_TRUE(forwardsOnly(fs));
    EXPECT_EQ(fs.back().percent, 100);
}

TEST(ProgressOnTheCommandLine, NoProgressSilencesATerminal) {
    ScratchDir dir;
    writeColourPpm(dir / "a.ppm", 60, 40);
    Shown r = onTerminal({"export", "--no-progress", dir / "a.ppm", dir / "a.cal"});
    EXPECT_EQ(r.code, 0) << r.text;
    EXPECT_TRUE(contains(r.text, "mivo4: wrote")) << r.text;
    EXPECT_FALSE(contains(r.text, "exporting [")) << r.text;
}

TEST(ProgressOnTheCommandLine, IntoAPipeOnlyWhenAskedFor) {
    ScratchDir dir;
    writeColourPpm(dir / "a.ppm", 60, 40);
    Shown quiet = intoPipe({"export", dir / "a.ppm", dir / "a.cal"});
    EXPECT_EQ(quiet.code, 0) << quiet.text;
    EXPECT_FALSE(contains(quiet.text, "exporting [")) << quiet.text;
    EXPECT_FALSE(contains(quiet.text, "\r")) << quiet.text;
    Shown forced = intoPipe({"export", "--progress", dir / "a.ppm", dir / "b.cal"});
    EXPECT_EQ(forced.code, 0) << forced.text;
    auto fs = frames(forced.text);
    ASSERT_FALSE(fs.empty()) << forced.text;
    EXPECT_EQ(fs.front().label, "reading");
    EXPECT_EQ(fs.back().percent, 100);
    EXPECT_TRUE(forwardsOnly(fs));
    // The last option given wins.
    Shown off = intoPipe({"export", "--progress", "--no-progress", dir / "a.ppm", dir / "c.cal"});
    EXPECT_FALSE(contains(off.text, "exporting [")) << off.text;
}

TEST(ProgressOnTheCommandLine, AnErrorAfterTheBarStartsItsOwnLine) {
    ScratchDir dir;
    // Rows promised but not there: the reader fails part way.
    toolstest::writeBytes(dir / "cut.ppm", "P6\n50 50\n255\n", std::vector<uint8_t>(50 * 3 * 10, 7));
    Shown r = onTerminal({"export", dir / "cut.ppm", dir / "a.cal"});
    EXPECT_EQ(r.code, 1) << r.text;
    EXPECT_TRUE(onItsOwnLineAfterTheBar(r.text, "mivo4: ")) << r.text;
}

TEST(ProgressOnTheCommandLine, ABatchCountsPicturesOnATerminalAndNotIntoAPipe) {
    ScratchDir dir;
    std::filesystem::create_directory(dir / "out");
    writeColourPpm(dir / "a.ppm", 60, 40);
    writeColourPpm(dir / "b.ppm", 40, 60);
    Shown r = onTerminal({"export", "-j", "1", "-o", dir / "out", dir / "a.ppm", dir / "b.ppm"});
    EXPECT_EQ(r.code, 0) << r.text;
    EXPECT_TRUE(contains(r.text, "] 2/2")) << r.text;
    // Each picture's own export draws no bar of its own over the count.
    EXPECT_FALSE(contains(r.text, "% reading")) << r.text;
    Shown piped = intoPipe({"export", "-j", "1", "-o", dir / "out", dir / "a.ppm", dir / "b.ppm"});
    EXPECT_EQ(piped.code, 0) << piped.text;
    EXPECT_FALSE(contains(piped.text, "exporting [")) << piped.text;
    EXPECT_TRUE(contains(piped.text, "2 pictures: 2 done")) << piped.text;
    Shown forced = intoPipe({"export", "--progress", "-j", "1", "-o", dir / "out", dir / "a.ppm", dir / "b.ppm"});
    EXPECT_TRUE(contains(forced.text, "] 2/2")) << forced.text;
    EXPECT_FALSE(contains(forced.text, "% reading")) << forced.text;
}
