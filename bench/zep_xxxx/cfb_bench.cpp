// Reading a 50 MB stream out of a compound document, side by side in one
// run: through the module (docOpenStream + zepRead) with the stream stored
// contiguously and fragmented (its sectors alternating with another
// stream's), through olefile (python3, timed inside python, open included),
// and a plain zepRead of an ordinary 50 MB file, the limit. Each reads in
// 64 KiB pieces; the files are read once first so that all come from the
// page cache. The summary gives each reader's throughput as a ratio of the
// plain read's, by CPU time. Run pinned to one core: taskset -c 0 cfb_bench.
#include <benchmark/benchmark.h>
#include <mivo4/docfile.h>
#include <mivo4/stream.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "zep_xxxx/cfbwriter.h"

namespace {

constexpr size_t kSize = 50u * 1000 * 1000;
constexpr int32_t kChunk = 1 << 16;

std::string gDir;
std::map<std::string, double> gSeconds;  // mean seconds per read, by benchmark

cfbtest::Bytes Payload(uint32_t seed) {
    cfbtest::Bytes b(kSize);
    uint32_t x = seed;
    for (auto &v : b) {
        x = x * 1664525u + 1013904223u;
        v = static_cast<uint8_t>(x >> 24);
    }
    return b;
}

void WriteFile(const std::string &path, const cfbtest::Bytes &bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void Prepare() {
    gDir = (std::filesystem::temp_directory_path() / "mivo4_cfb_bench").string();
    std::filesystem::create_directories(gDir);
    if (!std::filesystem::exists(gDir + "/fragmented.ole")) {
        cfbtest::Bytes data = Payload(1);
        WriteFile(gDir + "/plain.bin", data);
        WriteFile(gDir + "/contiguous.ole", cfbtest::BuildDoc({{"Data", data}}, false).bytes);
        WriteFile(gDir + "/fragmented.ole", cfbtest::BuildDoc({{"Data", data}, {"Other", Payload(2)}}, true).bytes);
    }
}

size_t Drain(HZEPIO h) {
    static uint8_t buffer[kChunk];
    size_t total = 0;
    for (int32_t got; (got = zepRead(h, buffer, kChunk)) > 0;) total += static_cast<size_t>(got);
    return total;
}

void BM_PlainFile(benchmark::State &state) {
    std::string path = gDir + "/plain.bin";
    for (auto _ : state) {
        HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
        if (Drain(h) != kSize) state.SkipWithError("short read");
        zepClose(h);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void ModuleRead(benchmark::State &state, const char *file) {
    std::string path = gDir + "/" + file;
    for (auto _ : state) {
        HZEPIO h = docOpenStream(path.c_str(), "Data", nullptr);
        if (h == 0 || Drain(h) != kSize) state.SkipWithError("cannot read the stream");
        zepClose(h);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_ModuleContiguous(benchmark::State &state) { ModuleRead(state, "contiguous.ole"); }
void BM_ModuleFragmented(benchmark::State &state) { ModuleRead(state, "fragmented.ole"); }

// olefile reads in a python process; the time measured there (open and
// read) is this benchmark's time.
void OlefileRead(benchmark::State &state, const char *file) {
    std::string path = gDir + "/" + file;
    std::string out = gDir + "/olefile_time.txt";
    std::string command =
        "/usr/bin/python3 -c 'import olefile, sys, time\n"
        "t = time.process_time()\n"
        "s = olefile.OleFileIO(sys.argv[1]).openstream(\"Data\")\n"
        "n = 0\n"
        "while True:\n"
        "    b = s.read(65536)\n"
        "    if not b: break\n"
        "    n += len(b)\n"
        "t = time.process_time() - t\n"
        "assert n == 50000000\n"
        "print(t)' " + path + " > " + out;
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("olefile failed (python3-olefile is installed by scripts/setup.sh)");
            break;
        }
        double seconds = 0;
        std::ifstream(out) >> seconds;
        state.SetIterationTime(seconds);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_OlefileContiguous(benchmark::State &state) { OlefileRead(state, "contiguous.ole"); }
void BM_OlefileFragmented(benchmark::State &state) { OlefileRead(state, "fragmented.ole"); }

BENCHMARK(BM_PlainFile)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ModuleContiguous)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ModuleFragmented)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_OlefileContiguous)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);
BENCHMARK(BM_OlefileFragmented)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);

// Keeps each benchmark's CPU time per read for the summary: the build
// machine is shared, so wall time says more about the neighbours than about
// the readers. olefile's time is the python process's CPU time, measured
// inside python (the manual time).
class Summary : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs)
            gSeconds[r.benchmark_name()] =
                (r.benchmark_name().find("Olefile") != std::string::npos ? r.GetAdjustedRealTime()
                                                                          : r.GetAdjustedCPUTime()) / 1e3;
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char **argv) {
    Prepare();
    benchmark::Initialize(&argc, argv);
    Summary reporter;
    // Warm the page cache.
    for (const char *f : {"plain.bin", "contiguous.ole", "fragmented.ole"}) {
        HZEPIO h = zepOpen((gDir + "/" + f).c_str(), nullptr, ZEP_OPEN_READ);
        Drain(h);
        zepClose(h);
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto find = [](const char *prefix) {
        for (const auto &[name, seconds] : gSeconds)
            if (name.rfind(prefix, 0) == 0 && seconds > 0) return seconds;
        return 0.0;
    };
    double plain = find("BM_PlainFile");
    std::printf("\nthroughput as a share of the plain zepRead of a 50 MB file (higher is faster):\n");
    for (const char *name : {"BM_ModuleContiguous", "BM_ModuleFragmented", "BM_OlefileContiguous", "BM_OlefileFragmented"}) {
        double s = find(name);
        if (plain > 0 && s > 0) std::printf("  %-22s %6.2f   (%.0f MB/s)\n", name + 3, plain / s, 50.0 / s);
    }
    double mc = find("BM_ModuleContiguous"), mf = find("BM_ModuleFragmented");
    double oc = find("BM_OlefileContiguous"), of = find("BM_OlefileFragmented");
    if (mc > 0 && oc > 0) std::printf("module against olefile, contiguous: %.2f x as fast\n", oc / mc);
    if (mf > 0 && of > 0) std::printf("module against olefile, fragmented: %.2f x as fast\n", of / mf);
    benchmark::Shutdown();
    return 0;
}
