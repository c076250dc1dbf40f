// Handle-based memory on top of the process heap.
//
// Handles are 32-bit values issued by a table, so that they fit the module's
// 32-bit handle fields on any host. A handle carries its slot (low 20 bits, as
// slot + 1 so that no handle is 0) and the slot's generation (high 12 bits):
// a handle whose block was freed, or one that was never issued, is recognised
// and treated as 0 (locks to null, frees nothing). Freed slots are reused in
// first-in first-out order so that a stale handle stays recognisable for a long
// time before its generation comes round again.
//
// Re-allocation always moves a block: the handle and the data pointer change
// and the old ones are dead. A block that grows in small steps would then be
// copied whole at every step; from kMappedFrom bytes on, a re-allocated block
// lives in pages of its own, with room to grow and a spare range beside it,
// and moving it moves those pages to the spare range (one call, whatever the
// size) or, when it outgrows its room, to a new range half as large again
// (the kernel moves page tables, whole 2 MiB tables where both addresses are
// aligned to them) instead of copying bytes. Growing by small steps then
// costs about the same per byte however large the block is.
//
// A new large block also keeps a little address space in front of its pages.
// A picture made one row taller by repeating its first row (every odd height
// is made even that way) is then its source's own pages with a fresh row put
// in that room: a view, never a second copy of the picture.
#include "zep_xxxx/memdebug.h"
#include "zep_xxxx/meminternal.h"
#include "zep_xxxx/winpages.h"

#include <mivo4/memory.h>

#include <algorithm>
#include <cstdio>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <unordered_map>
#include <vector>

namespace {

constexpr uint32_t kSlotBits = 20;
constexpr uint32_t kSlotMask = (1u << kSlotBits) - 1;
constexpr uint32_t kGenerationMask = (1u << (32 - kSlotBits)) - 1;
constexpr uint32_t kMaxSlots = kSlotMask;  // slot + 1 must fit the slot bits

static_assert(alignof(std::max_align_t) >= 8, "heap blocks must hold doubles");

// Re-allocations to this many bytes or more go to pages of their own.
constexpr uint32_t kMappedFrom = 64 * 1024;

// New blocks this large start in pages of their own.
constexpr uint32_t kFreshPagesFrom = 1u << 20;

// Address space kept in front of a new block's pages: room for one row of the
// widest picture (65535 pixels of 24 bits), rounded up to whole pages.
constexpr size_t kFrontRoom = 256 * 1024;

using mivo4::mem::Pages;

struct Slot {
    uint8_t *data = nullptr;   // the caller's bytes
    uint32_t length = 0;       // the length the caller asked for
    uint32_t flags = 0;        // stored, never acted upon
    uint32_t generation = 0;
    bool live = false;
    bool wrapped = false;      // made by GlobalPointerToHandle: data is not ours
    bool view = false;         // made by ExtendInFront: ends with another block's bytes
    // A block: slot + 1 of the view in front of it. A view: slot + 1 of the
    // block it shows; 0 once that block is gone and the view holds its pages.
    uint32_t partner = 0;
    Pages pages{};             // pages of its own (data == pages.data); none: a heap block
};

bool paged(const Slot &s) { return s.pages.capacity != 0; }

// Fresh zero pages for a new block of `size` bytes, or none (the heap then
// serves it).
Pages freshPages(uint32_t size, size_t front) {
    const size_t capacity = mivo4::mem::PageRound(size);
    uint8_t *at = mivo4::mem::ReserveAligned(capacity, front);
    if (at == nullptr) return Pages{};
    // A failed fixed mapping may already have released the range: it is left
    // as it is, as the re-allocation leaves it.
    if (!mivo4::mem::MapFresh(at, capacity)) return Pages{};
    return Pages{at, capacity, nullptr, front};
}

void releaseData(const Slot &s) {
    if (paged(s))
        mivo4::mem::ReleasePages(s.pages);
    else
        std::free(s.data);
}

struct Table {
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    // When the module is unloaded no handle can be used any more: release
    // whatever blocks are still live with the table.
    ~Table() {
        for (Slot &s : slots) {
            if (!s.live || s.wrapped) continue;
            // A view's row in front goes with its block's pages.
            if (!s.view)
                releaseData(s);
            else if (s.partner == 0)
                mivo4::mem::ReleasePages(s.pages);
        }
    }

