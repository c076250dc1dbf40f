// The colour library on a 24-bit A4 page at 300 dpi (2480 x 3508): dithering
// to one bit, median cut to 256 colours, shrinking and stretching by
// non-integer ratios. Each fast path runs beside the plain per-pixel path
// (one rlGetPixel/rlSetPixel call a pixel, as the routines are defined) so
// that the report shows their ratio on this machine.
#include <benchmark/benchmark.h>
#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr uint32_t kW = 2480, kH = 3508;

// A photograph-like page: smooth gradients, a few flat areas and noise.
const std::vector<uint8_t> &page() {
    static const std::vector<uint8_t> bytes = [] {
        const uint32_t stride = rlBytesPerLine(kW, 24);
        std::vector<uint8_t> b(size_t{stride} * kH, 0);
        std::mt19937 rng(1);
        for (uint32_t y = 0; y < kH; ++y)
            for (uint32_t x = 0; x < kW; ++x) {
                uint8_t *p = b.data() + size_t{y} * stride + 3 * x;
                const double u = double(x) / kW, v = double(y) / kH;
                int n = static_cast<int>(rng() % 9) - 4;
                if ((x / 310 + y / 440) % 5 == 0) {
                    p[0] = p[1] = p[2] = 240;  // paper
                    continue;
                }
                p[0] = static_cast<uint8_t>(std::clamp(int(255 * u) + n, 0, 255));
                p[1] = static_cast<uint8_t>(std::clamp(int(127 + 120 * std::sin(6 * v + 3 * u)) + n, 0, 255));
                p[2] = static_cast<uint8_t>(std::clamp(int(255 * (1 - v)) + n, 0, 255));
            }
        return b;
    }();
    return bytes;
}

ZHANDLE pageHandle() {
    const auto &b = page();
    ZHANDLE h = GlobalAlloc(GHND, static_cast<uint32_t>(b.size()));
    std::memcpy(GlobalLock(h), b.data(), b.size());
    return h;
}

// ---------------------------------------------------------------- plain paths

std::vector<uint8_t> plainConvert(const uint8_t *src, uint32_t w, uint32_t h, int sd, int dd, const VCD *table, uint16_t n) {
    std::vector<uint8_t> out(size_t{rlBytesPerLine(w, static_cast<int16_t>(dd))} * h, 0);
    const uint32_t sb = rlBytesPerLine(w, static_cast<int16_t>(sd)), db = rlBytesPerLine(w, static_cast<int16_t>(dd));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            rlSetPixel(out.data(), db, x, y, static_cast<int16_t>(dd), rlGetPixel(src, sb, x, y, static_cast<int16_t>(sd)),
                       nullptr, table, n);
    return out;
}

void plainDitherLine(uint8_t *l1, uint8_t *l2, const VCD *t, int n, uint32_t w) {
    int index = 0;
    for (uint32_t j = 0; j + 1 < w; ++j) {
        uint8_t *p = l1 + 3 * j;
        index = rlNearestRGBIndex(p[0], p[1], p[2], t, n);
        const uint8_t c[3] = {t[index].red, t[index].green, t[index].blue};
        for (int k = 0; k < 3; ++k) {
            int e = p[k] - c[k], q8 = e / 8, q7 = 7 * e / 16;
            p[k] = c[k];
            l1[3 * (j + 1) + k] = Range_Chk[l1[3 * (j + 1) + k] + q7];
            if (l2 != nullptr) {
                l2[3 * j + k] = Range_Chk[l2[3 * j + k] + q7 - q8];
                if (j > 0) l2[3 * (j - 1) + k] = Range_Chk[l2[3 * (j - 1) + k] + q7 - 2 * q8];
                l2[3 * (j + 1) + k] = Range_Chk[l2[3 * (j + 1) + k] + q7 - 3 * q8];
            }
        }
    }
    uint8_t *last = l1 + 3 * (w - 1);
    last[0] = t[index].red;
    last[1] = t[index].green;
    last[2] = t[index].blue;
}

void plainRow(const uint8_t *s, uint8_t *d, uint32_t sx, uint32_t dx) {
    if (dx > sx) {
        double r = double(dx) / sx;
        int pos = static_cast<int>(dx) - 1;
        int16_t prev = 0;
        for (int x = static_cast<int>(sx) - 1; x >= 0; --x) {
            int16_t f = static_cast<int16_t>((sx - x) * r);
            uint32_t v = rlGetPixel(s, 0, static_cast<uint32_t>(x), 0, 24);
            for (int k = 0; k < f - prev; ++k) rlSetPixel(d, 0, static_cast<uint32_t>(pos--), 0, 24, v, nullptr, nullptr, 0);
            prev = f;
        }
    } else {
        double r = double(sx) / dx;
        uint32_t prev = 0, xx = 0;
        for (uint32_t j = 1; j <= dx; ++j) {
            uint32_t f = static_cast<uint32_t>(j * r);
            uint32_t step = f - prev;
            prev = f;
            if (j < dx) {
                rlSetPixel(d, 0, j - 1, 0, 24, rlGetPixel(s, 0, xx, 0, 24), nullptr, nullptr, 0);
                xx += step;
            } else {
                rlSetPixel(d, 0, dx - 1, 0, 24, rlGetPixel(s, 0, sx - 1, 0, 24), nullptr, nullptr, 0);
            }
        }
    }
}

