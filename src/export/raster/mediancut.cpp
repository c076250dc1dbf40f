// Colour reduction by median cut over a 15-bit histogram.
//
// The reduction is the module's own and is kept exactly as it has always
// behaved, including three habits that a textbook median cut would not have:
// the heap sort's build phase reaches one entry past the range it sorts (the
// first entry of the next box, or the spare zero entry at the end of the
// list), the median search walks backwards by subtracting the count of the
// position it arrives at, and the cut stops one box short of the requested
// number, so the table keeps the last split box's parent in the slot it freed
// (a request of 2 gives the picture's mean colour and black). Tables made by
// earlier versions depend on these, so they stay.
#include <mivo4/color.h>
#include <mivo4/memory.h>

#include <cstdio>
#include <utility>

#include <new>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

namespace {

constexpr uint32_t kHistogramEntries = 32768;

constexpr uint32_t red5(uint16_t c) { return (c >> 10) & 31u; }
constexpr uint32_t green5(uint16_t c) { return (c >> 5) & 31u; }
constexpr uint32_t blue5(uint16_t c) { return c & 31u; }

// The sort key: 0 red, 1 green, anything else blue.
uint32_t sortKey(const RGBC &e, int32_t color) {
    return color == 0 ? red5(e.Bit15RGB) : color == 1 ? green5(e.Bit15RGB) : blue5(e.Bit15RGB);
}

// The median key: 0 red, 2 blue, anything else green.
uint32_t medianKey(const RGBC &e, int32_t color) {
    return color == 0 ? red5(e.Bit15RGB) : color == 2 ? blue5(e.Bit15RGB) : green5(e.Bit15RGB);
}

// 5-bit channel to 8 bits: 0 stays 0, 31 becomes 255.
constexpr uint8_t expand5(uint32_t c) { return static_cast<uint8_t>(c == 0 ? 0 : c * 8 + 7); }

constexpr uint16_t bit15(const uint8_t *p) {
    return static_cast<uint16_t>((p[0] >> 3) << 10 | (p[1] >> 3) << 5 | (p[2] >> 3));
}

// A block named by the work record, allocated or re-allocated to size bytes
// and cleared. The record's field follows the block, so a failed
// re-allocation (which releases the old block) leaves no stale handle.
uint8_t *freshBlock(ZHANDLE &field, uint32_t size) {
    field = field == 0 ? GlobalAlloc(GHND, size) : GlobalReAlloc(field, size, GHND);
    auto *p = static_cast<uint8_t *>(GlobalLock(field));
    if (p != nullptr && size != 0) std::memset(p, 0, size);
    return p;
}

// Accumulates the 24-bit pixels into the 15-bit histogram. Counters stop at
// 65535; tclrs counts the counters that leave 0.
void accumulate(RowReader &rows, int16_t sizeX, int16_t sizeY, uint16_t *hist, uint16_t &tclrs) {
    for (int32_t y = 0; y < sizeY; ++y) {
        const uint8_t *p = rows.row(static_cast<uint64_t>(y));
        for (int32_t x = 0; x < sizeX; ++x, p += 3) {
            uint16_t &counter = hist[bit15(p)];
            if (counter == 0) ++tclrs;
            if (counter <= 65534) ++counter;
        }
    }
}

// The table of the picture's own colours, when it has fewer than requested.
void listDirect(const uint16_t *hist, VCD *table) {
    uint32_t k = 0;
    for (uint32_t c = 0; c < kHistogramEntries; ++c) {
        if (hist[c] == 0) continue;
        table[k++] = VCD{expand5(red5(static_cast<uint16_t>(c))), expand5(green5(static_cast<uint16_t>(c))),
                         expand5(blue5(static_cast<uint16_t>(c)))};
    }
}

int32_t directIndexed(RowReader *rows, int16_t sizeX, int16_t sizeY, uint16_t *ncols, int32_t flag,
                      VCD *cTable, ZHANDLE hColorLib) {
    if (hColorLib == 0 || ncols == nullptr) return -1;
    auto *lib = static_cast<ColorLibStruct *>(GlobalLock(hColorLib));
    if (lib == nullptr) return -1;
    struct Unlock {
        ZHANDLE h;
        ~Unlock() { GlobalUnlock(h); }
    } unlockRecord{hColorLib};

    if (lib->hClrList == 0) lib->hClrList = GlobalAlloc(GHND, kHistogramEntries * sizeof(uint16_t));
    auto *hist = static_cast<uint16_t *>(GlobalLock(lib->hClrList));
    if (hist == nullptr) return -1;

    const uint16_t requested = *ncols;
    clrRect *boxes = nullptr;
    int16_t *available = nullptr;
    if (flag & 1) {
        boxes = reinterpret_cast<clrRect *>(freshBlock(lib->hCRect, uint32_t{requested} * sizeof(clrRect)));
        if (boxes == nullptr) return -1;
        available = reinterpret_cast<int16_t *>(freshBlock(lib->hsList, uint32_t{requested} * sizeof(int16_t)));
        if (available == nullptr) return -1;
    }

    if (rows != nullptr) accumulate(*rows, sizeX, sizeY, hist, lib->tclrs);

    if (!(flag & 1)) {
        // The histogram accumulates for a later call that builds the table.
        *ncols = 0;
        return 0;
    }

    if (lib->tclrs < requested) {
        if (cTable != nullptr) listDirect(hist, cTable);
        *ncols = lib->tclrs;
    } else if (requested > 0) {
        // The list is one entry longer than the colours it holds: that zero
        // entry is what the heap sort's build phase reaches past the last box.
        const uint32_t tclrs = lib->tclrs;
        Owned hlist(GlobalAlloc(GHND, (tclrs + 1) * sizeof(RGBC)));
        auto *list = static_cast<RGBC *>(GlobalLock(hlist.get()));
        if (list == nullptr) return -1;
        for (uint32_t c = 0, k = 0; c < kHistogramEntries && k < tclrs; ++c)
            if (hist[c] != 0) list[k++] = RGBC{static_cast<uint16_t>(c), hist[c]};

        for (uint32_t s = 0; s < requested; ++s) available[s] = -1;
        lib->nCRect = 1;
        available[0] = 0;
        getCRectData(&boxes[0], list, 0, static_cast<int16_t>(tclrs - 1));
        while (int32_t{lib->nCRect} < int32_t{requested} - 1) {
            lib->firstCRect = GetMaxHistSum(boxes, available, requested);
            const clrRect &box = boxes[lib->firstCRect];
            lib->start = box.first;
            lib->stop = box.last;
            HeapSort(list + lib->start, box.widestColor, lib->stop - lib->start + 1);
            lib->median = find_median(list, &box);
            split(boxes, lib->firstCRect, lib->median, &lib->nCRect, available, list, requested);
        }
        if (cTable != nullptr)
            for (uint32_t s = 0; s < requested; ++s)
                cTable[s] = VCD{expand5(boxes[s].red), expand5(boxes[s].green), expand5(boxes[s].blue)};
        GlobalUnlock(hlist.get());
    }

    if (lib->hCRect != 0) GlobalUnlock(lib->hCRect);
    if (lib->hsList != 0) GlobalUnlock(lib->hsList);
    if (!(flag & 2)) {
        lib->tclrs = 0;
        std::memset(hist, 0, kHistogramEntries * sizeof(uint16_t));
    }
    GlobalUnlock(lib->hClrList);
    return 0;
}

}  // namespace