    std::vector<Slot> slots;
    std::deque<uint32_t> freeSlots;
    std::unordered_map<const void *, ZHANDLE> byData;  // data pointer -> handle
    uint32_t live = 0;
    uint64_t allocations = 0;
    uint32_t failCountdown = 0;  // 0: no failure pending
    bool roomInFront = true;
    uint64_t views = 0;
};

Table &table() {
    static Table t;
    return t;
}

ZHANDLE makeHandle(uint32_t slot, uint32_t generation) {
    return ((generation & kGenerationMask) << kSlotBits) | (slot + 1);
}

Slot *find(ZHANDLE handle) {
    if (handle == 0) return nullptr;
    uint32_t slot = (handle & kSlotMask) - 1;
    uint32_t generation = handle >> kSlotBits;
    Table &t = table();
    if (slot >= t.slots.size()) return nullptr;
    Slot &s = t.slots[slot];
    if (!s.live || (s.generation & kGenerationMask) != generation) return nullptr;
    return &s;
}

// Counts one allocation and tells whether an injected failure is due.
bool injectedFailure() {
    Table &t = table();
    ++t.allocations;
    if (t.failCountdown == 0) return false;
    return --t.failCountdown == 0;
}

// Takes a free slot; returns kMaxSlots when the table cannot grow.
uint32_t takeSlot() {
    Table &t = table();
    if (!t.freeSlots.empty()) {
        uint32_t slot = t.freeSlots.front();
        t.freeSlots.pop_front();
        return slot;
    }
    if (t.slots.size() >= kMaxSlots) return kMaxSlots;
    try {
        t.slots.emplace_back();
    } catch (const std::bad_alloc &) {
        return kMaxSlots;
    }
    return static_cast<uint32_t>(t.slots.size() - 1);
}

void releaseSlot(uint32_t slot) {
    Table &t = table();
    Slot &s = t.slots[slot];
    Slot retired;
    retired.generation = s.generation + 1;
    s = retired;
    --t.live;
    try {
        t.freeSlots.push_back(slot);
    } catch (const std::bad_alloc &) {
        // The slot is lost for reuse; its generation already marks old handles stale.
    }
}

// Makes a taken slot a live block.
Slot &occupy(uint32_t slot, uint8_t *data, uint32_t length, uint32_t flags, const Pages &pages) {
    Table &t = table();
    Slot &s = t.slots[slot];
    s.data = data;
    s.length = length;
    s.flags = flags;
    s.live = true;
    s.wrapped = false;
    s.view = false;
    s.partner = 0;
    s.pages = pages;
    ++t.live;
    return s;
}

void reportFailure(uint32_t size) {
    // (size + 34) with the low three bits cleared: header, worst-case padding and data.
    long total = static_cast<long>((static_cast<uint64_t>(size) + 34) & ~uint64_t{7});
    std::fprintf(stderr,
                 "GlobalAlloc function failed due to insufficient memory: needs %ld bytes memory!!\n",
                 total);
}

}  // namespace

namespace mivo4::mem {

void FailNth(uint32_t n) { table().failCountdown = n; }
bool FailurePending() { return table().failCountdown != 0; }
uint64_t AllocationCount() { return table().allocations; }
uint32_t LiveHandles() { return table().live; }
void SetRoomInFront(bool keep) { table().roomInFront = keep; }
uint64_t FrontViewsMade() { return table().views; }

}  // namespace mivo4::mem

