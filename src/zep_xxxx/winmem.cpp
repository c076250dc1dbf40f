// Handle-based memory on top of the process heap.
//
// Handles are 32-bit values issued by a table, so that they fit the module's
// 32-bit handle fields on any host. A handle carries its slot (low 20 bits, as
// slot + 1 so that no handle is 0) and the slot's generation (high 12 bits):
// a handle whose block was freed, or one that was never issued, is recognised
// and treated as 0 (locks to null, frees nothing). Freed slots are reused in
// first-in first-out order so that a stale handle stays recognisable for a long
// time before its generation comes round again.
#include "zep_xxxx/memdebug.h"

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

struct Slot {
    uint8_t *data = nullptr;   // the caller's bytes
    uint32_t length = 0;       // the length the caller asked for
    uint32_t flags = 0;        // stored, never acted upon
    uint32_t generation = 0;
    bool live = false;
    bool wrapped = false;      // made by GlobalPointerToHandle: data is not ours
};

struct Table {
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    // When the module is unloaded no handle can be used any more: release
    // whatever blocks are still live with the table.
    ~Table() {
        for (Slot &s : slots)
            if (s.live && !s.wrapped) std::free(s.data);
    }

    std::vector<Slot> slots;
    std::deque<uint32_t> freeSlots;
    std::unordered_map<const void *, ZHANDLE> byData;  // data pointer -> handle
    uint32_t live = 0;
    uint64_t allocations = 0;
    uint32_t failCountdown = 0;  // 0: no failure pending
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
    s = Slot{nullptr, 0, 0, s.generation + 1, false, false};
    --t.live;
    try {
        t.freeSlots.push_back(slot);
    } catch (const std::bad_alloc &) {
        // The slot is lost for reuse; its generation already marks old handles stale.
    }
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
    // A zero-length block still gets a distinct address, so that its handle
    // and data pointer map one to one.
    auto *data = static_cast<uint8_t *>(std::calloc(std::max<uint32_t>(size, 1), 1));
    if (data == nullptr) {
        t.freeSlots.push_front(slot);
        reportFailure(size);
        return 0;
    }
    Slot &s = t.slots[slot];
    ZHANDLE handle = makeHandle(slot, s.generation);
    try {
        t.byData.emplace(data, handle);
    } catch (const std::bad_alloc &) {
        std::free(data);
        t.freeSlots.push_front(slot);
        reportFailure(size);
        return 0;
    }
    s.data = data;
    s.length = size;
    s.flags = flags;
    s.live = true;
    s.wrapped = false;
    ++t.live;
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
    if (!s->wrapped) {
        table().byData.erase(s->data);
        std::free(s->data);
    }
    releaseSlot((handle & kSlotMask) - 1);
    return 0;
}

// The contents never stay in place: a fresh block is made, the common length
// copied, and the old block freed in every case, even when the new one could
// not be had. Callers re-lock after the call and never touch the old handle.
ZHANDLE GlobalReAlloc(ZHANDLE handle, uint32_t newSize, uint32_t flags) {
    if (find(handle) == nullptr) return 0;
    ZHANDLE fresh = GlobalAlloc(flags, newSize);
    if (fresh != 0) {
        const Slot *old = find(handle);
        Slot *now = find(fresh);
        std::memcpy(now->data, old->data, std::min(old->length, now->length));
    }
    GlobalFree(handle);
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
    Table &t = table();
    if (injectedFailure()) return 0;
    uint32_t slot = takeSlot();
    if (slot == kMaxSlots) return 0;
    Slot &s = t.slots[slot];
    s.data = static_cast<uint8_t *>(pointer);
    s.length = size;
    s.flags = 0;
    s.live = true;
    s.wrapped = true;
    ++t.live;
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
