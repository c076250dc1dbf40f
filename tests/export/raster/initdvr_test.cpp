// Starting and ending the driver: what initialisation makes and hands to the
// host, and what is left when it cannot finish.
#include "export/raster/driver_session.h"

#include <map>
#include <string>

namespace {

using mivo4::test::DriverSession;
using mivo4::test::kUntouched;
using mivo4::test::statusLog;

constexpr uint32_t kAll = 0xFFFFFFFFu;

// Support flags by index as the host receives them (index 47 aside).
std::map<int, uint32_t> expectedSupport() {
    std::map<int, uint32_t> m;
    m[0] = 100;
    for (int i : {1, 2, 3, 4}) m[i] = kAll;
    for (int i = 9; i <= 18; ++i) m[i] = kAll;
    for (int i = 23; i <= 29; ++i) m[i] = kAll;
    for (int i : {32, 33, 36, 37, 41, 45, 57, 59}) m[i] = kAll;
    for (int i : {5, 19, 20, 21, 22, 31, 34, 35, 40, 44, 55, 56, 58}) m[i] = 0;
    m[38] = 1;
    m[39] = 1;
    return m;
}

TEST(SupportTable, HasFortySixRowsOneForEachIndexAndIndex47) {
    std::map<int, uint32_t> expected = expectedSupport();
    expected[47] = 0;
    ASSERT_EQ(expected.size(), 46u);
    std::map<int, uint32_t> table;
    for (const VINQ_FUNCTION_LIST &row : InqFunctionList) {
        EXPECT_TRUE(table.emplace(row.function, row.supFlags).second) << int{row.function};
        EXPECT_LT(row.function, DVR_INQ_SUPDATA_MIN);
    }
    EXPECT_EQ(table, expected);
}

TEST_F(DriverSession, InitialiseHandsBackTheElementBufferAndEntersStateOne) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_NE(state(), nullptr);
    EXPECT_EQ(state()->dvrstate, 1);
    EXPECT_EQ(state()->DvrBufSz, 256u);
    ASSERT_NE(init.elbuf, nullptr);
    EXPECT_EQ(init.elbuf, state()->lpDvrBuf);
    EXPECT_EQ(GlobalLock(state()->hDvrBuf), init.elbuf);
    EXPECT_EQ(GlobalSize(state()->hDvrBuf), 256u);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(elbuf()[i], 0) << "zero-filled at " << i;
    EXPECT_STREQ(state()->szFileName, "out.gp4");
    EXPECT_EQ(state()->hSetup, hSetup);
    EXPECT_EQ(lpSetup, setup);
    EXPECT_EQ(state()->lpExport, &options);
}

TEST_F(DriverSession, InitialiseFillsTheHostsSupportFlagsAndLeavesOtherIndicesAlone) {
    setup->nColorMode = 106;
    ASSERT_EQ(initialise(), 0);
    std::map<int, uint32_t> expected = expectedSupport();
    for (int i = 0; i < static_cast<int>(supData.size()); ++i) {
        if (i == 47) {
            EXPECT_EQ(supData[i], 3u) << "index 47 carries the colour mode";
        } else if (expected.count(i)) {
            EXPECT_EQ(supData[i], expected[i]) << "index " << i;
        } else {
            EXPECT_EQ(supData[i], kUntouched) << "index " << i << " is not the driver's";
        }
    }
}

TEST_F(DriverSession, ColourModesOf103To107BecomeZeroToFour) {
    for (int32_t mode = 103; mode <= 107; ++mode) {
        setup->nColorMode = mode;
        supData.fill(kUntouched);
        ASSERT_EQ(initialise(), 0);
        EXPECT_EQ(state()->ColorMode, mode - 103);
        EXPECT_EQ(supData[47], static_cast<uint32_t>(mode - 103));
        ASSERT_EQ(terminate(), 0);
    }
}

TEST_F(DriverSession, OtherColourModesLeaveTheDriversModeAsItWas) {
    for (int32_t mode : {0, 102, 108, -103}) {
        setup->nColorMode = mode;
        ASSERT_EQ(initialise(), 0);
        EXPECT_EQ(state()->ColorMode, 0) << mode;
        EXPECT_EQ(supData[47], 0u);
        ASSERT_EQ(terminate(), 0);
    }
}