void clrswap(RGBC *ClrList1, RGBC *ClrList2) { std::swap(*ClrList1, *ClrList2); }

void getCRectData(clrRect *CRect, const RGBC *ClrList, int16_t first, int16_t last) {
    CRect->first = first;
    CRect->last = last;
    CRect->histSum = 0;
    CRect->redMin = CRect->greenMin = CRect->blueMin = 255;
    CRect->redMax = CRect->greenMax = CRect->blueMax = 0;
    // 32-bit running sums, as the box colour has always been computed.
    uint32_t rsum = 0, gsum = 0, bsum = 0;
    for (int32_t i = first; i <= last; ++i) {
        const RGBC &e = ClrList[i];
        uint8_t r = static_cast<uint8_t>(red5(e.Bit15RGB)), g = static_cast<uint8_t>(green5(e.Bit15RGB)),
                b = static_cast<uint8_t>(blue5(e.Bit15RGB));
        rsum += uint32_t{e.count} * r;
        gsum += uint32_t{e.count} * g;
        bsum += uint32_t{e.count} * b;
        CRect->redMin = std::min(CRect->redMin, r);
        CRect->redMax = std::max(CRect->redMax, r);
        CRect->greenMin = std::min(CRect->greenMin, g);
        CRect->greenMax = std::max(CRect->greenMax, g);
        CRect->blueMin = std::min(CRect->blueMin, b);
        CRect->blueMax = std::max(CRect->blueMax, b);
        CRect->histSum += e.count;
    }
    // Ties prefer red, then green.
    int32_t widest = 0;
    int32_t width = int32_t{CRect->redMax} - CRect->redMin;
    if (int32_t{CRect->greenMax} - CRect->greenMin > width) {
        widest = 1;
        width = int32_t{CRect->greenMax} - CRect->greenMin;
    }
    if (int32_t{CRect->blueMax} - CRect->blueMin > width) widest = 2;
    CRect->widestColor = static_cast<uint8_t>(widest);
    // A box of nothing but the list's spare zero entry holds no pixels: its
    // colour is black rather than a division by zero.
    const uint32_t n = CRect->histSum;
    CRect->red = static_cast<uint8_t>(n != 0 ? rsum / n : 0);
    CRect->green = static_cast<uint8_t>(n != 0 ? gsum / n : 0);
    CRect->blue = static_cast<uint8_t>(n != 0 ? bsum / n : 0);
}