ZHANDLE GlobalAlloc(uint32_t flags, uint32_t size) {
    Table &t = table();
    if (injectedFailure()) {
        reportFailure(size);
        return 0;
    }
    uint32_t slot = takeSlot();
    if (slot == kMaxSlots) {
        reportFailure(size);
        return 0;
    }
    // A large block starts in pages of its own: it then grows by moving its
    // pages, never by copying its bytes into a second block of its size.
    Pages pages = size >= kFreshPagesFrom ? freshPages(size, t.roomInFront ? kFrontRoom : 0) : Pages{};
    // A zero-length block still gets a distinct address, so that its handle
    // and data pointer map one to one.
    auto *data = pages.data != nullptr ? pages.data
                                       : static_cast<uint8_t *>(std::calloc(std::max<uint32_t>(size, 1), 1));
    if (data == nullptr) {
        t.freeSlots.push_front(slot);
        reportFailure(size);
        return 0;
    }
    ZHANDLE handle = makeHandle(slot, t.slots[slot].generation);
    try {
        t.byData.emplace(data, handle);
    } catch (const std::bad_alloc &) {
        if (pages.data != nullptr)
            mivo4::mem::ReleasePages(pages);
        else
            std::free(data);
        t.freeSlots.push_front(slot);
        reportFailure(size);
        return 0;
    }
    occupy(slot, data, size, flags, pages);
    return handle;
}

void *GlobalLock(ZHANDLE handle) {
    Slot *s = find(handle);
    return s != nullptr ? s->data : nullptr;
}

// There is no lock count: a block is never "still locked".
int32_t GlobalUnlock(ZHANDLE) { return 0; }

int32_t GlobalFree(ZHANDLE handle) {
    Slot *s = find(handle);
    if (s == nullptr) return 0;
    Table &t = table();
    if (s->view) {
        t.byData.erase(s->data);
        if (s->partner != 0) {
            // The block lives on: its room in front is emptied for next time.
            Slot &block = t.slots[s->partner - 1];
            mivo4::mem::UnmapFront(block.pages);
            block.partner = 0;
        } else {
            mivo4::mem::ReleasePages(s->pages);
        }
    } else if (!s->wrapped) {
        t.byData.erase(s->data);
        if (s->partner != 0) {
            // The view in front still shows these bytes: it keeps the pages.
            Slot &view = t.slots[s->partner - 1];
            view.pages = s->pages;
            view.partner = 0;
        } else {
            releaseData(*s);
        }
    }
    releaseSlot((handle & kSlotMask) - 1);
    return 0;
}

namespace {

// A re-allocation that cannot be had: the old block is freed all the same.
ZHANDLE failedReAlloc(ZHANDLE handle, uint32_t newSize) {
    reportFailure(newSize);
    GlobalFree(handle);
    return 0;
}

}  // namespace

