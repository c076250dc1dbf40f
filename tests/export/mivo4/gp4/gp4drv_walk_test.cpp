// Allocation-failure walk over the GP4 driver's open and close: every
// failure gives one of their documented answers, the close's status tells
// how the picture ended, and nothing outlives the setup.
#include <gtest/gtest.h>
#include <mivo4/export.h>
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

TEST(Gp4DriverWalk, OpenAndCloseUnderEveryAllocationFailureAnswerAsDocumentedAndLeakNothing) {
    const std::string path = oracle::scratchPath("gp4drv-walk");
    for (bool toMemory : {false, true}) {
        SCOPED_TRACE(toMemory ? "memory output" : "file output");
        testing::internal::CaptureStderr();
        uint32_t n = 1;
        for (; n < 1000; ++n) {
            SCOPED_TRACE(std::string("allocation ") + std::to_string(n) + " fails");
            const uint32_t live = mivo4::mem::LiveHandles();
            ZHANDLE setup = CreateSetup(0, "absent.ini", nullptr, nullptr);
            ASSERT_NE(setup, 0u);
            char connect[260] = "";
            if (!toMemory) std::strcpy(connect, path.c_str());
            EXPORT_OPTIONS options{};
            VInitDriver init{};
            init.connect = connect;
            init.setup = setup;
            init.export_ = &options;
            mivo4::mem::FailNth(n);
            int32_t opened = initdvr(&init);
            EXPECT_TRUE(opened == 0 || opened == 21 || opened == 22 || opened == 303) << opened;
            if (opened == 0) {
                int32_t closed = termdvr(nullptr);
                EXPECT_TRUE(closed == 0 || closed == 300 || closed == 303) << closed;
                int32_t status = GetLastExportStatus();
                EXPECT_NE(status, MIVO4_EXPORT_COMPLETE) << "no picture is recorded on this platform";
                EXPECT_NE(status, MIVO4_EXPORT_NONE);
            }
            bool delivered = !mivo4::mem::FailurePending();
            mivo4::mem::FailNth(0);
            GlobalFree(options.hMF);
            EXPECT_EQ(DestroySetup(setup), 0);
            EXPECT_EQ(mivo4::mem::LiveHandles(), live) << "leaked";
            if (!delivered) {
                EXPECT_EQ(opened, 0);
                break;
            }
        }
        testing::internal::GetCapturedStderr();
        EXPECT_GT(n, 1u);
    }
    std::remove(path.c_str());
}

TEST(Gp4DriverWalk, OpenRefusesAHandleThatIsNotASetup) {
    ZHANDLE foreign = GlobalAlloc(GHND, 4);
    char connect[8] = "";
    VInitDriver init{};
    init.connect = connect;
    init.setup = foreign;
    EXPECT_EQ(initdvr(&init), 22);
    EXPECT_EQ(GlobalSize(foreign), 4u);
    GlobalFree(foreign);
}

}  // namespace
