// Handle-based memory: the promises of the handle model, stale-handle safety
// and allocation-failure injection.
#include <gtest/gtest.h>
#include <mivo4/memory.h>

#include <cstring>
#include <random>
#include <vector>

#include "zep_xxxx/memdebug.h"

namespace {

using mivo4::mem::FailNth;
using mivo4::mem::FailurePending;
using mivo4::mem::LiveHandles;

TEST(Memory, ZeroLengthBlockIsAllocatedWithSizeZero) {
    ZHANDLE h = GlobalAlloc(GHND, 0);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 0u);
    EXPECT_NE(GlobalLock(h), nullptr);
    GlobalFree(h);
}

TEST(Memory, ZeroLengthPointerAllocationReturnsNullWithoutAllocating) {
    uint32_t before = LiveHandles();
    uint64_t allocations = mivo4::mem::AllocationCount();
    EXPECT_EQ(zepPtrGlobalAlloc(0), nullptr);
    EXPECT_EQ(LiveHandles(), before);
    EXPECT_EQ(mivo4::mem::AllocationCount(), allocations);
}

TEST(Memory, DataIsEightByteAlignedAndHandleRoundTrips) {
    std::vector<ZHANDLE> handles;
    for (uint32_t size = 0; size < 200; ++size) {
        ZHANDLE h = GlobalAlloc(GHND, size);
        ASSERT_NE(h, 0u);
        void *p = GlobalLock(h);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u) << size;
        EXPECT_EQ(GlobalHandle(p), h) << size;
        EXPECT_EQ(GlobalSize(h), size);
        handles.push_back(h);
    }
    for (ZHANDLE h : handles) GlobalFree(h);
}

TEST(Memory, EveryByteOfANewBlockIsZeroWhateverTheFlags) {
    for (uint32_t flags : {0u, 2u, 64u, 66u, 0xFFFFFFFFu}) {
        // Dirty the heap first so that zero-filling is really exercised.
        void *dirty = zepPtrGlobalAlloc(4096);
        std::memset(dirty, 0xA5, 4096);
        zepPtrGlobalFree(dirty);
        ZHANDLE h = GlobalAlloc(flags, 4096);
        auto *p = static_cast<unsigned char *>(GlobalLock(h));
        for (int i = 0; i < 4096; ++i) ASSERT_EQ(p[i], 0) << "flags " << flags << " byte " << i;
        GlobalFree(h);
    }
}

TEST(Memory, ALargeNewBlockIsZeroAndKeepsItsBytesThroughReAllocation) {
    // From a megabyte a new block starts in pages of its own: it must read
    // zero, at every offset, and keep what is written when it grows.
    for (uint32_t size : {(1u << 20) - 1, 1u << 20, (1u << 20) + 1, (8u << 20) - 1, 8u << 20, (9u << 20) + 12345}) {
        ZHANDLE h = GlobalAlloc(GHND, size);
        ASSERT_NE(h, 0u);
        auto *p = static_cast<unsigned char *>(GlobalLock(h));
        for (uint32_t i = 0; i < size; i += 4093) ASSERT_EQ(p[i], 0) << size << " byte " << i;
        ASSERT_EQ(p[size - 1], 0);
        for (uint32_t i = 0; i < size; i += 4093) p[i] = static_cast<unsigned char>(i * 7 + 1);
        GlobalUnlock(h);
        ZHANDLE g = GlobalReAlloc(h, size + 70000, GHND);
        ASSERT_NE(g, 0u);
        p = static_cast<unsigned char *>(GlobalLock(g));
        for (uint32_t i = 0; i < size; i += 4093) ASSERT_EQ(p[i], static_cast<unsigned char>(i * 7 + 1)) << i;
        for (uint32_t i = size; i < size + 70000; ++i) ASSERT_EQ(p[i], 0) << i;
        EXPECT_EQ(GlobalSize(g), size + 70000);
        GlobalFree(g);
    }
}

