// Blocks in pages of their own: reserving aligned address space and moving
// pages between addresses.
#include "zep_xxxx/winpages.h"

#include <algorithm>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#ifndef MREMAP_DONTUNMAP
#define MREMAP_DONTUNMAP 4  // Linux 5.7 and later
#endif

namespace mivo4::mem {

namespace {

constexpr size_t kTableSpan = size_t{2} << 20;

size_t pageSize() {
    static const size_t size = [] {
        long p = sysconf(_SC_PAGESIZE);
        return p > 0 ? static_cast<size_t>(p) : size_t{4096};
    }();
    return size;
}

}  // namespace

size_t PageRound(size_t bytes) {
    const size_t page = pageSize();
    return (std::max<size_t>(bytes, 1) + page - 1) / page * page;
}

size_t TableRound(size_t bytes) { return (std::max<size_t>(bytes, 1) + kTableSpan - 1) / kTableSpan * kTableSpan; }

uint8_t *ReserveAligned(size_t len) { return ReserveAligned(len, 0); }

uint8_t *ReserveAligned(size_t len, size_t front) {
    const size_t span = front + len + kTableSpan;
    void *p = mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    const auto start = reinterpret_cast<uintptr_t>(p);
    const uintptr_t aligned = (start + front + kTableSpan - 1) & ~uintptr_t{kTableSpan - 1};
    if (aligned - front > start) munmap(p, aligned - front - start);
    const uintptr_t end = start + span, used = aligned + len;
    if (end > used) munmap(reinterpret_cast<void *>(used), end - used);
    return reinterpret_cast<uint8_t *>(aligned);
}

void ReleasePages(const Pages &p) {
    if (p.data != nullptr) munmap(p.data - p.front, p.front + p.capacity);
    if (p.spare != nullptr) munmap(p.spare, p.capacity);
}

void ReleaseFront(Pages &p) {
    if (p.data != nullptr && p.front != 0) munmap(p.data - p.front, p.front);
    p.front = 0;
}

uint8_t *MapFront(const Pages &p, size_t bytes) {
    if (p.data == nullptr || bytes == 0 || bytes > p.front) return nullptr;
    const size_t whole = PageRound(bytes);
    if (mmap(p.data - whole, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
        MAP_FAILED)
        return nullptr;
    return p.data - bytes;
}

void UnmapFront(const Pages &p) {
    if (p.data == nullptr || p.front == 0) return;
    // Back to bare address space, so that the room stays ours for the next time.
    mmap(p.data - p.front, p.front, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0);
}

void ClearRange(uint8_t *data, size_t from, size_t to) {
    if (to <= from) return;
    const size_t page = pageSize();
    const size_t whole = (from + page - 1) / page * page;
    std::memset(data + from, 0, std::min(to, whole) - from);
    if (to > whole) {
        // Private pages given back read zero when next touched.
        const size_t end = (to + page - 1) / page * page;
        if (madvise(data + whole, end - whole, MADV_DONTNEED) != 0) std::memset(data + whole, 0, to - whole);
    }
}

bool MoveToSpare(Pages &p) {
    if (p.spare == nullptr) return false;
    // The source range stays mapped, holding nothing: the next spare.
    void *moved = mremap(p.data, p.capacity, p.capacity, MREMAP_MAYMOVE | MREMAP_FIXED | MREMAP_DONTUNMAP, p.spare);
    if (moved == MAP_FAILED) return false;
    std::swap(p.data, p.spare);
    return true;
}

bool MoveTo(Pages &p, uint8_t *at, size_t capacity) {
    if (mremap(p.data, p.capacity, capacity, MREMAP_MAYMOVE | MREMAP_FIXED, at) == MAP_FAILED) return false;
    if (p.spare != nullptr) munmap(p.spare, p.capacity);
    p = Pages{at, capacity, nullptr};
    return true;
}

void Populate(uint8_t *data, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
    if (bytes == 0) return;
    // Whole pages from the one that holds the first byte.
    const uintptr_t page = pageSize();
    const uintptr_t from = reinterpret_cast<uintptr_t>(data) & ~(page - 1);
    const uintptr_t to = (reinterpret_cast<uintptr_t>(data) + bytes + page - 1) & ~(page - 1);
    madvise(reinterpret_cast<void *>(from), to - from, MADV_POPULATE_WRITE);
#else
    (void)data, (void)bytes;
#endif
}

bool MapFresh(uint8_t *at, size_t capacity) {
    return mmap(at, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

}  // namespace mivo4::mem
