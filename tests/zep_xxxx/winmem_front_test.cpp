// Blocks that end with another block's bytes (rows put in front of a picture
// without a copy): what they show, and that every order of freeing and
// re-allocating the two leaves both whole.
#include <gtest/gtest.h>
#include <mivo4/memory.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "zep_xxxx/memdebug.h"
#include "zep_xxxx/meminternal.h"

namespace {

using mivo4::mem::ExtendInFront;
using mivo4::mem::LiveHandles;

constexpr uint32_t kLarge = 3u << 20;  // a new block of this size has room in front

class FrontView : public ::testing::Test {
protected:
    void SetUp() override { before_ = LiveHandles(); }
    void TearDown() override { EXPECT_EQ(LiveHandles(), before_) << "no handle leaked"; }

    // A large block whose byte i holds pattern(i).
    static ZHANDLE patterned(uint32_t size) {
        ZHANDLE h = GlobalAlloc(GHND, size);
        auto *p = static_cast<uint8_t *>(GlobalLock(h));
        for (uint32_t i = 0; i < size; ++i) p[i] = pattern(i);
        return h;
    }
    static uint8_t pattern(uint32_t i) { return static_cast<uint8_t>(i * 31 + (i >> 9)); }

    // True when the view's bytes are `front` zeros and then pattern(0...).
    static bool showsZerosThenPattern(ZHANDLE view, uint32_t front) {
        const auto *p = static_cast<const uint8_t *>(GlobalLock(view));
        if (p == nullptr) return false;
        for (uint32_t i = 0; i < GlobalSize(view); ++i)
            if (p[i] != (i < front ? 0 : pattern(i - front))) return false;
        return true;
    }

    uint32_t before_ = 0;
};

TEST_F(FrontView, ViewIsZerosInFrontThenTheBlocksOwnBytes) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = true;
    ZHANDLE view = ExtendInFront(block, 1244, kLarge + 1244, &noRoom);
    ASSERT_FALSE(noRoom);
    ASSERT_NE(view, 0u);
    EXPECT_EQ(GlobalSize(view), kLarge + 1244);
    EXPECT_TRUE(showsZerosThenPattern(view, 1244));
    // The same memory, not a copy: the data lies right in front of the block's.
    EXPECT_EQ(static_cast<uint8_t *>(GlobalLock(view)) + 1244, GlobalLock(block));
    EXPECT_EQ(GlobalHandle(GlobalLock(view)), view);
    EXPECT_EQ(GlobalHandle(GlobalLock(block)), block);
    static_cast<uint8_t *>(GlobalLock(block))[5] = 0xEE;
    EXPECT_EQ(static_cast<uint8_t *>(GlobalLock(view))[1244 + 5], 0xEE);
    GlobalFree(view);
    GlobalFree(block);
}

TEST_F(FrontView, ViewMayBeShorterThanTheBlockAndSpanSeveralPages) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = true;
    const uint32_t front = 196608;  // one row of 65535 pixels at 24 bits
    ZHANDLE view = ExtendInFront(block, front, front + 5000, &noRoom);
    ASSERT_NE(view, 0u);
    EXPECT_TRUE(showsZerosThenPattern(view, front));
    GlobalFree(view);
    GlobalFree(block);
}

TEST_F(FrontView, BlockFreedFirstLeavesTheViewItsBytes) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = true;
    ZHANDLE view = ExtendInFront(block, 8, kLarge + 8, &noRoom);
    ASSERT_NE(view, 0u);
    GlobalFree(block);
    EXPECT_EQ(GlobalLock(block), nullptr);
    EXPECT_TRUE(showsZerosThenPattern(view, 8));
    GlobalFree(view);
}

TEST_F(FrontView, ViewFreedFirstLeavesTheBlockWholeAndTheRoomForAnotherView) {
    ZHANDLE block = patterned(kLarge);
    for (int round = 0; round < 3; ++round) {
        bool noRoom = true;
        ZHANDLE view = ExtendInFront(block, 4096 + 4, kLarge + 4096 + 4, &noRoom);
        ASSERT_NE(view, 0u) << round;
        // The room was emptied: the rows in front read zero again.
        EXPECT_TRUE(showsZerosThenPattern(view, 4096 + 4)) << round;
        std::memset(GlobalLock(view), 0x77, 4096 + 4);
        GlobalFree(view);
    }
    const auto *p = static_cast<const uint8_t *>(GlobalLock(block));
    for (uint32_t i = 0; i < kLarge; ++i) ASSERT_EQ(p[i], pattern(i)) << i;
    GlobalFree(block);
}

