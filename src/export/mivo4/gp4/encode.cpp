// The Group 4 (T.6) coder of the GP4 writer.
//
// One call codes one band of rows. The bit position and the last row of each
// band are kept in the current setup record, and the partly filled last byte
// is read back from the output stream, so that all bands of a picture form one
// unbroken bit stream, exactly as if the whole picture had been coded at once.
// Rows follow each other bit by bit: no EOL, no byte alignment, and no EOFB at
// the end; the last byte is filled with zero bits.
//
// Group4 is the fast coder: changing elements are found 64 pixels at a time
// (g4find.h), codes go through a 64-bit accumulator and whole bytes are stored
// four at a time, and a row equal to its reference row (frequent in text) is
// coded as the run of V0 codes it must give without searching. AddRun, AddCode
// and SetRefPositions are the one-code-at-a-time routines of the interface; they
// produce the same bytes and are kept for callers that code by hand.
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "export/mivo4/expstat.h"
#include "zep_xxxx/meminternal.h"
#include "export/mivo4/gp4/g4find.h"
#include "export/mivo4/gp4/rowfeed.h"

namespace mivo4::g4 {
bool gForceRowSearch = false;
bool gForceStepLoop = false;
}

namespace {

using mivo4::g4::gForceRowSearch;
using mivo4::g4::gForceStepLoop;
using mivo4::g4::ListSearch;
using mivo4::g4::RowFeed;
using mivo4::g4::RowSearch;
using mivo4::g4::NextChange;
using mivo4::g4::RowBytes;
using mivo4::g4::SameRow;

// Room checked before every coding step: a step whose runs are at most 2560
// pixels long emits at most 53 bits (3 for the mode, and per run at most one
// make-up code of 13 and one terminating code of 12 bits). Starting in a partly
// used byte, it ends at most 7 bytes further on, and BitSink's four-byte
// stores then reach 3 bytes beyond: 10 bytes from the current one, which the
// margin leaves room for.
constexpr uint32_t kStepMargin = 10;
// Longer runs add one 12-bit make-up code of 2560 per 2560 pixels (a picture
// 65535 pixels wide can need 26 of them in one step); such a step is measured
// before it is coded and the buffer grown until it fits.
constexpr uint32_t kLongStep = 2560;
constexpr uint32_t kGrowth = 5000;
constexpr uint32_t kMakeup2560Bits = 12;

// Pending output bits. Codes are or-ed into a 64-bit accumulator, top bit
// first. Every Put stores the accumulator's top four bytes at the first byte
// not yet complete, and moves on past them only once all four are complete, so
// incomplete bytes are stored again, completed, by later Puts; no branch
// decides when to store. A store reaches at most three bytes past the current
// byte: the room checks of the coding steps allow for that.
struct BitSink {
    uint8_t *buf = nullptr;
    uint32_t stored = 0;  // whole bytes already in buf
    uint64_t acc = 0;     // pending bits, left-aligned
    uint32_t bits = 0;    // number of pending bits, below 32 between calls