TEST(Memory, GrowingKeepsContentAndZeroesTheRest) {
    ZHANDLE h = GlobalAlloc(GHND, 10);
    std::memset(GlobalLock(h), 0x5A, 10);
    ZHANDLE g = GlobalReAlloc(h, 100, GHND);
    ASSERT_NE(g, 0u);
    auto *p = static_cast<unsigned char *>(GlobalLock(g));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(p[i], 0x5A);
    for (int i = 10; i < 100; ++i) EXPECT_EQ(p[i], 0);
    EXPECT_EQ(GlobalSize(g), 100u);
    GlobalFree(g);
}

TEST(Memory, ShrinkingKeepsTheFirstBytes) {
    ZHANDLE h = GlobalAlloc(GHND, 100);
    auto *p = static_cast<unsigned char *>(GlobalLock(h));
    for (int i = 0; i < 100; ++i) p[i] = static_cast<unsigned char>(i);
    ZHANDLE g = GlobalReAlloc(h, 10, GHND);
    ASSERT_NE(g, 0u);
    auto *q = static_cast<unsigned char *>(GlobalLock(g));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(q[i], i);
    EXPECT_EQ(GlobalSize(g), 10u);
    GlobalFree(g);
}

TEST(Memory, ReAllocationAlwaysMovesAndReleasesTheOldHandle) {
    ZHANDLE h = GlobalAlloc(GHND, 16);
    void *old = GlobalLock(h);
    ZHANDLE g = GlobalReAlloc(h, 16, GHND);
    ASSERT_NE(g, 0u);
    EXPECT_NE(g, h);
    EXPECT_EQ(GlobalLock(h), nullptr);
    EXPECT_EQ(GlobalHandle(old), 0u) << "the old data pointer is dead";
    GlobalFree(g);
}

TEST(Memory, FailedReAllocationReturnsZeroAndReleasesTheOldHandle) {
    uint32_t before = LiveHandles();
    ZHANDLE h = GlobalAlloc(GHND, 10);
    FailNth(1);
    EXPECT_EQ(GlobalReAlloc(h, 100, GHND), 0u);
    EXPECT_FALSE(FailurePending());
    EXPECT_EQ(GlobalLock(h), nullptr);
    EXPECT_EQ(LiveHandles(), before);
}

// Bytes of a pattern that tells every position apart.
unsigned char patternAt(size_t i) { return static_cast<unsigned char>((i * 131u + (i >> 8)) | 1u); }

TEST(Memory, GrowingInSmallStepsToMegabytesKeepsEveryPromiseAtEveryStep) {
    // As the coder grows its output: 5000 bytes at a time, writing the new
    // bytes after each step. Every step moves the block, keeps what was
    // written, zeroes what is new, and counts as one allocation.
    uint32_t before = LiveHandles();
    ZHANDLE h = GlobalAlloc(GHND, 5000);
    auto *p = static_cast<unsigned char *>(GlobalLock(h));
    for (size_t i = 0; i < 5000; ++i) p[i] = patternAt(i);
    uint32_t size = 5000;
    while (size < 3u * 1024 * 1024) {
        const uint64_t allocations = mivo4::mem::AllocationCount();
        ZHANDLE g = GlobalReAlloc(h, size + 5000, GHND);
        ASSERT_NE(g, 0u) << size;
        EXPECT_EQ(mivo4::mem::AllocationCount(), allocations + 1) << size;
        ASSERT_NE(g, h);
        EXPECT_EQ(GlobalLock(h), nullptr) << size;
        EXPECT_EQ(GlobalHandle(p), 0u) << "the old data pointer is dead at " << size;
        auto *q = static_cast<unsigned char *>(GlobalLock(g));
        ASSERT_NE(q, p) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 8, 0u);
        EXPECT_EQ(GlobalHandle(q), g);
        EXPECT_EQ(GlobalSize(g), size + 5000);
        // The last bytes written are kept; the new ones read zero.
        for (size_t i = size - 100; i < size; ++i) ASSERT_EQ(q[i], patternAt(i)) << size;
        for (size_t i = size; i < size + 5000; ++i) ASSERT_EQ(q[i], 0) << size;
        for (size_t i = size; i < size + 5000; ++i) q[i] = patternAt(i);
        h = g;
        p = q;
        size += 5000;
    }
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(p[i], patternAt(i)) << i;
    GlobalFree(h);
    EXPECT_EQ(LiveHandles(), before);
}