void AdjustHeap(RGBC *ClrList, int32_t color, int32_t m, int32_t n) {
    int32_t root = m;
    for (int32_t child = 2 * root + 1; child <= n; child = 2 * root + 1) {
        int32_t larger = child;
        if (child != n && !(sortKey(ClrList[child], color) > sortKey(ClrList[child + 1], color)))
            larger = child + 1;
        if (!(sortKey(ClrList[root], color) < sortKey(ClrList[larger], color))) break;
        clrswap(&ClrList[root], &ClrList[larger]);
        root = larger;
    }
}

void HeapSort(RGBC *ClrList, int32_t color, int32_t n) {
    // The build phase hands AdjustHeap the count where the extraction hands
    // it the last position: the entry just after the range takes part.
    for (int32_t i = (n - 2) / 2; i >= 0; --i) AdjustHeap(ClrList, color, i, n);
    for (int32_t i = n - 1; i >= 1; --i) {
        clrswap(&ClrList[0], &ClrList[i]);
        AdjustHeap(ClrList, color, 0, i - 1);
    }
}

int16_t find_median(const RGBC *ClrList, const clrRect *CRect) {
    const int32_t first = CRect->first, last = CRect->last;
    if (last - first <= 1) return CRect->first;
    const int32_t color = CRect->widestColor;
    auto key = [&](int32_t i) { return medianKey(ClrList[i], color); };

    int64_t sum = 0;
    for (int32_t i = first; i <= last; ++i) sum += ClrList[i].count;
    const int64_t half = sum / 2;
    int32_t m = first;
    int64_t running = ClrList[first].count;
    while (running < half && m < last) running += ClrList[++m].count;

    int32_t fm = m;
    int64_t fs = running;
    while (fm < last && key(fm) == key(fm + 1)) fs += ClrList[++fm].count;
    // Walking back, the count taken off is that of the position arrived at.
    int32_t bm = m;
    int64_t bs = running;
    while (bm > first && key(bm) == key(bm + 1)) bs -= ClrList[--bm].count;

    return static_cast<int16_t>(half - bs > fs - half ? fm : bm);
}

namespace {

int32_t firstFree(const int16_t *available, int32_t from, int32_t slots) {
    for (int32_t s = from; s < slots; ++s)
        if (available[s] == -1) return s;
    return slots - 1;
}

}  // namespace