    // `code` left-aligned in 32 bits, `n` <= 32 bits long.
    void Put(uint32_t code, uint32_t n) {
        acc |= static_cast<uint64_t>(code) << (32 - bits);
        bits += n;
        uint32_t word = __builtin_bswap32(static_cast<uint32_t>(acc >> 32));
        std::memcpy(buf + stored, &word, 4);
        uint32_t full = bits >> 5;  // 1 once the four bytes are complete
        stored += full << 2;
        acc <<= full << 5;
        bits -= full << 5;
    }
    void Ones(uint32_t count) {
        for (; count >= 32; count -= 32) Put(0xFFFFFFFFu, 32);
        if (count != 0) Put(~0u << (32 - count), count);
    }
    // Index of the byte that receives the next bit, and the bits used in it.
    uint32_t BytePos() const { return stored + (bits >> 3); }
    uint32_t BitPos() const { return bits & 7; }
    uint64_t TotalBits() const { return static_cast<uint64_t>(stored) * 8 + bits; }
    // Stores the pending bytes, the partly filled one included; returns the count.
    uint32_t Finish() {
        uint32_t n = (bits + 7) >> 3;
        for (uint32_t i = 0; i < n; ++i) buf[stored + i] = static_cast<uint8_t>(acc >> (56 - 8 * i));
        return stored + n;
    }
};

inline uint32_t Code32(const uint32_t entry[2]) { return entry[1] << 16; }

// Bits of the codes of one run, as AddRun emits them.
uint32_t RunBits(const uint32_t (*table)[2], uint32_t len) {
    uint32_t n = 0;
    for (; len > kLongStep; len -= kLongStep) n += kMakeup2560Bits;
    if (len >= 64) {
        n += table[63 + len / 64][0];
        len %= 64;
    }
    return n + table[len][0];
}

void PutRun(BitSink &out, const uint32_t (*table)[2], uint32_t len) {
    for (; len > kLongStep; len -= kLongStep) out.Put(Code32(table[GP4_MAKEUP_2560]), table[GP4_MAKEUP_2560][0]);
    if (len >= 64) {
        const uint32_t *e = table[63 + len / 64];
        out.Put(Code32(e), e[0]);
        len %= 64;
    }
    out.Put(Code32(table[len]), table[len][0]);
}

// Horizontal mode: the mode code and both runs, in one store when the runs are short.
void PutHorizontal(BitSink &out, bool isWhite, uint32_t run1, uint32_t run2) {
    const uint32_t(*first)[2] = isWhite ? ::white : ::black;
    const uint32_t(*second)[2] = isWhite ? ::black : ::white;
    if (run1 < 64 && run2 < 64) {
        uint32_t n1 = first[run1][0];
        uint32_t n2 = second[run2][0];
        uint32_t code = Code32(twoD[GP4_MODE_HORIZONTAL]) |
                        (first[run1][1] << (13)) |
                        (second[run2][1] << (13 - n1));
        out.Put(code, 3 + n1 + n2);
        return;
    }
    out.Put(Code32(twoD[GP4_MODE_HORIZONTAL]), twoD[GP4_MODE_HORIZONTAL][0]);
    PutRun(out, first, run1);
    PutRun(out, second, run2);
}

// Where a row's steps over the lists stand: the output and the walk. Filled
// from the coder's state before ListSteps and read back after it.
struct StepState {
    uint8_t *buf;
    uint32_t stored;
    uint64_t acc;
    uint32_t bits;
    uint32_t a0;
    bool white;
    uint32_t ia, ib;  // as in ListSearch
};

enum class StepStop {
    RowDone,         // a0 reached the width
    Room,            // the next step would start within the margin of the buffer's end
    LongHorizontal,  // the next step is a horizontal one longer than kLongStep, not yet coded
};

// Codes a row's steps from the lists (ListSearch's Step, A2 and After*, the
// mode decision and BitSink's Put, taken together) until the row is done, the
// room check fails or a horizontal step needs its measured growth. Out of
// line, with every value of the walk and the output in a local, so that
// they all stay in registers across the steps; the stops are where the
// plain step loop checks room or measures a long step, so the buffer grows
// at the same points.
[[gnu::noinline]] StepStop ListSteps(StepState &s, const uint32_t *cur, const uint32_t *ref, uint32_t width,
                                     uint32_t nOutSize) {
    uint8_t *const buf = s.buf;
    uint8_t *p = buf + s.stored;
    // The room check `byte position + kStepMargin >= size`, as a pointer.
    uint8_t *const end = buf + (nOutSize > kStepMargin ? nOutSize - kStepMargin : 0);
    uint64_t acc = s.acc;
    uint32_t bits = s.bits;
    const uint32_t *pa = cur + s.ia;
    uint32_t ib = s.ib;
    uint32_t a0 = s.a0;
    uint32_t black = s.white ? 0 : 1;  // the parity of a change away from the current colour
    // BitSink::Put on the locals.
    auto put = [&](uint32_t code, uint32_t n) {
        acc |= static_cast<uint64_t>(code) << (32 - bits);
        bits += n;
        uint32_t word = __builtin_bswap32(static_cast<uint32_t>(acc >> 32));
        std::memcpy(p, &word, 4);
        uint32_t full = bits >> 5;
        p += full << 2;
        acc <<= full << 5;
        bits -= full << 5;
    };
    // A run of at most kLongStep: PutRun without its loop of 2560s.
    auto putRun = [&](const uint32_t(*table)[2], uint32_t len) {
        if (len >= 64) {
            const uint32_t *e = table[63 + len / 64];
            put(Code32(e), e[0]);
            len %= 64;
        }
        put(Code32(table[len]), table[len][0]);
    };
    // The reference walk, as ListSearch::Step takes it: ib moves to the first
    // element at or after `from` (a0 + 1, or 0 at a0 = 0). Done here for the
    // step in hand, and then at the end of each step for the next one, where
    // the step itself tells how far it goes.
    auto walkTo = [&](uint32_t from) {
        while (ref[ib] < from) ++ib;
    };
    walkTo(a0 == 0 ? 0 : a0 + 1);
    StepStop stop;
    for (;;) {
        uint32_t j = ib + ((ib & 1) ^ black);
        uint32_t a1 = pa[0];
        uint32_t b1 = ref[j];
        uint32_t b2 = ref[j + 1];
        if (b2 < a1) {
            put(Code32(twoD[GP4_MODE_PASS]), twoD[GP4_MODE_PASS][0]);
            a0 = b2;
            // Every element up to b2 is behind; the list ascends past it.
            ib = j + 2;
        } else if (a1 - b1 + 3 <= 6) {
            const uint32_t *e = twoD[GP4_MODE_V0 + static_cast<int32_t>(a1 - b1)];
            put(Code32(e), e[0]);
            a0 = a1;
            black ^= 1;
            pa += 1;
            // The elements before a1 + 1 are at most the three from ib: j
            // is ib or the one after, and the one after b2 (b2 >= a1 here)
            // lies past a1. Counted without a branch: how many there are
            // follows the pixels and is hard to foretell. At the row's end
            // (a1 = width) the count stops at the closing elements, so that
            // it reads no further than they go.
            const uint32_t from = std::min(a1 + (a1 != 0 ? 1 : 0), width);
            ib += static_cast<uint32_t>(ref[ib] < from) + static_cast<uint32_t>(ref[ib + 1] < from) +
                  static_cast<uint32_t>(ref[ib + 2] < from);
        } else {
            uint32_t a2 = pa[1];
            uint32_t run1 = a1 - a0;
            uint32_t run2 = a2 - a1;
            const uint32_t(*first)[2] = black != 0 ? ::black : ::white;
            const uint32_t(*second)[2] = black != 0 ? ::white : ::black;
            if (run1 < 64 && run2 < 64) {
                uint32_t n1 = first[run1][0];
                uint32_t n2 = second[run2][0];
                put(Code32(twoD[GP4_MODE_HORIZONTAL]) | (first[run1][1] << 13) | (second[run2][1] << (13 - n1)),
                    3 + n1 + n2);
            } else if (a2 - a0 > kLongStep) {
                stop = StepStop::LongHorizontal;
                break;
            } else {
                put(Code32(twoD[GP4_MODE_HORIZONTAL]), twoD[GP4_MODE_HORIZONTAL][0]);
                putRun(first, run1);
                putRun(second, run2);
            }
            a0 = a2;
            pa += 2;
            // At the row's end there is no next step (and every element
            // left, the closing ones too, lies before width + 1).
            if (a0 != width) walkTo(a0 + 1);
        }
        if (a0 == width) {
            stop = StepStop::RowDone;
            break;
        }
        if (p + (bits >> 3) >= end) {
            stop = StepStop::Room;
            break;
        }
    }
    s.stored = static_cast<uint32_t>(p - buf);
    s.acc = acc;
    s.bits = bits;
    s.a0 = a0;
    s.white = black == 0;
    s.ia = static_cast<uint32_t>(pa - cur);
    s.ib = ib;
    return stop;
}

uint8_t *Lock(ZHANDLE h) { return static_cast<uint8_t *>(GlobalLock(h)); }

// The working state of one call of Group4.
struct Band {
    Gp4_SetupData *setup = nullptr;
    ZHANDLE *hOutBuf = nullptr;
    uint32_t nOutSize = 0;
    BitSink out;                         // out.buf is the locked output buffer
    RowFeed feed;                        // where the rows come from
    const uint8_t *row = nullptr;        // the row being coded
    const uint8_t *lpRefLine = nullptr;  // its reference row; null: all white
    uint32_t Width = 0, rowBytes = 0, ScanLines = 0, BytesPerRow = 0;
    uint32_t RowCount = 0;
    bool cancelled = false;
};

// Grows the output buffer; the new pointer is null when the buffer was lost.
// Kept out of line so that the coding loop's state never has its address taken.
struct Grown {
    uint8_t *buf;
    uint32_t size;
};
[[gnu::noinline]] Grown Grow(ZHANDLE *hOutBuf, uint8_t *buf, uint32_t size) {
    IncreaseOutBuf(hOutBuf, &buf, &size);
    return {*hOutBuf != 0 ? buf : nullptr, size};
}

// Coded bytes are written front to back, a row at a time: their pages are
// put in place a stretch ahead of the writer by one call rather than by a
// fault at each first write (see mivo4::mem::Prefault). Out of line, as Grow.
constexpr uint32_t kPlaceAhead = 256 * 1024;
// Gives how far the bytes are then in place: from `from`, a stretch or up to
// the block's `size`.
[[gnu::noinline]] uint32_t PlaceAhead(ZHANDLE hOutBuf, uint32_t from, uint32_t size) {
    const uint32_t to = size - from > kPlaceAhead ? from + kPlaceAhead : size;
    mivo4::mem::Prefault(hOutBuf, from, to);
    return to;
}

// Asks the host whether to go on; true when it wants the band stopped.
[[gnu::noinline]] bool Cancelled(const Gp4_SetupData *setup, uint32_t Temp) {
    EXPORT_OPTIONS *lpExport = setup->lpExport;
    if (lpExport == nullptr) return false;
    return CallGetSet_Status(lpExport->GetSet_Status, lpExport->hDialog, 0, 0, 0, Temp, 0, 0) != 0;
}

// Codes the band's rows, one coding step per pass, until all are done, the
// host cancels or the output buffer is lost. The state lives in locals while
// coding (the output stores may alias anything reached through memory) and
// goes back into the band at the end.
template <class Search, bool Fed>
void CodeRows(Band &b, Search search) {
    BitSink out = b.out;
    uint32_t nOutSize = b.nOutSize;
    const uint8_t *row = b.row;
    const uint8_t *lpRefLine = b.lpRefLine;
    uint32_t RowCount = b.RowCount;
    const uint32_t Width = b.Width;
    const uint32_t ScanLines = b.ScanLines;
    const uint32_t BytesPerRow = b.BytesPerRow;
    const RowFeed feed = b.feed;

    uint32_t A0 = 0;
    bool isWhite = true;  // Color: 255 while true, 0 while false
    bool rowStarted = false;
    bool sameRow = false;
    uint32_t reportedRow = UINT32_MAX;
    uint32_t lastTemp = UINT32_MAX;
    bool cancelled = false;
    uint32_t placed = 0;  // coded bytes before this are in place

    auto grow = [&]() {
        Grown g = Grow(b.hOutBuf, out.buf, nOutSize);
        out.buf = g.buf;
        nOutSize = g.size;
        return g.buf != nullptr;
    };

    // f. A horizontal step at a1; false when the buffer was lost.
    auto horizontal = [&](uint32_t A1) {
        uint32_t A2 = search.A2(A1, isWhite);
        if (A2 - A0 > kLongStep) {
            // Runs this long can emit more than the step margin covers.
            uint32_t bits = twoD[GP4_MODE_HORIZONTAL][0] + RunBits(isWhite ? white : black, A1 - A0) +
                            RunBits(isWhite ? black : white, A2 - A1);
            while (uint64_t{out.BytePos()} + (out.BitPos() + bits) / 8 + 4 >= nOutSize) {
                if (!grow()) return false;
            }
        }
        PutHorizontal(out, isWhite, A1 - A0, A2 - A1);
        A0 = A2;
        search.AfterHorizontal();
        return true;
    };

    // The row's steps through ListSteps, stopping where the step loop below
    // checks room or measures a long horizontal step; false when the buffer
    // was lost.
    [[maybe_unused]] auto WalkRow = [&]() {
        if constexpr (std::is_same_v<Search, ListSearch>) {
            for (;;) {
                StepState st{out.buf, out.stored, out.acc, out.bits, A0, isWhite, search.A1Index(), search.RefIndex()};
                StepStop stop = ListSteps(st, search.CodingList(), search.ReferenceList(), Width, nOutSize);
                out.stored = st.stored;
                out.acc = st.acc;
                out.bits = st.bits;
                A0 = st.a0;
                isWhite = st.white;
                search.SetIndexes(st.ia, st.ib);
                if (stop == StepStop::RowDone) return true;
                if (stop == StepStop::LongHorizontal) {
                    uint32_t A1, B1, B2;
                    search.Step(A0, isWhite, A1, B1, B2);
                    if (!horizontal(A1)) return false;
                    if (A0 == Width) return true;
                }
                // b. Room for the next step.
                while (out.BytePos() + kStepMargin >= nOutSize) {
                    if (!grow()) return false;
                }
            }
        }
        return true;
    };

    search.BeginBand(lpRefLine);
    while (RowCount < ScanLines && out.buf != nullptr) {
        // a. Progress, 50..100 over the band. The value only changes with the
        //    row, so the host hears each value once, before the first step that
        //    carries it; a non-zero answer stops the band at that step.
        if (RowCount != reportedRow) {
            reportedRow = RowCount;
            if (placed < nOutSize && uint64_t{out.BytePos()} + kPlaceAhead / 2 >= placed)
                placed = PlaceAhead(*b.hOutBuf, std::max(placed, out.BytePos()), nOutSize);
            uint32_t Temp = 50 + static_cast<uint32_t>((RowCount + 1) * 50.0 / ScanLines);
            if (Temp != lastTemp) {
                lastTemp = Temp;
                if (Cancelled(b.setup, Temp)) {
                    cancelled = true;
                    break;
                }
            }
        }

        // b. Room for one step, else grow and start the pass again.
        if (out.BytePos() + kStepMargin >= nOutSize) {
            grow();
            continue;
        }

        if (!rowStarted) {
            rowStarted = true;
            sameRow = lpRefLine != nullptr && SameRow(row, lpRefLine, Width);
            if (!sameRow) search.BeginRow(row);
        }

        if (sameRow) {
            // A row equal to its reference row codes as one V0 per changing
            // element plus one for the end of the row: every a1 lies on its b1.
            // Step by step, the room check grows the buffer whenever a step
            // starts within the margin of its end; the same growths happen here
            // before the same steps.
            uint32_t steps = search.RefChanges() + 1;
            bool lost = false;
            while (steps != 0) {
                uint64_t room = nOutSize > kStepMargin ? uint64_t{nOutSize - kStepMargin} * 8 : 0;
                uint64_t fit = room > out.TotalBits() ? room - out.TotalBits() : 0;
                uint32_t now = fit < steps ? static_cast<uint32_t>(fit) : steps;
                out.Ones(now);
                steps -= now;
                if (steps != 0 && !grow()) {
                    lost = true;
                    break;
                }
            }
            if (lost) break;
            search.EndSameRow();
            A0 = Width;
        } else {
            // The row's coding steps. Within a row the progress value stays
            // the same, so each later step starts at its room check.
            bool lost = false;
            bool walked = false;
            if constexpr (std::is_same_v<Search, ListSearch>) {
                if (!gForceStepLoop) {
                    walked = true;
                    lost = !WalkRow();
                }
            }
            for (; !walked;) {
                // c. Changing elements.
                uint32_t A1, B1, B2;
                search.Step(A0, isWhite, A1, B1, B2);

                if (B2 < A1) {
                    // d. Pass mode.
                    out.Put(Code32(twoD[GP4_MODE_PASS]), twoD[GP4_MODE_PASS][0]);
                    A0 = B2;
                    search.AfterPass();
                } else if (A1 + 3 >= B1 && B1 + 3 >= A1) {
                    // e. Vertical mode.
                    const uint32_t *e = twoD[GP4_MODE_V0 + static_cast<int32_t>(A1 - B1)];
                    out.Put(Code32(e), e[0]);
                    A0 = A1;
                    isWhite = !isWhite;
                    search.AfterVertical();
                } else {
                    // f. Horizontal mode.
                    if (!horizontal(A1)) {
                        lost = true;
                        break;
                    }
                }
                if (A0 == Width) break;

                // b. Room for the next step.
                while (out.BytePos() + kStepMargin >= nOutSize) {
                    if (!grow()) {
                        lost = true;
                        break;
                    }
                }
                if (lost) break;
            }
            if (lost) break;
            search.EndRow();
        }

        // g. End of the row: it becomes the reference row of the next.
        if (A0 == Width) {
            A0 = 0;
            isWhite = true;
            rowStarted = false;
            ++RowCount;
            lpRefLine = row;
            if constexpr (Fed) {
                if (RowCount < ScanLines) row = feed.row(feed.context, RowCount);
            } else {
                row += BytesPerRow;
            }
        }
    }

    b.out = out;
    b.nOutSize = nOutSize;
    b.row = row;
    b.lpRefLine = lpRefLine;
    b.RowCount = RowCount;
    b.cancelled = cancelled;
}

}  // namespace