// The contents never stay in place: the block gets a new handle and a new
// address, the common length is kept, and the old block is freed in every
// case, even when the new one could not be had. Callers re-lock after the
// call and never touch the old handle. Each call counts as one allocation
// (and can be made to fail) whether or not it takes memory from the heap.
ZHANDLE GlobalReAlloc(ZHANDLE handle, uint32_t newSize, uint32_t flags) {
    const Slot *found = find(handle);
    if (found == nullptr) return 0;
    if (found->wrapped || found->view || found->partner != 0) {
        // The wrapped memory is the caller's, a view's bytes are partly
        // another block's, and a viewed block's pages stay where the view
        // shows them: copied into a block of our own.
        ZHANDLE fresh = GlobalAlloc(flags, newSize);
        if (fresh != 0) {
            const Slot *old = find(handle);
            Slot *now = find(fresh);
            std::memcpy(now->data, old->data, std::min(old->length, now->length));
        }
        GlobalFree(handle);
        return fresh;
    }
    Table &t = table();
    if (injectedFailure()) return failedReAlloc(handle, newSize);
    const uint32_t slot = takeSlot();
    if (slot == kMaxSlots) return failedReAlloc(handle, newSize);
    Slot &old = *find(handle);  // the table may have grown under takeSlot

    const ZHANDLE fresh = makeHandle(slot, t.slots[slot].generation);
    const uint32_t kept = std::min(old.length, newSize);
    uint8_t *data = nullptr;
    Pages pages{};
    // The new address is made known to GlobalHandle before any byte moves, so
    // that no failure can come after the old bytes are gone.
    auto know = [&](uint8_t *at) {
        try {
            t.byData.emplace(at, fresh);
            return true;
        } catch (const std::bad_alloc &) {
            return false;
        }
    };
    // In pages of its own. Past the block's length its pages read zero (kept
    // so at every move), so growth within them needs no clearing.
    auto placePaged = [&] {
        // The room in front stays with the address the pages leave.
        if (paged(old)) mivo4::mem::ReleaseFront(old.pages);
        if (paged(old) && newSize <= old.pages.capacity && newSize > old.pages.capacity / 4 &&
            old.pages.spare != nullptr && know(old.pages.spare)) {
            uint8_t *const at = old.pages.spare;
            if (newSize < old.length) mivo4::mem::ClearRange(old.data, newSize, old.length);
            Pages moved = old.pages;
            if (mivo4::mem::MoveToSpare(moved)) {
                old.pages = Pages{};  // now the new block's
                data = moved.data;
                pages = moved;
                return true;
            }
            t.byData.erase(at);
        }
        // A new range with room to grow by half again (exactly the length
        // when shrinking), and a spare range for the next move; from a
        // megabyte on, whole page tables, which move as one entry each.
        const size_t want = newSize > old.length ? size_t{newSize} + newSize / 2 : size_t{newSize};
        const size_t capacity = want >= kFreshPagesFrom ? mivo4::mem::TableRound(want) : mivo4::mem::PageRound(want);
        uint8_t *at = mivo4::mem::ReserveAligned(capacity);
        if (at == nullptr) return false;
        if (!know(at)) {
            mivo4::mem::ReleasePages(Pages{at, capacity, nullptr});
            return false;
        }
        Pages moved = old.pages;
        if (paged(old)) {
            if (newSize < old.length) mivo4::mem::ClearRange(old.data, newSize, old.length);
            if (!mivo4::mem::MoveTo(moved, at, capacity)) {
                // The reserved range is left as it is: a failed fixed move may
                // already have released it, and unmapping it then could take
                // away what another thread has mapped there since.
                t.byData.erase(at);
                return false;
            }
            old.pages = Pages{};
        } else {
            if (!mivo4::mem::MapFresh(at, capacity)) {
                t.byData.erase(at);  // the range is left as it is, as above
                return false;
            }
            moved = Pages{at, capacity, nullptr};
            std::memcpy(at, old.data, kept);
            std::free(old.data);
        }
        // Without a spare range the next move takes the longer way, as here.
        moved.spare = mivo4::mem::ReserveAligned(capacity);
        data = at;
        pages = moved;
        return true;
    };
    auto placeOnHeap = [&] {
        auto *at = static_cast<uint8_t *>(std::calloc(std::max<uint32_t>(newSize, 1), 1));
        if (at == nullptr) return false;
        if (!know(at)) {
            std::free(at);
            return false;
        }
        std::memcpy(at, old.data, kept);
        releaseData(old);
        old.pages = Pages{};
        data = at;
        return true;
    };
    // Where pages cannot be had (address space, mapping count), the heap.
    if (!(newSize >= kMappedFrom && placePaged()) && !placeOnHeap()) {
        t.freeSlots.push_front(slot);
        return failedReAlloc(handle, newSize);
    }
    // The old handle is retired; its bytes were moved or freed above.
    t.byData.erase(old.data);
    releaseSlot((handle & kSlotMask) - 1);
    occupy(slot, data, newSize, flags, pages);
    return fresh;
}