TEST(Memory, BytesRegainedAfterShrinkingALargeBlockReadZero) {
    for (uint32_t cut : {100000u, 100003u, 131072u, 40000u, 1u}) {
        ZHANDLE h = GlobalAlloc(GHND, 300000);
        std::memset(GlobalLock(h), 0xAA, 300000);
        h = GlobalReAlloc(h, 400000, GHND);
        ASSERT_NE(h, 0u);
        std::memset(GlobalLock(h), 0xBB, 400000);
        ZHANDLE small = GlobalReAlloc(h, cut, GHND);
        ASSERT_NE(small, 0u);
        EXPECT_EQ(GlobalSize(small), cut);
        ZHANDLE big = GlobalReAlloc(small, 500000, GHND);
        ASSERT_NE(big, 0u);
        auto *p = static_cast<unsigned char *>(GlobalLock(big));
        for (uint32_t i = 0; i < cut; ++i) ASSERT_EQ(p[i], 0xBB) << cut << " " << i;
        for (uint32_t i = cut; i < 500000; ++i) ASSERT_EQ(p[i], 0) << cut << " " << i;
        GlobalFree(big);
    }
}

TEST(Memory, RandomReAllocationsMatchAPlainModelOfTheBytes) {
    // Growing, shrinking, small steps and jumps, across the heap and paged
    // sizes: after every call the block holds what a fresh copy would (the
    // common length kept, the rest zero) and has moved.
    std::mt19937 rng(616);
    const uint32_t before = LiveHandles();
    std::vector<unsigned char> model(1000, 0);
    ZHANDLE h = GlobalAlloc(GHND, 1000);
    for (int step = 0; step < 400; ++step) {
        auto *p = static_cast<unsigned char *>(GlobalLock(h));
        // Scribble over the block, the model alike.
        for (int k = 0; k < 64 && !model.empty(); ++k) {
            size_t at = rng() % model.size();
            p[at] = model[at] = static_cast<unsigned char>(rng() | 1u);
        }
        if (!model.empty()) p[model.size() - 1] = model.back() = 0x7F;
        const size_t now = model.size();
        size_t next = 0;
        switch (rng() % 6) {
        case 0: next = now + 5000; break;
        case 1: next = now + rng() % 300000; break;
        case 2: next = now - std::min<size_t>(now, rng() % 5000); break;
        case 3: next = now / (2 + rng() % 6); break;
        case 4: next = rng() % 70000; break;
        default: next = 60000 + rng() % 10000; break;
        }
        ZHANDLE g = GlobalReAlloc(h, static_cast<uint32_t>(next), GHND);
        ASSERT_NE(g, 0u) << step;
        ASSERT_NE(g, h);
        ASSERT_EQ(GlobalLock(h), nullptr);
        auto *q = static_cast<unsigned char *>(GlobalLock(g));
        ASSERT_NE(q, p) << "step " << step << ": " << now << " -> " << next;
        EXPECT_EQ(GlobalHandle(p), 0u);
        EXPECT_EQ(GlobalHandle(q), g);
        ASSERT_EQ(GlobalSize(g), next);
        model.resize(next, 0);
        ASSERT_EQ(std::memcmp(q, model.data(), next), 0) << "step " << step << ": " << now << " -> " << next;
        h = g;
    }
    GlobalFree(h);
    EXPECT_EQ(LiveHandles(), before);
}

TEST(Memory, ALargeBlockShrunkToAFewBytesKeepsThem) {
    ZHANDLE h = GlobalAlloc(GHND, 10);
    h = GlobalReAlloc(h, 1u << 20, GHND);
    ASSERT_NE(h, 0u);
    auto *p = static_cast<unsigned char *>(GlobalLock(h));
    for (int i = 0; i < 64; ++i) p[i] = static_cast<unsigned char>(i + 1);
    ZHANDLE g = GlobalReAlloc(h, 64, GHND);
    ASSERT_NE(g, 0u);
    auto *q = static_cast<unsigned char *>(GlobalLock(g));
    for (int i = 0; i < 64; ++i) EXPECT_EQ(q[i], i + 1);
    EXPECT_EQ(GlobalSize(g), 64u);
    ZHANDLE empty = GlobalReAlloc(g, 0, GHND);
    ASSERT_NE(empty, 0u);
    EXPECT_EQ(GlobalSize(empty), 0u);
    GlobalFree(empty);
}