uint32_t SetRefPositions(const uint8_t *lpRefLine, uint32_t A0, uint8_t Color, uint32_t Width) {
    if (lpRefLine == nullptr) return Width;  // no row: no changing element
    return NextChange(lpRefLine, RowBytes(Width), A0, Color != GP4_BLACK, Width);
}

void AddRun(uint8_t *Buffer, uint8_t Color, uint32_t len, uint32_t *BytePos, uint32_t *BitPos) {
    if (Buffer == nullptr || BytePos == nullptr || BitPos == nullptr) return;
    const uint32_t(*table)[2] = Color != 0 ? white : black;
    // A bit position past 7 would shift code bits out of the byte pair.
    *BytePos += *BitPos / 8;
    *BitPos %= 8;
    for (;;) {
        uint32_t entry;
        bool last = false;
        if (len > kLongStep) {
            entry = GP4_MAKEUP_2560;
            len -= kLongStep;
        } else if (len >= 64) {
            entry = 63 + len / 64;
            len %= 64;
        } else {
            entry = len;
            last = true;
        }
        uint32_t n = table[entry][0];
        uint32_t code = table[entry][1];
        uint32_t pos = *BytePos;
        uint32_t bit = *BitPos;
        // The code spans up to three bytes: the bits that fall off the right of
        // the byte pair go to the third, which is assigned, as is the second;
        // only the first, already partly used, is or-ed into.
        if (n + bit > 16) Buffer[pos + 2] = static_cast<uint8_t>((code & 0xFFu) << (8 - bit));
        code >>= bit;
        Buffer[pos + 1] = static_cast<uint8_t>(code & 0xFFu);
        Buffer[pos] |= static_cast<uint8_t>(code >> 8);
        bit += n;
        *BytePos = pos + bit / 8;
        *BitPos = bit % 8;
        if (last) return;
    }
}

