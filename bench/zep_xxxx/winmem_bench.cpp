// Growing a block in small steps, as the Group 4 coder grows its output
// (5000 bytes at a time, writing each new part): through GlobalReAlloc, and
// beside it the plain way a re-allocation that always moves would go
// (allocate, copy the common length, free). Reported per byte of the final
// block (bytes_per_second, CPU time), for final sizes from 1 MB to 64 MB (the
// copying only to 4 MB: it is quadratic); flat when each step costs the same
// whatever the size.
#include <benchmark/benchmark.h>
#include <mivo4/memory.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kStep = 5000;

void BM_GrowByGlobalReAlloc(benchmark::State &state) {
    const auto target = static_cast<uint32_t>(state.range(0)) << 20;
    for (auto _ : state) {
        uint32_t size = kStep;
        ZHANDLE h = GlobalAlloc(GHND, size);
        std::memset(GlobalLock(h), 1, size);
        while (size < target) {
            h = GlobalReAlloc(h, size + kStep, GHND);
            auto *p = static_cast<uint8_t *>(GlobalLock(h));
            std::memset(p + size, 1, kStep);
            size += kStep;
        }
        benchmark::DoNotOptimize(GlobalLock(h));
        GlobalFree(h);
    }
    state.SetBytesProcessed(static_cast<int64_t>(target) * state.iterations());
}

void BM_GrowByCopying(benchmark::State &state) {
    const auto target = static_cast<uint32_t>(state.range(0)) << 20;
    for (auto _ : state) {
        uint32_t size = kStep;
        auto *p = static_cast<uint8_t *>(std::calloc(size, 1));
        std::memset(p, 1, size);
        while (size < target) {
            auto *q = static_cast<uint8_t *>(std::calloc(size + kStep, 1));
            std::memcpy(q, p, size);
            std::free(p);
            p = q;
            std::memset(p + size, 1, kStep);
            size += kStep;
        }
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
    state.SetBytesProcessed(static_cast<int64_t>(target) * state.iterations());
}

}  // namespace

BENCHMARK(BM_GrowByGlobalReAlloc)->Arg(1)->Arg(4)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GrowByCopying)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