TEST(Memory, AFailedReAllocationOfALargeBlockReleasesItAndLeaksNothing) {
    uint32_t before = LiveHandles();
    for (uint32_t from : {10u, 70000u, 2000000u})
        for (uint32_t to : {20u, 80000u, 3000000u}) {
            ZHANDLE h = GlobalAlloc(GHND, from);
            h = GlobalReAlloc(h, from, GHND);  // now in its own pages when large
            ASSERT_NE(h, 0u);
            FailNth(1);
            testing::internal::CaptureStderr();
            EXPECT_EQ(GlobalReAlloc(h, to, GHND), 0u) << from << " -> " << to;
            testing::internal::GetCapturedStderr();
            EXPECT_FALSE(FailurePending());
            EXPECT_EQ(GlobalLock(h), nullptr);
            EXPECT_EQ(LiveHandles(), before) << from << " -> " << to;
            // The next one succeeds again.
            ZHANDLE k = GlobalAlloc(GHND, from);
            ZHANDLE g = GlobalReAlloc(k, to, GHND);
            ASSERT_NE(g, 0u);
            EXPECT_EQ(GlobalSize(g), to);
            GlobalFree(g);
        }
    EXPECT_EQ(LiveHandles(), before);
}

TEST(Memory, AWrappedPointerReAllocatesIntoABlockOfItsOwn) {
    unsigned char mine[16] = {9, 8, 7};
    ZHANDLE h = GlobalPointerToHandle(mine, sizeof mine);
    ZHANDLE g = GlobalReAlloc(h, 100000, GHND);
    ASSERT_NE(g, 0u);
    auto *p = static_cast<unsigned char *>(GlobalLock(g));
    EXPECT_NE(p, mine);
    EXPECT_EQ(p[2], 7);
    EXPECT_EQ(p[50000], 0);
    EXPECT_EQ(mine[0], 9) << "the wrapped memory is left alone";
    GlobalFree(g);
}

TEST(Memory, CompactReportsMinFreeOrSixtyFourKilobytes) {
    EXPECT_EQ(GlobalCompact(0), 65536u);
    EXPECT_EQ(GlobalCompact(5), 5u);
}

TEST(Memory, UnlockReturnsZeroAfterAnyNumberOfLocks) {
    ZHANDLE h = GlobalAlloc(GHND, 8);
    for (int i = 0; i < 5; ++i) GlobalLock(h);
    EXPECT_EQ(GlobalUnlock(h), 0);
    EXPECT_EQ(GlobalUnlock(h), 0);
    EXPECT_NE(GlobalLock(h), nullptr) << "a block may be used after any number of unlocks";
    GlobalFree(h);
}

TEST(Memory, FreeReturnsZeroAndALockedBlockMayBeFreed) {
    ZHANDLE h = GlobalAlloc(GHND, 8);
    GlobalLock(h);
    EXPECT_EQ(GlobalFree(h), 0);
    EXPECT_EQ(GlobalLock(h), nullptr);
}

TEST(Memory, StaleAndForeignHandlesLockToNullAndFreeNothing) {
    ZHANDLE keep = GlobalAlloc(GHND, 8);
    ZHANDLE h = GlobalAlloc(GHND, 8);
    GlobalFree(h);
    uint32_t before = LiveHandles();
    for (ZHANDLE bad : {h, 0u, 0xFFFFFFFFu, 0x12345678u, keep ^ 0x80000000u}) {
        EXPECT_EQ(GlobalLock(bad), nullptr) << bad;
        EXPECT_EQ(GlobalFree(bad), 0) << bad;
        EXPECT_EQ(GlobalSize(bad), 0u) << bad;
        EXPECT_EQ(GlobalReAlloc(bad, 10, GHND), 0u) << bad;
    }
    EXPECT_EQ(LiveHandles(), before);
    EXPECT_NE(GlobalLock(keep), nullptr);
    GlobalFree(keep);
}

TEST(Memory, ReusedSlotDoesNotReviveAStaleHandle) {
    ZHANDLE h = GlobalAlloc(GHND, 8);
    GlobalFree(h);
    std::vector<ZHANDLE> fresh;
    for (int i = 0; i < 1000; ++i) fresh.push_back(GlobalAlloc(GHND, 8));
    EXPECT_EQ(GlobalLock(h), nullptr);
    for (ZHANDLE f : fresh) {
        EXPECT_NE(f, h);
        GlobalFree(f);
    }
}