void AddCode(uint8_t *Buffer, uint32_t Mode, uint32_t *BytePos, uint32_t *BitPos) {
    if (Buffer == nullptr || BytePos == nullptr || BitPos == nullptr || Mode > GP4_MODE_VR3) return;
    *BytePos += *BitPos / 8;
    *BitPos %= 8;
    uint32_t code = twoD[Mode][1] >> *BitPos;
    Buffer[*BytePos] |= static_cast<uint8_t>(code >> 8);
    *BitPos += twoD[Mode][0];
    if (*BitPos > 7) {
        *BitPos %= 8;
        *BytePos += 1;
        Buffer[*BytePos] = static_cast<uint8_t>(code & 0xFFu);
    }
}

void IncreaseOutBuf(ZHANDLE *hOutBuf, uint8_t **lpOutBuf, uint32_t *nOutSize) {
    if (hOutBuf == nullptr || lpOutBuf == nullptr || nOutSize == nullptr) return;
    GlobalUnlock(*hOutBuf);
    ZHANDLE grown = 0;
    if (*nOutSize <= UINT32_MAX - kGrowth) {
        *nOutSize += kGrowth;
        // Re-allocation always moves the block and frees the old one, even on
        // failure: the old pointer is dead either way.
        grown = GlobalReAlloc(*hOutBuf, *nOutSize, GHND);
    } else {
        // A block this large cannot grow: given up as a failed growth would be.
        GlobalFree(*hOutBuf);
    }
    if (grown != 0) {
        *hOutBuf = grown;
        *lpOutBuf = Lock(grown);
        return;
    }
    *hOutBuf = 0;
    *lpOutBuf = nullptr;
    push_er(RASTER_ERR_MEMORY);
}

