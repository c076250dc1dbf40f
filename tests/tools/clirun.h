// Running the mivo4 program as a user does, for the tests of the command
// line: its exit status (or the signal that ended it), what it printed, the
// most memory it held, optionally under an address-space limit.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "toolfixture.h"

extern char **environ;

namespace toolstest {

struct Outcome {
    int code = -1;    // exit status, or 128 + the signal that ended it, as a shell says
    int signal = 0;   // the signal that ended it, 0 if it exited
    long maxRssKiB = 0;
    std::string out, err;
    std::vector<uint8_t> outBytes;
};

struct RunOptions {
    const char *moduleEnv = nullptr;  // MIVO4_MODULE, default the built module
    uint64_t addressSpace = 0;        // RLIMIT_AS for the child, 0 for none
    std::string stdinPath;            // standard input, default /dev/null
    std::vector<std::string> env;     // extra NAME=value entries
    std::string cwd;                  // the directory it runs in, default the test's
};

// The program under test: the one built with the tests, or $MIVO4_TEST_CLI
// (to run the same tests against another build).
inline const char *cliPath() {
    const char *other = std::getenv("MIVO4_TEST_CLI");
    return other != nullptr && other[0] != '\0' ? other : MIVO4_CLI_PATH;
}

// Starts mivo4 with args, its standard output and error going to outPath and
// errPath; the child's pid.
inline pid_t startMivo4(const std::vector<std::string> &args, const std::string &outPath, const std::string &errPath,
                        const RunOptions &o = {}) {
    std::vector<std::string> argv = {cliPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "MIVO4_MODULE=", 13) != 0) env.emplace_back(*e);
    env.push_back(std::string("MIVO4_MODULE=") + (o.moduleEnv != nullptr ? o.moduleEnv : MIVO4_MODULE_PATH));
    env.insert(env.end(), o.env.begin(), o.env.end());
    std::vector<char *> cargv, cenv;
    for (auto &a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    for (auto &e : env) cenv.push_back(e.data());
    cenv.push_back(nullptr);
    const std::string in = o.stdinPath.empty() ? "/dev/null" : o.stdinPath;
    pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls from here on.
        int fi = ::open(in.c_str(), O_RDONLY);
        int fo = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int fe = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fi < 0 || fo < 0 || fe < 0) _exit(126);
        if (!o.cwd.empty() && chdir(o.cwd.c_str()) != 0) _exit(126);
        dup2(fi, 0);
        dup2(fo, 1);
        dup2(fe, 2);
        // The test runner's own dispositions must not leak into the child.
        for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) signal(sig, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if (o.addressSpace != 0) {
            struct rlimit rl{o.addressSpace, o.addressSpace};
            setrlimit(RLIMIT_AS, &rl);
        }
        execve(cargv[0], cargv.data(), cenv.data());
        _exit(127);
    }
    return pid;
}

// Waits for pid; fills code, signal and the memory it held.
inline void waitMivo4(pid_t pid, Outcome &r) {
    int status = 0;
    struct rusage ru{};
    if (pid > 0 && wait4(pid, &status, 0, &ru) == pid) {
        r.maxRssKiB = ru.ru_maxrss;
        if (WIFEXITED(status)) r.code = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) r.signal = WTERMSIG(status), r.code = 128 + r.signal;
    }
}

inline Outcome runMivo4(const std::vector<std::string> &args, const ScratchDir &dir, const RunOptions &o) {
    std::string outPath = dir / ".stdout", errPath = dir / ".stderr";
    Outcome r;
    waitMivo4(startMivo4(args, outPath, errPath, o), r);
    r.outBytes = readBytes(outPath);
    r.out.assign(r.outBytes.begin(), r.outBytes.end());
    auto e = readBytes(errPath);
    r.err.assign(e.begin(), e.end());
    std::filesystem::remove(outPath);
    std::filesystem::remove(errPath);
    return r;
}

inline Outcome runMivo4(const std::vector<std::string> &args, const ScratchDir &dir, const char *moduleEnv = nullptr) {
    RunOptions o;
    o.moduleEnv = moduleEnv;
    return runMivo4(args, dir, o);
}

inline int lines(const std::string &s) { return static_cast<int>(std::count(s.begin(), s.end(), '\n')); }

inline bool contains(const std::string &s, const std::string &part) { return s.find(part) != std::string::npos; }

// Whether the host was built with AddressSanitizer, which reserves far more
// address space than any limit a test could set.
inline bool sanitized() {
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return true;
#endif
#endif
    return false;
}

}  // namespace toolstest