TEST_F(FrontView, OnlyOneViewAtATimeAndOnlyWhereThereIsRoom) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = false;
    ZHANDLE view = ExtendInFront(block, 16, kLarge + 16, &noRoom);
    ASSERT_NE(view, 0u);
    EXPECT_EQ(ExtendInFront(block, 16, kLarge + 16, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "a second view";
    EXPECT_EQ(ExtendInFront(view, 16, 32, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "a view of a view";
    GlobalFree(view);

    EXPECT_EQ(ExtendInFront(block, 300 * 1024, kLarge + 300 * 1024, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "more than the room in front";
    EXPECT_EQ(ExtendInFront(block, 16, kLarge + 17, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "past the block's own length";
    EXPECT_EQ(ExtendInFront(block, 0, kLarge, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "nothing in front";
    EXPECT_EQ(ExtendInFront(0, 16, 32, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "no block";

    ZHANDLE small = GlobalAlloc(GHND, 1000);
    EXPECT_EQ(ExtendInFront(small, 16, 1016, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "a block on the heap";
    GlobalFree(small);

    // A block that has moved has left its room behind.
    ZHANDLE moved = GlobalReAlloc(block, kLarge + 5000, GHND);
    ASSERT_NE(moved, 0u);
    EXPECT_EQ(ExtendInFront(moved, 16, 32, &noRoom), 0u);
    EXPECT_TRUE(noRoom) << "a re-allocated block";
    GlobalFree(moved);
}

TEST_F(FrontView, ReAllocatingTheBlockCopiesItAndLeavesTheViewAsItWas) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = true;
    ZHANDLE view = ExtendInFront(block, 12, kLarge + 12, &noRoom);
    ASSERT_NE(view, 0u);
    ZHANDLE grown = GlobalReAlloc(block, kLarge + 100, GHND);
    ASSERT_NE(grown, 0u);
    EXPECT_EQ(GlobalLock(block), nullptr) << "the old handle is dead";
    const auto *g = static_cast<const uint8_t *>(GlobalLock(grown));
    for (uint32_t i = 0; i < kLarge + 100; ++i) ASSERT_EQ(g[i], i < kLarge ? pattern(i) : 0) << i;
    EXPECT_TRUE(showsZerosThenPattern(view, 12));
    GlobalFree(grown);
    EXPECT_TRUE(showsZerosThenPattern(view, 12));
    GlobalFree(view);
}

TEST_F(FrontView, ReAllocatingTheViewCopiesItAndLeavesTheBlockAsItWas) {
    ZHANDLE block = patterned(kLarge);
    bool noRoom = true;
    ZHANDLE view = ExtendInFront(block, 12, 12 + 4000, &noRoom);
    ASSERT_NE(view, 0u);
    ZHANDLE copy = GlobalReAlloc(view, 6000, GHND);
    ASSERT_NE(copy, 0u);
    EXPECT_EQ(GlobalLock(view), nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(GlobalLock(copy)) % 8, 0u);
    const auto *c = static_cast<const uint8_t *>(GlobalLock(copy));
    for (uint32_t i = 0; i < 6000; ++i) ASSERT_EQ(c[i], i < 12 ? 0 : i < 4012 ? pattern(i - 12) : 0) << i;
    const auto *p = static_cast<const uint8_t *>(GlobalLock(block));
    for (uint32_t i = 0; i < kLarge; ++i) ASSERT_EQ(p[i], pattern(i)) << i;
    GlobalFree(copy);
    // The room is free again.
    view = ExtendInFront(block, 12, 24, &noRoom);
    EXPECT_NE(view, 0u);
    GlobalFree(view);
    GlobalFree(block);
}

TEST_F(FrontView, AViewCountsAsOneAllocationAndFailsLikeOne) {
    ZHANDLE block = patterned(kLarge);
    const uint64_t count = mivo4::mem::AllocationCount();
    bool noRoom = true;
    mivo4::mem::FailNth(1);
    EXPECT_EQ(ExtendInFront(block, 12, kLarge + 12, &noRoom), 0u);
    EXPECT_FALSE(noRoom) << "a failure, not a refusal";
    EXPECT_FALSE(mivo4::mem::FailurePending());
    EXPECT_EQ(mivo4::mem::AllocationCount(), count + 1);
    ZHANDLE view = ExtendInFront(block, 12, kLarge + 12, &noRoom);
    EXPECT_NE(view, 0u) << "the room was left as it was";
    EXPECT_EQ(mivo4::mem::AllocationCount(), count + 2);
    GlobalFree(view);
    GlobalFree(block);
}

// Pages in place for a block about to be written whole: every page resident
// at once, no byte changed.
TEST_F(FrontView, APrefaultedBlockHasItsPagesInPlaceAndStillReadsZero) {
    const long page = sysconf(_SC_PAGESIZE);
    ZHANDLE block = GlobalAlloc(GHND, kLarge);
    auto *p = static_cast<uint8_t *>(GlobalLock(block));
    std::vector<unsigned char> resident(kLarge / static_cast<size_t>(page));
    auto count = [&] {
        mincore(p, kLarge, resident.data());
        size_t n = 0;
        for (unsigned char r : resident) n += r & 1u;
        return n;
    };
    const size_t before = count();
    mivo4::mem::Prefault(block);
    const size_t after = count();
    if (after == before && before < resident.size()) {
        GlobalFree(block);
        GTEST_SKIP() << "this system puts no pages in place ahead of writes";
    }
    EXPECT_EQ(after, resident.size());
    EXPECT_EQ(GlobalSize(block), kLarge);
    for (uint32_t i = 0; i < kLarge; ++i) ASSERT_EQ(p[i], 0) << i;
    mivo4::mem::Prefault(0);  // no block: nothing
    GlobalFree(block);
}

// A stretch of a block put in place ahead of a writer: the pages that hold the
// stretch (from a byte within a page) and no others, clamped to the block's
// length, with its written bytes kept.
TEST_F(FrontView, APartOfABlockPutInPlaceTakesOnlyThePagesThatHoldIt) {
    const auto page = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
    ZHANDLE block = GlobalAlloc(GHND, kLarge);
    auto *p = static_cast<uint8_t *>(GlobalLock(block));
    p[0] = 7;  // the first page is written, the rest untouched
    std::vector<unsigned char> resident(kLarge / page);
    auto residentPages = [&] {
        mincore(p, kLarge, resident.data());
        std::vector<uint32_t> in;
        for (uint32_t i = 0; i < resident.size(); ++i)
            if (resident[i] & 1u) in.push_back(i);
        return in;
    };
    mivo4::mem::Prefault(block, 3 * page + 100, 5 * page + 1);
    const std::vector<uint32_t> in = residentPages();
    if (in.size() == 1) {
        GlobalFree(block);
        GTEST_SKIP() << "this system puts no pages in place ahead of writes";
    }
    EXPECT_EQ(in, (std::vector<uint32_t>{0, 3, 4, 5}));
    // Past the end: clamped to the block, the last page taken.
    mivo4::mem::Prefault(block, kLarge - 10, UINT32_MAX);
    EXPECT_EQ(residentPages().back(), kLarge / page - 1);
    EXPECT_EQ(residentPages().size(), 5u);
    mivo4::mem::Prefault(block, 10, 10);  // nothing to put in place
    EXPECT_EQ(residentPages().size(), 5u);
    EXPECT_EQ(p[0], 7);
    for (uint32_t i = 1; i < kLarge; ++i) ASSERT_EQ(p[i], 0) << i;
    GlobalFree(block);
}

// A block of a megabyte or more that grows gets a range of whole 2 MiB page
// tables, so that every later move of its pages moves whole tables: the
// mapping that holds it starts at such a boundary and is a whole number of
// them long.
TEST_F(FrontView, AGrownLargeBlockLiesInWholePageTables) {
    constexpr uintptr_t kTable = uintptr_t{2} << 20;
    ZHANDLE h = GlobalAlloc(GHND, 1u << 20);
    ZHANDLE g = GlobalReAlloc(h, (1u << 20) + 5000, GHND);
    ASSERT_NE(g, 0u);
    const auto at = reinterpret_cast<uintptr_t>(GlobalLock(g));
    std::ifstream maps("/proc/self/maps");
    bool found = false;
    for (std::string line; std::getline(maps, line);) {
        uintptr_t from = 0, to = 0;
        char dash = 0;
        std::istringstream in(line);
        in >> std::hex >> from >> dash >> to;
        if (at < from || at >= to) continue;
        found = true;
        EXPECT_EQ(from % kTable, 0u) << line;
        EXPECT_EQ((to - from) % kTable, 0u) << line;
    }
    EXPECT_TRUE(found);
    GlobalFree(g);
}

}  // namespace