namespace {

// Gives the band state a new reference block of one row. The block the driver
// open left (or a stale or short one) is freed rather than lost; false, with
// nothing changed, when the new block cannot be had.
bool FreshReference(Gp4_SetupData &setup, uint32_t BytesPerRow) {
    ZHANDLE h = GlobalAlloc(GHND, BytesPerRow);
    if (h == 0) return false;
    GlobalFree(setup.gp4_refLine);
    setup.gp4_refLine = h;
    return true;
}

}  // namespace

namespace {

// Rows one after the other in one block.
struct Contiguous {
    const uint8_t *first;
    uint32_t bytesPerRow;
    static const uint8_t *Row(void *context, uint32_t index) {
        const auto *c = static_cast<const Contiguous *>(context);
        return c->first + static_cast<uint64_t>(index) * c->bytesPerRow;
    }
};

}  // namespace

uint32_t Group4(const uint8_t *InBuf, ZHANDLE *hOutBuf, uint32_t Width, uint32_t ScanLines,
                uint32_t BytesPerRow) {
    // Rows shorter than the width would be read past their end.
    if (BytesPerRow < RowBytes(Width) || (InBuf == nullptr && ScanLines != 0)) return 0;
    Contiguous rows{InBuf, BytesPerRow};
    return mivo4::g4::Group4Rows(RowFeed{&Contiguous::Row, &rows}, hOutBuf, Width, ScanLines, BytesPerRow);
}

