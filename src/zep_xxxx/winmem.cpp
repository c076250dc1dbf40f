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
// lives in pages of its own, and moving it moves those pages to a new address
// (the kernel moves page tables, whole 2 MiB tables where both addresses are
// aligned to them) instead of copying bytes. Growing by small steps then
// costs about the same per byte however large the block is.
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

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr uint32_t kSlotBits = 20;
constexpr uint32_t kSlotMask = (1u << kSlotBits) - 1;
constexpr uint32_t kGenerationMask = (1u << (32 - kSlotBits)) - 1;
constexpr uint32_t kMaxSlots = kSlotMask;  // slot + 1 must fit the slot bits

static_assert(alignof(std::max_align_t) >= 8, "heap blocks must hold doubles");

// Re-allocations to this many bytes or more go to pages of their own.
constexpr uint32_t kMappedFrom = 64 * 1024;
// Page tables move whole between addresses aligned to this.
constexpr size_t kTableSpan = size_t{2} << 20;

struct Slot {
    uint8_t *data = nullptr;   // the caller's bytes
    uint32_t length = 0;       // the length the caller asked for
    uint32_t flags = 0;        // stored, never acted upon
    uint32_t generation = 0;
    bool live = false;
    bool wrapped = false;      // made by GlobalPointerToHandle: data is not ours
    size_t mapped = 0;         // pages of its own of this length; 0: a heap block
};

size_t pageSize() {
    static const size_t size = [] {
        long p = sysconf(_SC_PAGESIZE);
        return p > 0 ? static_cast<size_t>(p) : size_t{4096};
    }();
    return size;
}

// The length of the pages a block of `size` bytes takes.
size_t mappedLength(uint32_t size) {
    const size_t page = pageSize();
    return (std::max<size_t>(size, 1) + page - 1) / page * page;
}

// Address space for len bytes at a kTableSpan boundary, holding nothing yet;
// null when there is none.
uint8_t *reserveAligned(size_t len) {
    const size_t span = len + kTableSpan;
    void *p = mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    const auto start = reinterpret_cast<uintptr_t>(p);
    const uintptr_t aligned = (start + kTableSpan - 1) & ~uintptr_t{kTableSpan - 1};
    if (aligned > start) munmap(p, aligned - start);
    const uintptr_t end = start + span, used = aligned + len;
    if (end > used) munmap(reinterpret_cast<void *>(used), end - used);
    return reinterpret_cast<uint8_t *>(aligned);
}

void releaseData(uint8_t *data, size_t mapped) {
    if (mapped != 0)
        munmap(data, mapped);
    else
        std::free(data);
}

struct Table {
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    // When the module is unloaded no handle can be used any more: release
    // whatever blocks are still live with the table.
    ~Table() {
        for (Slot &s : slots)
            if (s.live && !s.wrapped) releaseData(s.data, s.mapped);
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
    s = Slot{nullptr, 0, 0, s.generation + 1, false, false, 0};
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
    s.mapped = 0;
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
        releaseData(s->data, s->mapped);
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
    if (found->wrapped) {
        // The wrapped memory is the caller's: copied into a block of our own.
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
    size_t mapped = 0;
    // Places the block at a new address, in pages of its own or on the heap;
    // false, with the old block whole, when that address cannot be had. The
    // new address is known to GlobalHandle before any byte moves, so that no
    // failure can come after the old bytes are gone.
    auto place = [&](bool paged) {
        const size_t len = paged ? mappedLength(newSize) : 0;
        uint8_t *at = paged ? reserveAligned(len)
                            : static_cast<uint8_t *>(std::calloc(std::max<uint32_t>(newSize, 1), 1));
        if (at == nullptr) return false;
        try {
            t.byData.emplace(at, fresh);
        } catch (const std::bad_alloc &) {
            releaseData(at, len);
            return false;
        }
        if (paged) {
            void *done = old.mapped != 0
                             ? mremap(old.data, old.mapped, len, MREMAP_MAYMOVE | MREMAP_FIXED, at)
                             : mmap(at, len, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            if (done == MAP_FAILED) {
                // The reserved range is left as it is: a failed fixed mapping
                // may already have released it, and unmapping it then could
                // take away what another thread has mapped there since.
                t.byData.erase(at);
                return false;
            }
        }
        if (paged && old.mapped != 0) {
            // The old pages moved (grown or cut to the new length). Bytes past
            // the old length up to the old pages' end may hold what an
            // earlier, longer block left there: zeroed; pages past that are
            // new and read zero.
            if (newSize > old.length)
                std::memset(at + old.length, 0, std::min<size_t>(newSize, old.mapped) - old.length);
        } else {
            std::memcpy(at, old.data, kept);
            releaseData(old.data, old.mapped);
        }
        data = at;
        mapped = len;
        return true;
    };
    // Pages that cannot be had (address space, mapping count) leave the heap.
    if (!(newSize >= kMappedFrom && place(true)) && !place(false)) {
        t.freeSlots.push_front(slot);
        return failedReAlloc(handle, newSize);
    }
    // The old handle is retired; its bytes were moved or freed above.
    t.byData.erase(old.data);
    releaseSlot((handle & kSlotMask) - 1);
    Slot &s = t.slots[slot];
    s.data = data;
    s.length = newSize;
    s.flags = flags;
    s.live = true;
    s.wrapped = false;
    s.mapped = mapped;
    ++t.live;
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
