// The colour library's memory helpers.
#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "zep_xxxx/memdebug.h"

namespace {

TEST(RastMem, GetMemoryAllocatesCountTimesSizeZeroFilled) {
    uint32_t live = mivo4::mem::LiveHandles();
    ZHANDLE h = rlGetMemory(3, 10);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 30u);
    auto *p = static_cast<uint8_t *>(rlLockMemory(h));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(p[i], 0);
    EXPECT_EQ(rlPointertoHandle(p), h);
    EXPECT_EQ(rlUnlockMemory(h), 0);
    EXPECT_EQ(rlFreeNewData(h), 1);
    EXPECT_EQ(mivo4::mem::LiveHandles(), live);
}

TEST(RastMem, CountIsSixteenBitsWide) {
    ZHANDLE h = rlGetMemory(32767, 2);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 65534u);
    rlFreeNewData(h);
}

TEST(RastMem, ZeroCountGivesAnEmptyBlock) {
    ZHANDLE h = rlGetMemory(0, 100);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 0u);
    rlFreeNewData(h);
}

TEST(RastMem, NegativeCountOrSizeGivesNoBlock) {
    uint32_t live = mivo4::mem::LiveHandles();
    EXPECT_EQ(rlGetMemory(-1, 10), 0u);
    EXPECT_EQ(rlGetMemory(-32768, 4), 0u);
    EXPECT_EQ(rlGetMemory(4, -1), 0u);
    EXPECT_EQ(rlGetMemory(-2, -2), 0u);
    EXPECT_EQ(mivo4::mem::LiveHandles(), live);
}

TEST(RastMem, SizeBeyondThirtyTwoBitsGivesNoBlock) {
    EXPECT_EQ(rlGetMemory(32767, INT32_MAX), 0u);
}

TEST(RastMem, FailedAllocationGivesHandleZero) {
    mivo4::mem::FailNth(1);
    EXPECT_EQ(rlGetMemory(4, 4), 0u);
    mivo4::mem::FailNth(0);
}

TEST(RastMem, FreeingHandleZeroAnswersZero) { EXPECT_EQ(rlFreeNewData(0), 0); }

TEST(RastMem, FreedHandleNoLongerLocks) {
    ZHANDLE h = rlGetMemory(1, 8);
    ASSERT_EQ(rlFreeNewData(h), 1);
    EXPECT_EQ(rlLockMemory(h), nullptr);
}

TEST(RastMem, PointerToHandleOfNullIsZero) { EXPECT_EQ(rlPointertoHandle(nullptr), 0u); }

}  // namespace