TEST(Memory, HandleOfNullOrUnknownPointerIsZero) {
    EXPECT_EQ(GlobalHandle(nullptr), 0u);
    int local = 0;
    EXPECT_EQ(GlobalHandle(&local), 0u);
    EXPECT_EQ(zepPtrGlobalHandle(&local), 0u);
}

TEST(Memory, WrappedPointerLocksBackAndFreeLeavesTheMemory) {
    unsigned char mine[32] = {1, 2, 3};
    ZHANDLE h = GlobalPointerToHandle(mine, sizeof mine);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalLock(h), mine);
    EXPECT_EQ(GlobalSize(h), 32u);
    EXPECT_EQ(GlobalFree(h), 0);
    EXPECT_EQ(GlobalLock(h), nullptr);
    EXPECT_EQ(mine[2], 3) << "the wrapped memory is the caller's";
}

TEST(Memory, FailedAllocationReturnsZeroAndPrintsTheNeed) {
    FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(GlobalAlloc(GHND, 100), 0u);
    std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "GlobalAlloc function failed due to insufficient memory: needs 128 bytes memory!!\n");
}

TEST(Memory, InjectedFailureHitsExactlyTheNthAllocation) {
    FailNth(3);
    ZHANDLE a = GlobalAlloc(GHND, 1);
    ZHANDLE b = GlobalAlloc(GHND, 1);
    EXPECT_TRUE(FailurePending());
    testing::internal::CaptureStderr();
    ZHANDLE c = GlobalAlloc(GHND, 1);
    testing::internal::GetCapturedStderr();
    ZHANDLE d = GlobalAlloc(GHND, 1);
    EXPECT_NE(a, 0u);
    EXPECT_NE(b, 0u);
    EXPECT_EQ(c, 0u);
    EXPECT_NE(d, 0u);
    EXPECT_FALSE(FailurePending());
    for (ZHANDLE h : {a, b, d}) GlobalFree(h);
}

TEST(Memory, PointerLayerAllocatesFreesAndReAllocates) {
    uint32_t before = LiveHandles();
    auto *p = static_cast<unsigned char *>(zepPtrGlobalAlloc(4));
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "abcd", 4);
    auto *q = static_cast<unsigned char *>(zepPtrGlobalReAlloc(p, 8, GHND));
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(std::memcmp(q, "abcd\0\0\0\0", 8), 0);
    EXPECT_EQ(zepPtrGlobalReAlloc(q, 0, GHND), nullptr) << "size 0 frees";
    EXPECT_EQ(LiveHandles(), before);
    auto *r = zepPtrGlobalReAlloc(nullptr, 5, 0);
    ASSERT_NE(r, nullptr) << "a null pointer reallocates as a fresh allocation";
    EXPECT_EQ(zepPtrGlobalFree(r), 0u);
    EXPECT_EQ(zepPtrGlobalFree(nullptr), 0u);
    EXPECT_EQ(LiveHandles(), before);
}

TEST(Memory, DriverGlobalBlockWithHostCommonDataIsLeftUntouched) {
    ASSERT_EQ(hEMData, 0u);
    hCommon = 7;
    EXPECT_EQ(AllocGlobal(0), 0);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(lpEMData, nullptr);
    hCommon = 0;
}

TEST(Memory, DriverGlobalBlockIsAllocatedLockedAndFreed) {
    uint32_t before = LiveHandles();
    EXPECT_EQ(AllocGlobal(0), 0);
    ASSERT_NE(hEMData, 0u);
    EXPECT_EQ(lpEMData, GlobalLock(hEMData));
    EXPECT_GE(GlobalSize(hEMData), 1224u);
    EXPECT_EQ(LockGlobal(1), 0);
    EXPECT_EQ(UnlockGlobal(1), 0);
    EXPECT_EQ(FreeGlobal(0), 0);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(FreeGlobal(0), 0) << "freeing twice does nothing";
    EXPECT_EQ(LiveHandles(), before);
}

}  // namespace
