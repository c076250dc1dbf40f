// The Group 4 coder against libtiff's Group 4 encoder on two A4 pages at
// 300 dpi: a text-like page and a Floyd-Steinberg-dithered photo page, both
// generated here. Each side codes the page from its one-bit rows to its bytes
// in memory: ours through Encode into a memory stream, libtiff through a
// one-strip TIFF written to memory. Before timing, the outputs are checked to
// be identical (ours equals libtiff's strip without its EOFB).
//
// Besides the plain timings, BM_Ratio codes the page alternately with both in
// each iteration and reports both throughputs (megabytes of one-bit rows per
// second of this thread's CPU time) and their ratio.
#include <benchmark/benchmark.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "export/mivo4/gp4/g4pictures.h"

namespace {

using g4test::Picture;

constexpr uint32_t kA4Width = 2480;
constexpr uint32_t kA4Height = 3508;

struct Page {
    Picture picture;
    std::vector<uint8_t> inverted;  // libtiff's data
};

const Page &TextPage() {
    static const Page p = [] {
        Page page{g4test::TextPage(kA4Width, kA4Height, 300, 4), {}};
        page.inverted = g4test::ForLibtiff(page.picture);
        return page;
    }();
    return p;
}

const Page &PhotoPage() {
    static const Page p = [] {
        Page page{g4test::DitheredPhoto(kA4Width, kA4Height, 7), {}};
        page.inverted = g4test::ForLibtiff(page.picture);
        return page;
    }();
    return p;
}

// Codes a picture with Encode into a memory stream; answers the bytes.
class OurCoder {
public:
    OurCoder() { lpRaster = &setup_; }
    ~OurCoder() { GlobalFree(setup_.gp4_refLine); lpRaster = nullptr; }

    size_t Code(const Picture &p, std::vector<uint8_t> *copy = nullptr) {
        GlobalFree(setup_.gp4_refLine);
        setup_.gp4_refLine = 0;
        setup_.gp4_stateInfoSaved = 0;
        setup_.gp4_BitOffset = 0;
        ZHANDLE block = GlobalAlloc(GHND, 0);
        uint8_t *data = static_cast<uint8_t *>(GlobalLock(block));
        IOINFO info{};
        info.lplpBuffer = &data;
        info.dwExpSize = 1u << 20;
        HZEPIO h = zepOpen(nullptr, &info, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        setup_.FileHandle = h;
        if (Encode(h, p.bits.data(), static_cast<uint32_t>(p.bits.size()), p.width, p.height) != 0) {
            std::fprintf(stderr, "Encode failed\n");
            std::abort();
        }
        size_t n = static_cast<size_t>(zepSeek(h, 0, 1));
        if (copy != nullptr) copy->assign(data, data + n);
        zepClose(h);
        GlobalFree(GlobalHandle(data));
        return n;
    }

private:
    Gp4_SetupData setup_{};
};

size_t LibtiffCode(const Page &page, g4test::MemFile &file) {
    if (!g4test::LibtiffWriteG4(file, page.inverted, page.picture.width, page.picture.height)) {
        std::fprintf(stderr, "libtiff failed\n");
        std::abort();
    }
    return file.data.size();
}

void CheckIdentical(const Page &page, const char *name) {
    OurCoder ours;
    std::vector<uint8_t> bytes;
    ours.Code(page.picture, &bytes);
    g4test::Expected e = g4test::WithoutEofb(g4test::LibtiffStrip(page.picture));
    if (!e.eofbFound || e.bytes != bytes) {
        std::fprintf(stderr, "%s: our output differs from libtiff's\n", name);
        std::abort();
    }
}

// CPU time of this thread: other processes on the machine do not count.
double ThreadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

double MegaBytes(const Page &page) { return static_cast<double>(page.picture.bits.size()) / 1e6; }

void BM_Ours(benchmark::State &state, const Page &(*page)()) {
    const Page &p = page();
    OurCoder ours;
    size_t out = 0;
    for (auto _ : state) benchmark::DoNotOptimize(out = ours.Code(p.picture));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * p.picture.bits.size()));
    state.counters["coded_bytes"] = static_cast<double>(out);
}

// Group4 alone, with an output buffer large enough from the start: the coding
// itself, without the output buffer's growth in 5000-byte steps (a dithered
// page codes to nearly three times its one-bit size) and without the stream.
void BM_OursCoderOnly(benchmark::State &state, const Page &(*page)()) {
    const Page &p = page();
    Gp4_SetupData setup{};
    lpRaster = &setup;
    const uint32_t size = static_cast<uint32_t>(p.picture.bits.size()) * 4 + 65536;
    uint32_t out = 0;
    for (auto _ : state) {
        state.PauseTiming();
        GlobalFree(setup.gp4_refLine);
        setup.gp4_refLine = 0;
        setup.gp4_stateInfoSaved = 0;
        setup.gp4_BitOffset = 0;
        ZHANDLE h = GlobalAlloc(GHND, size);
        std::memset(GlobalLock(h), 0, size);  // touch the pages outside the timing
        state.ResumeTiming();
        benchmark::DoNotOptimize(out = Group4(p.picture.bits.data(), &h, p.picture.width,
                                              p.picture.height, p.picture.stride));
        state.PauseTiming();
        GlobalFree(h);
        state.ResumeTiming();
    }
    GlobalFree(setup.gp4_refLine);
    lpRaster = nullptr;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * p.picture.bits.size()));
    state.counters["coded_bytes"] = static_cast<double>(out);
}

void BM_Libtiff(benchmark::State &state, const Page &(*page)()) {
    const Page &p = page();
    g4test::QuietLibtiff();
    g4test::MemFile file;
    file.data.reserve(8u << 20);
    size_t out = 0;
    for (auto _ : state) benchmark::DoNotOptimize(out = LibtiffCode(p, file));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * p.picture.bits.size()));
    state.counters["tiff_bytes"] = static_cast<double>(out);
}

void BM_Ratio(benchmark::State &state, const Page &(*page)()) {
    const Page &p = page();
    g4test::QuietLibtiff();
    OurCoder ours;
    g4test::MemFile file;
    file.data.reserve(8u << 20);
    double oursSeconds = 0, tiffSeconds = 0;
    for (auto _ : state) {
        double t0 = ThreadSeconds();
        benchmark::DoNotOptimize(ours.Code(p.picture));
        double t1 = ThreadSeconds();
        benchmark::DoNotOptimize(LibtiffCode(p, file));
        double t2 = ThreadSeconds();
        oursSeconds += t1 - t0;
        tiffSeconds += t2 - t1;
    }
    double mb = MegaBytes(p) * static_cast<double>(state.iterations());
    state.counters["ours_MB/s"] = mb / oursSeconds;
    state.counters["libtiff_MB/s"] = mb / tiffSeconds;
    state.counters["ratio"] = tiffSeconds / oursSeconds;
}

BENCHMARK_CAPTURE(BM_Ours, text_a4_300dpi, &TextPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OursCoderOnly, text_a4_300dpi, &TextPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Libtiff, text_a4_300dpi, &TextPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Ratio, text_a4_300dpi, &TextPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Ours, dithered_photo_a4_300dpi, &PhotoPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OursCoderOnly, dithered_photo_a4_300dpi, &PhotoPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Libtiff, dithered_photo_a4_300dpi, &PhotoPage)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Ratio, dithered_photo_a4_300dpi, &PhotoPage)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    CheckIdentical(TextPage(), "text page");
    CheckIdentical(PhotoPage(), "dithered photo page");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
