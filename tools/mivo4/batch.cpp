#include "batch.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>

extern char **environ;

namespace mivo4::host {

namespace {

std::string selfPath() {
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return "mivo4";
    self[n] = '\0';
    return self;
}

// One picture's export, as its own process: what a user would type.
pid_t startExport(const BatchJob &job, const std::string &input, const std::string &output) {
    std::vector<std::string> args{selfPath(), "--module", job.modulePath, "export"};
    args.insert(args.end(), job.exportOptions.begin(), job.exportOptions.end());
    args.push_back("--no-progress");  // the bar counts pictures; one picture's own would garble it
    args.push_back("--");
    args.push_back(input);
    args.push_back(output);
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
}

void drawCount(bool show, size_t done, size_t total) {
    if (!show) return;
    constexpr size_t kCells = 40;
    const size_t full = total == 0 ? kCells : done * kCells / total;
    std::string bar(kCells, '.');
    for (size_t i = 0; i < full; ++i) bar[i] = '#';
    std::fprintf(stderr, "\rexporting [%s] %zu/%zu", bar.c_str(), done, total);
    std::fflush(stderr);
}

}  // namespace

std::string batchOutputName(const std::string &dir, const std::string &input) {
    std::string name = input;
    if (size_t slash = name.rfind('/'); slash != std::string::npos) name = name.substr(slash + 1);
    if (size_t dot = name.rfind('.'); dot != std::string::npos && dot > 0) name = name.substr(0, dot);
    return (dir.empty() || dir.back() == '/' ? dir : dir + "/") + name + ".cal";
}

std::vector<std::string> readFileList(const std::string &path) {
    std::ifstream file;
    std::istream *in = &std::cin;
    if (path != "-") {
        struct stat st{};
        if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) throw std::runtime_error(path + ": is a directory");
        file.open(path);
        if (!file) throw std::runtime_error(path + ": cannot open: " + std::strerror(errno));
        in = &file;
    }
    std::vector<std::string> paths;
    for (std::string line; std::getline(*in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) paths.push_back(line);
    }
    return paths;
}

int runBatch(const BatchJob &job) {
    struct stat st{};
    if (stat(job.outputDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        std::fprintf(stderr, "mivo4: %s: not a directory (-o takes an existing directory)\n", job.outputDir.c_str());
        return 2;
    }
    // This machine's share of the list.
    std::vector<std::string> mine;
    for (size_t i = static_cast<size_t>(job.shardIndex); i < job.inputs.size(); i += static_cast<size_t>(job.shardCount))
        mine.push_back(job.inputs[i]);
    // Two inputs that would write one output are a mistake in the list.
    std::map<std::string, std::string> outputs;
    for (const std::string &in : mine) {
        auto [it, fresh] = outputs.emplace(batchOutputName(job.outputDir, in), in);
        if (!fresh) {
            std::fprintf(stderr, "mivo4: %s and %s would both be written to %s\n", it->second.c_str(), in.c_str(),
                         it->first.c_str());
            return 2;
        }
    }
    const long cores = sysconf(_SC_NPROCESSORS_ONLN);
    const size_t workers = static_cast<size_t>(job.jobs > 0 ? job.jobs : (cores > 0 ? cores : 1));
    const auto t0 = std::chrono::steady_clock::now();
    std::map<pid_t, std::string> running;
    size_t next = 0, done = 0, failed = 0;
    drawCount(job.progress, 0, mine.size());
    while (next < mine.size() || !running.empty()) {
        while (next < mine.size() && running.size() < workers) {
            const std::string &in = mine[next++];
            pid_t pid = startExport(job, in, batchOutputName(job.outputDir, in));
            if (pid <= 0) {
                std::fprintf(stderr, "mivo4: %s: cannot start its export: %s\n", in.c_str(), std::strerror(errno));
                ++failed;
                ++done;
                continue;
            }
            running.emplace(pid, in);
        }
        if (running.empty()) continue;
        int status = 0;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (running.erase(pid) == 0) continue;
        ++done;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failed;
        drawCount(job.progress, done, mine.size());
    }
    if (job.progress) std::fputc('\n', stderr);
    if (job.quiet) return failed == 0 ? 0 : 1;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::fprintf(stderr, "mivo4: %zu pictures: %zu done, %zu failed, in %.2f s with %zu workers\n", mine.size(),
                 mine.size() - failed, failed, seconds, workers);
    return failed == 0 ? 0 : 1;
}

}  // namespace mivo4::host