uint32_t mivo4::g4::Group4Rows(const RowFeed &feed, ZHANDLE *hOutBuf, uint32_t Width, uint32_t ScanLines,
                                uint32_t BytesPerRow) {
    Gp4_SetupData *setup = lpRaster;
    // Without a setup there is nowhere to keep the band state.
    if (setup == nullptr || hOutBuf == nullptr) return 0;
    const uint32_t rowBytes = RowBytes(Width);
    if (BytesPerRow < rowBytes) return 0;

    // 1. The output buffer.
    uint32_t nOutSize = GlobalSize(*hOutBuf);
    uint8_t *lpOutBuf = Lock(*hOutBuf);
    if (lpOutBuf == nullptr) return 0;
    uint32_t OutBitPos = setup->gp4_BitOffset % 8;

    // 2. The first band of a picture takes a reference block of its row size.
    if (setup->gp4_stateInfoSaved == 0 && !FreshReference(*setup, BytesPerRow)) {
        GlobalUnlock(*hOutBuf);
        return 0;
    }

    // 3. The reference row, and the partly filled byte of the last band.
    uint8_t *lpGP4RefLine = Lock(setup->gp4_refLine);
    const uint8_t *lpRefLine = nullptr;
    if (setup->gp4_stateInfoSaved != 0) {
        if (lpGP4RefLine != nullptr && GlobalSize(setup->gp4_refLine) >= BytesPerRow) {
            lpRefLine = lpGP4RefLine;
        } else {
            // The saved row is gone (the driver close frees it) or shorter than
            // these rows: reading it would leave its block. Start the band on a
            // fresh block against an all-white line, as the first band would.
            if (!FreshReference(*setup, BytesPerRow)) {
                GlobalUnlock(*hOutBuf);
                return 0;
            }
            lpGP4RefLine = Lock(setup->gp4_refLine);
        }
        if (OutBitPos != 0) {
            if (nOutSize == 0) IncreaseOutBuf(hOutBuf, &lpOutBuf, &nOutSize);
            if (lpOutBuf != nullptr) {
                // byteOffset = OutBitPos / 8 + 1, which is always 1: step back
                // over the last byte written, read it into the start of the
                // buffer, and step back again so that it is overwritten,
                // completed by this band's first codes.
                const int32_t byteOffset = static_cast<int32_t>(OutBitPos / 8 + 1);
                zepSeek(setup->FileHandle, -byteOffset, 1);
                zepRead(setup->FileHandle, lpOutBuf, byteOffset);
                zepSeek(setup->FileHandle, -byteOffset, 1);
            }
        }
    }

    Band band;
    band.setup = setup;
    band.hOutBuf = hOutBuf;
    band.nOutSize = nOutSize;
    band.out.buf = lpOutBuf;
    band.out.bits = OutBitPos;
    // Codes are or-ed into the first byte, so whatever it holds stays.
    if (lpOutBuf != nullptr && nOutSize != 0) band.out.acc = static_cast<uint64_t>(lpOutBuf[0]) << 56;
    band.feed = feed;
    band.row = ScanLines != 0 ? feed.row(feed.context, 0) : nullptr;
    band.lpRefLine = lpRefLine;
    band.Width = Width;
    band.rowBytes = rowBytes;
    band.ScanLines = ScanLines;
    band.BytesPerRow = BytesPerRow;

    // 4. The rows, from lists of their changing elements when there is memory
    //    for two lists, else by searching the rows at every step.
    std::unique_ptr<uint32_t[]> lists;
    if (!gForceRowSearch && ScanLines != 0)
        lists.reset(new (std::nothrow) uint32_t[ListSearch::Entries(Width)]);
    // Rows one after the other in a block are stepped through directly.
    const bool fed = feed.row != &Contiguous::Row;
    if (lists != nullptr) {
        ListSearch search(Width, rowBytes, lists.get());
        if (fed)
            CodeRows<ListSearch, true>(band, search);
        else
            CodeRows<ListSearch, false>(band, search);
    } else {
        RowSearch search(Width, rowBytes);
        if (fed)
            CodeRows<RowSearch, true>(band, search);
        else
            CodeRows<RowSearch, false>(band, search);
    }
    lpRefLine = band.lpRefLine;
    BitSink &out = band.out;
    const bool cancelled = band.cancelled;

    // 5. The band's bytes, and the state the next band continues from.
    uint32_t OutBytePos = 0;
    if (!cancelled) {
        // A lost buffer still answers the count; Encode sees the handle gone.
        OutBytePos = *hOutBuf != 0 ? out.Finish() : out.BytePos() + (out.BitPos() != 0 ? 1 : 0);
    }
    setup->gp4_stateInfoSaved = 1;
    setup->gp4_BitOffset = out.BitPos();
    if (lpRefLine != nullptr && lpGP4RefLine != nullptr && lpRefLine != lpGP4RefLine)
        std::memcpy(lpGP4RefLine, lpRefLine, BytesPerRow);
    GlobalUnlock(setup->gp4_refLine);
    if (*hOutBuf != 0) GlobalUnlock(*hOutBuf);
    return OutBytePos;
}