TEST_F(DriverSession, InitialiseStartsTheHostsProgressDisplay) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(statusLog().calls.size(), 1u);
    const auto &c = statusLog().calls[0];
    EXPECT_EQ(c.hostData, 0x5151);
    EXPECT_EQ(c.op, 0);
    EXPECT_EQ(c.item, -2);
    EXPECT_EQ(c.a4, 100);
    EXPECT_EQ(c.a5, 0);
    EXPECT_EQ(c.a6, 0);
    EXPECT_EQ(c.a7, 0);
}

TEST_F(DriverSession, ProgressStartAnsweredNonZeroStillInitialises) {
    statusLog().answer = 1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(statusLog().calls.size(), 1u) << "only a plain progress report is asked again";
    EXPECT_EQ(state()->esl.numlost, 0) << "starting the display is not a stop";
}

TEST_F(DriverSession, NoProgressStartWithoutStatusFunctionHostValueOrOptions) {
    options.hDialog = 0;
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(terminate(), 0);
    options.hDialog = 0x5151;
    options.GetSet_Status = nullptr;
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(terminate(), 0);
    init.export_ = nullptr;
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(state()->lpExport, nullptr);
    EXPECT_TRUE(statusLog().calls.empty());
}

TEST_F(DriverSession, LongConnectionNameIsCutToTheRecordsField) {
    std::string name(300, 'n');
    init.connect = name.data();
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(std::string(state()->szFileName), std::string(143, 'n'));
}

TEST_F(DriverSession, NullConnectionNameLeavesTheNameEmpty) {
    init.connect = nullptr;
    ASSERT_EQ(initialise(), 0);
    EXPECT_STREQ(state()->szFileName, "");
}

TEST_F(DriverSession, NullSupportArrayIsNotFilled) {
    init.InqSupData = nullptr;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(state()->dvrstate, 1);
}

TEST_F(DriverSession, NoMemoryForTheElementBufferGives300AndLeavesNoStateRecord) {
    mivo4::mem::FailNth(2);  // the state record, then the element buffer
    EXPECT_EQ(initialise(), 300);
    EXPECT_FALSE(mivo4::mem::FailurePending()) << "the element buffer's allocation was the one refused";
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(lpSetup, nullptr);
    EXPECT_EQ(init.elbuf, nullptr);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1) << "only the host's setup is left";
    uint8_t element[20] = {};
    int32_t code = 1;
    std::memcpy(element, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, element), 0) << "and no driver to send elements to";
    EXPECT_EQ(initialise(), 0) << "a later initialise with memory succeeds";
    EXPECT_EQ(state()->dvrstate, 1);
}

TEST_F(DriverSession, NoMemoryForTheStateRecordGives300) {
    mivo4::mem::FailNth(1);
    EXPECT_EQ(initialise(), 300);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1);
    EXPECT_TRUE(statusLog().calls.empty()) << "the progress display was never started";
}

TEST_F(DriverSession, NullInitialisationRecordGives300AndMakesNothing) {
    EXPECT_EQ(RASTER_dd_entry32(0, 0, nullptr), 300);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1);
}

TEST_F(DriverSession, SetupThatDoesNotLockGives300AndLeavesNoStateRecord) {
    ZHANDLE stale = GlobalAlloc(GHND, 16);
    GlobalFree(stale);
    for (ZHANDLE bad : {ZHANDLE{0}, stale, ZHANDLE{0xFFFFFFFFu}}) {
        init.setup = bad;
        EXPECT_EQ(initialise(), 300) << bad;
        EXPECT_EQ(lpEMData, nullptr);
        EXPECT_EQ(lpSetup, nullptr);
        EXPECT_EQ(init.elbuf, nullptr);
        EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1);
    }
    EXPECT_TRUE(statusLog().calls.empty());
}

TEST_F(DriverSession, TerminateReleasesTheElementBufferStateRecordAndSetup) {
    ASSERT_EQ(initialise(), 0);
    ZHANDLE buffer = state()->hDvrBuf;
    ZHANDLE record = hEMData;
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(GlobalLock(buffer), nullptr);
    EXPECT_EQ(GlobalLock(record), nullptr);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(lpSetup, nullptr);
    EXPECT_NE(GlobalLock(hSetup), nullptr) << "the setup is the host's";
}

TEST_F(DriverSession, HostCommonDataWithoutARecordGives300) {
    hCommon = 1;  // the host says it supplies the record, but gave none
    EXPECT_EQ(initialise(), 300);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1);
}

TEST_F(DriverSession, StateRecordBlockHoldsTheWholeRecord) {
    ASSERT_EQ(initialise(), 0);
    EXPECT_GE(GlobalSize(hEMData), sizeof(MoRastData));
    EXPECT_GE(GlobalSize(hEMData), 1224u);
}

}  // namespace