ZHANDLE GlobalHandle(const void *pointer) {
    if (pointer == nullptr) return 0;
    const auto &byData = table().byData;
    auto it = byData.find(pointer);
    return it != byData.end() ? it->second : 0;
}

uint32_t GlobalSize(ZHANDLE handle) {
    Slot *s = find(handle);
    return s != nullptr ? s->length : 0;
}

uint32_t GlobalCompact(uint32_t minFree) { return minFree != 0 ? minFree : 0x10000u; }

// Wraps memory the caller owns: locking gives the pointer back, freeing
// releases only the handle, never the memory.
ZHANDLE GlobalPointerToHandle(void *pointer, uint32_t size) {
    if (injectedFailure()) return 0;
    uint32_t slot = takeSlot();
    if (slot == kMaxSlots) return 0;
    Slot &s = occupy(slot, static_cast<uint8_t *>(pointer), size, 0, Pages{});
    s.wrapped = true;
    return makeHandle(slot, s.generation);
}

void *zepPtrGlobalAlloc(uint32_t size) {
    if (size == 0) return nullptr;
    return GlobalLock(GlobalAlloc(GHND, size));
}

uint32_t zepPtrGlobalFree(void *pointer) {
    if (pointer == nullptr) return 0;
    ZHANDLE handle = zepPtrGlobalHandle(pointer);
    // GlobalUnlock always reports the block as unlocked, so it is freed; a
    // remaining lock would hand the handle back instead.
    if (GlobalUnlock(handle) != 0) return handle;
    return static_cast<uint32_t>(GlobalFree(handle));
}

void *zepPtrGlobalReAlloc(void *pointer, uint32_t newSize, uint32_t flags) {
    if (pointer == nullptr) return zepPtrGlobalAlloc(newSize);
    ZHANDLE handle = zepPtrGlobalHandle(pointer);
    GlobalUnlock(handle);
    if (newSize == 0) {
        GlobalFree(handle);
        return nullptr;
    }
    return GlobalLock(GlobalReAlloc(handle, newSize, flags));
}

ZHANDLE zepPtrGlobalHandle(const void *pointer) { return GlobalHandle(pointer); }

namespace mivo4::mem {

void Prefault(ZHANDLE block) { Prefault(block, 0, UINT32_MAX); }

void Prefault(ZHANDLE block, uint32_t from, uint32_t to) {
    const Slot *s = find(block);
    if (s == nullptr || s->view || s->wrapped || !paged(*s)) return;
    to = std::min(to, s->length);
    if (from < to) Populate(s->data + from, to - from);
}

ZHANDLE ExtendInFront(ZHANDLE block, uint32_t front, uint32_t length, bool *noRoom) {
    *noRoom = true;
    const Slot *b = find(block);
    if (b == nullptr || b->wrapped || b->view || b->partner != 0 || !paged(*b) || front == 0 ||
        length < front || length - front > b->length || front > b->pages.front)
        return 0;
    *noRoom = false;
    Table &t = table();
    if (injectedFailure()) {
        reportFailure(length);
        return 0;
    }
    const uint32_t slot = takeSlot();
    if (slot == kMaxSlots) {
        reportFailure(length);
        return 0;
    }
    Slot &shown = *find(block);  // the table may have grown under takeSlot
    uint8_t *data = MapFront(shown.pages, front);
    const ZHANDLE handle = makeHandle(slot, t.slots[slot].generation);
    bool known = false;
    if (data != nullptr) {
        try {
            t.byData.emplace(data, handle);
            known = true;
        } catch (const std::bad_alloc &) {
            UnmapFront(shown.pages);
        }
    }
    if (!known) {
        t.freeSlots.push_front(slot);
        reportFailure(length);
        return 0;
    }
    Slot &v = occupy(slot, data, length, GHND, Pages{});
    v.view = true;
    v.partner = block & kSlotMask;
    shown.partner = slot + 1;
    ++t.views;
    return handle;
}

}  // namespace mivo4::mem