int32_t Encode(HZEPIO hOutFile, const uint8_t *hpInBuf, uint32_t dwSize, uint32_t nWidth,
               uint32_t nHeight) {
    // No rows: nothing to code (and no row size to divide out).
    if (nHeight == 0) return 0;
    if (lpRaster == nullptr) return -1;  // no band state to code against
    // Rows that cannot hold the width would be read past the caller's block.
    if (dwSize / nHeight < RowBytes(nWidth) || hpInBuf == nullptr) return -1;
    Contiguous rows{hpInBuf, dwSize / nHeight};
    return mivo4::g4::EncodeRows(hOutFile, RowFeed{&Contiguous::Row, &rows}, dwSize, nWidth, nHeight);
}

int32_t mivo4::g4::EncodeRows(HZEPIO hOutFile, const RowFeed &feed, uint32_t dwSize, uint32_t nWidth,
                              uint32_t nHeight) {
    if (nHeight == 0) return 0;
    if (lpRaster == nullptr) return -1;
    uint32_t BytesPerRow = dwSize / nHeight;
    if (BytesPerRow < RowBytes(nWidth)) return -1;

    ZHANDLE hOut = GlobalAlloc(GHND, dwSize);
    if (hOut == 0) return -1;
    uint32_t count = Group4Rows(feed, &hOut, nWidth, nHeight, BytesPerRow);
    // Every row codes to at least one bit: no bytes is the coder's own
    // memory failing. The answer stays as it always was; the export's
    // status learns that the picture is not whole.
    if (count == 0) mivo4::exportstatus::NoMemory();
    uint8_t *lpOut = Lock(hOut);
    if (lpOut == nullptr) return -1;  // lost while growing; nothing of the band is written
    if (count != 0 && zepWriteChar(hOutFile, lpOut, static_cast<int32_t>(count)) <
                          static_cast<int32_t>(count)) {
        // A short write leaves the stream in error and the export is over;
        // the export's status learns whether the output or memory failed.
        mivo4::exportstatus::StreamFailed(hOutFile);
        GlobalUnlock(hOut);
        GlobalFree(hOut);
        return -1;
    }
    GlobalUnlock(hOut);
    GlobalFree(hOut);
    return 0;
}