std::vector<uint8_t> plainScale(const uint8_t *src, uint32_t sx, uint32_t sy, uint32_t dx, uint32_t dy) {
    const uint32_t sb = rlBytesPerLine(sx, 24), db = rlBytesPerLine(dx, 24);
    std::vector<uint8_t> out(size_t{db} * dy, 0);
    if (dy <= sy) {
        double r = double(sy) / dy;
        int16_t prev = 0;
        long ps = 0;
        for (uint32_t j = 1; j <= dy; ++j) {
            int16_t f = static_cast<int16_t>(j * r);
            if (j == dy) plainRow(src + size_t{sy - 1} * sb, out.data() + size_t{j - 1} * db, sx, dx);
            plainRow(src + size_t(ps) * sb, out.data() + size_t{j - 1} * db, sx, dx);
            ps += f - prev;
            prev = f;
        }
    } else {
        double r = double(dy) / sy;
        long row = long(dy) - 1, prev = 0;
        for (long j = long(sy) - 1; j >= 0; --j) {
            long f = static_cast<long>((sy - j) * r), n = f - prev;
            prev = f;
            if (n <= 0) continue;
            plainRow(src + size_t(j) * sb, out.data() + size_t(row) * db, sx, dx);
            for (--row; n > 1; --n, --row) std::memcpy(out.data() + size_t(row) * db, out.data() + size_t(row + 1) * db, db);
        }
    }
    return out;
}

// ---------------------------------------------------------------- benchmarks

void BM_DitherToOneBit(benchmark::State &state) {
    lpRaster = nullptr;
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        ZHANDLE table = 0;
        ZHANDLE out = rlDitherBitmap(h, kW, kH, 24, 1, 0, &table);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
        GlobalFree(table);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

void BM_DitherToOneBitPlain(benchmark::State &state) {
    lpRaster = nullptr;
    const uint32_t stride = rlBytesPerLine(kW, 24);
    for (auto _ : state) {
        std::vector<uint8_t> copy = plainConvert(page().data(), kW, kH, 24, 24, nullptr, 0);
        for (uint32_t i = 0; i < kH; ++i) {
            uint8_t *l1 = copy.data() + size_t{i} * stride;
            uint8_t *l2 = i + 1 < kH ? l1 + stride : nullptr;
            if (i == 0) rev_rgb(kW, l1, 3);
            if (l2 != nullptr) rev_rgb(kW, l2, 3);
            plainDitherLine(l1, l2, MonoTable, 8, kW);
        }
        std::vector<uint8_t> out = plainConvert(copy.data(), kW, kH, 24, 1, MonoTable, 8);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

void BM_MedianCutTo256(benchmark::State &state) {
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        uint16_t n = 256;
        // The page's width and height pass as 16-bit values, as they do everywhere.
        ZHANDLE t = rlReduceColorTable(h, static_cast<int16_t>(kW), static_cast<int16_t>(kH), &n);
        benchmark::DoNotOptimize(t);
        GlobalFree(t);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

void BM_ReduceAndConvertTo8Bit(benchmark::State &state) {
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        ZHANDLE table = 0;
        ZHANDLE out = rlChangeColorResolution(h, kW, kH, 24, 8, &table);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
        GlobalFree(table);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

void BM_ReduceAndConvertTo8BitPlain(benchmark::State &state) {
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        uint16_t n = 256;
        ZHANDLE t = rlReduceColorTable(h, static_cast<int16_t>(kW), static_cast<int16_t>(kH), &n);
        std::vector<uint8_t> out = plainConvert(page().data(), kW, kH, 24, 8, static_cast<VCD *>(GlobalLock(t)), n);
        benchmark::DoNotOptimize(out.data());
        GlobalFree(t);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

// Ratios that are not whole numbers: 0.61 and 1.37 in each direction.
constexpr uint32_t kShrunkW = 1513, kShrunkH = 2140, kGrownW = 3398, kGrownH = 4806;

void BM_Shrink(benchmark::State &state) {
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        ZHANDLE out = rlShrinkBitmap(h, 24, kW, kH, kShrunkW, kShrunkH);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kShrunkW} * kShrunkH);
}

void BM_ShrinkPlain(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<uint8_t> out = plainScale(page().data(), kW, kH, kShrunkW, kShrunkH);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kShrunkW} * kShrunkH);
}

void BM_Stretch(benchmark::State &state) {
    ZHANDLE h = pageHandle();
    for (auto _ : state) {
        ZHANDLE out = rlStretchBitmap(h, 24, kW, kH, kGrownW, kGrownH);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
    }
    GlobalFree(h);
    state.SetItemsProcessed(state.iterations() * int64_t{kGrownW} * kGrownH);
}

void BM_StretchPlain(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<uint8_t> out = plainScale(page().data(), kW, kH, kGrownW, kGrownH);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kGrownW} * kGrownH);
}

BENCHMARK(BM_DitherToOneBit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DitherToOneBitPlain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MedianCutTo256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReduceAndConvertTo8Bit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReduceAndConvertTo8BitPlain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Shrink)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShrinkPlain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Stretch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StretchPlain)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
