// The driver's error stack and the element-buffer answers.
//
// The depth limit maxdepth is never given a value, so it stays 0: every push
// takes the "stack full" branch, writes its report into `oldest` and counts it
// in `numlost`, and the stack itself stays empty. Hosts see exactly that
// (an empty stack, the latest report as the oldest, the count of reports), so
// it is kept.
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "export/raster/element.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int32_t kStackSlots = 10;

MoRastData *state() { return static_cast<MoRastData *>(lpEMData); }

// Fields are set one by one so that the two bytes after `code` keep what the
// zero-filled record holds: answers copy reports as stored, 8 bytes each.
void setReport(VErrorReport &r, int32_t item, int16_t code) {
    r.item = item;
    r.code = code;
}

}  // namespace

void push_er(int16_t code) {
    MoRastData *s = state();
    if (s == nullptr) return;  // no driver running: nothing to record into
    ErrorState &e = s->esl;
    // The depth limit is 0 unless a host set it; never index past the stack.
    int32_t maxdepth = std::clamp(e.maxdepth, 0, kStackSlots);
    int32_t curdepth = std::clamp(e.curdepth, 0, kStackSlots);

    if (curdepth > 0) {
        const VErrorReport &top = e.stack[curdepth - 1];
        if (top.item == s->element && top.code == code) return;  // one element, one report
    } else {
        setReport(e.oldest, s->element, code);
    }
    if (curdepth >= maxdepth) {
        // The entry just below index maxdepth is overwritten; with a limit of 0
        // that entry is the oldest report itself.
        setReport(maxdepth == 0 ? e.oldest : e.stack[maxdepth - 1], s->element, code);
        ++e.numlost;
    } else {
        setReport(e.stack[curdepth], s->element, code);
        e.curdepth = curdepth + 1;
    }
    setReport(s->errep, s->element, code);
}

void mov2buf(const void *data, int32_t len) {
    MoRastData *s = state();
    if (s == nullptr || s->lpDvrBuf == nullptr || data == nullptr || len <= 0) return;
    if (s->readct < 0 || static_cast<uint32_t>(s->readct) >= s->DvrBufSz) return;
    // Answers longer than the room left are cut short without notice.
    uint32_t room = s->DvrBufSz - static_cast<uint32_t>(s->readct);
    uint32_t n = std::min(static_cast<uint32_t>(len), room);
    std::memcpy(s->lpDvrBuf + s->readct, data, n);
    s->readct += static_cast<int32_t>(n);
}

void *dq_es(void *data) {
    MoRastData *s = state();
    if (s == nullptr) return data;
    ErrorState &e = s->esl;
    mov2buf(&e.curdepth, 4);
    mov2buf(&e.oldest, 8);
    mov2buf(&e.numlost, 4);
    return data;
}

void *d_popes(void *data) {
    MoRastData *s = state();
    if (s == nullptr || data == nullptr) return data;
    // An element cut off before its count asks for nothing.
    int32_t requested = 0;
    mivo4::driver::ElementRead(data, DVR_ELEMENT_HEADER, &requested, 4);
    ErrorState &e = s->esl;
    int32_t curdepth = std::clamp(e.curdepth, 0, kStackSlots);
    int32_t count = std::clamp(requested, 0, curdepth);
    mov2buf(&count, 4);
    for (int32_t i = 0; i < count; ++i) {
        mov2buf(&e.stack[curdepth - 1 - i], 8);  // newest first
        e.curdepth = curdepth - 1 - i;
    }
    return data;
}

// Clears the depth, the lost count and the dispatch result; the oldest report
// and the entries stay as they were.
void *d_empes(void *data) {
    MoRastData *s = state();
    if (s == nullptr) return data;
    s->esl.curdepth = 0;
    s->esl.numlost = 0;
    s->errep.item = 0;
    s->errep.code = 0;
    return data;
}