void split(clrRect *CRect, int16_t offset, int16_t median, uint16_t *nCRect, int16_t *available,
           const RGBC *ClrList, int16_t SplitNum) {
    // SplitNum is a count of slots: read it unsigned so that 32768 slots stay 32768.
    const int32_t slots = static_cast<uint16_t>(SplitNum);
    const int16_t first = CRect[offset].first, last = CRect[offset].last;

    const int32_t i = firstFree(available, 0, slots);
    if (first == median) {
        getCRectData(&CRect[i], ClrList, first, median);
        available[i] = -2;
    } else if (last == median) {
        getCRectData(&CRect[i], ClrList, first, static_cast<int16_t>(median - 1));
        available[i] = static_cast<int16_t>(i);
    } else {
        getCRectData(&CRect[i], ClrList, first, median);
        available[i] = static_cast<int16_t>(i);
    }

    const int32_t j = firstFree(available, i + 1, slots);
    if (last == median) {
        getCRectData(&CRect[j], ClrList, median, last);
        available[j] = -2;
    } else {
        getCRectData(&CRect[j], ClrList, static_cast<int16_t>(median + 1), last);
        available[j] = last == median + 1 ? int16_t{-2} : static_cast<int16_t>(j);
    }

    // The parent's slot is free again, but its box stays in it.
    available[offset] = -1;
    ++*nCRect;
}

int16_t GetMaxHistSum(const clrRect *CRect, const int16_t *available, int32_t ncols) {
    uint32_t most = 0;
    int16_t chosen = 0;
    for (int32_t s = 0; s < ncols; ++s) {
        if (available[s] >= 0 && CRect[s].histSum > most) {
            most = CRect[s].histSum;
            chosen = static_cast<int16_t>(s);
        }
    }
    return chosen;
}

int32_t direct_indexed(const uint8_t *RGBData, int16_t SizeX, int16_t SizeY, uint16_t *ncols,
                       int32_t flag, VCD *cTable, ZHANDLE hColorLib) try {
    // The caller vouches for the size of the pixels it hands over.
    const uint64_t stride = bytesPerLine64(SizeX > 0 ? static_cast<uint32_t>(SizeX) : 0, 24);
    const uint64_t rows = SizeY > 0 ? static_cast<uint64_t>(SizeY) : 0;
    RowReader reader(RGBData, static_cast<size_t>(stride * rows), stride);
    return directIndexed(RGBData != nullptr ? &reader : nullptr, SizeX, SizeY, ncols, flag, cTable,
                         hColorLib);
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return -1;
}

ZHANDLE rlReduceColorTable(ZHANDLE Hrgb, int16_t w, int16_t h, uint16_t *numcolors) try {
    if (numcolors == nullptr) return 0;
    const uint16_t requested = *numcolors;
    Locked bitmap(Hrgb);
    Owned table(rlGetMemory(3, requested));
    if (table.get() == 0) return 0;
    Locked entries(table.get());

    uint16_t size = requested;
    {
        struct Record {
            ZHANDLE h = InitColorLib();
            ~Record() { TermColorLib(h); }
        } lib;
        // Pixels past the end of the bitmap's block read as black.
        RowReader reader(bitmap.data(), bitmap.size(), bytesPerLine64(w > 0 ? static_cast<uint32_t>(w) : 0, 24));
        // A failure shows as a zero-filled table of the requested size.
        directIndexed(bitmap ? &reader : nullptr, w, h, &size, 3, entries.as<VCD>(), lib.h);
    }

    if (_debug_color_res != 0) {
        std::fprintf(stderr, "Color Reduction in Process...24bit -> %d colors\n", requested);
        std::fprintf(stderr, "  -new color table size: %d\n", size);
        const VCD *t = entries.as<VCD>();
        for (int k = 0; k < size && t != nullptr; ++k)
            std::fprintf(stderr, "   color %d: [%d, %d, %d]\n", k, t[k].red, t[k].green, t[k].blue);
    }
    *numcolors = size;
    return table.release();
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}
