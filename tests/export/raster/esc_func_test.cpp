// Progress reports through the host's status function and the user's stop.
#include "export/raster/driver_session.h"

namespace {

using mivo4::test::DriverSession;
using mivo4::test::statusLog;

class Escape : public DriverSession {
protected:
    void SetUp() override {
        DriverSession::SetUp();
        ASSERT_EQ(initialise(), 0);
        statusLog().calls.clear();  // forget the progress start
        state()->element = 1033;
    }
};

TEST(EscapeWithoutDriver, AnswersZeroAndAsksNobody) {
    ASSERT_EQ(lpEMData, nullptr);
    statusLog() = {};
    EXPECT_EQ(escape(), 0);
    EXPECT_EQ(RASTER_escape(), 0);
    EXPECT_TRUE(statusLog().calls.empty());
}

TEST_F(Escape, WithoutExportOptionsAnswersZero) {
    state()->lpExport = nullptr;
    statusLog().answer = 1;
    EXPECT_EQ(escape(), 0);
    EXPECT_EQ(RASTER_escape(), 0);
    EXPECT_TRUE(statusLog().calls.empty());
}

TEST_F(Escape, ReportsThePicturesRowsReceivedInPercent) {
    state()->Height = 200;
    state()->CurrentScanLine = 50;
    EXPECT_EQ(escape(), 0);
    ASSERT_EQ(statusLog().calls.size(), 1u);
    const auto &c = statusLog().calls[0];
    EXPECT_EQ(c.hostData, 0x5151);
    EXPECT_EQ(c.op, 0);
    EXPECT_EQ(c.item, 0);
    EXPECT_EQ(c.a4, 0);
    EXPECT_EQ(c.a5, 25);
    EXPECT_EQ(c.a6, 0);
    EXPECT_EQ(c.a7, 0);
}

TEST_F(Escape, ProgressStaysBetweenZeroAndHundred) {
    struct {
        uint32_t height;
        int32_t line;
        intptr_t expected;
    } cases[] = {{0, 0, 0}, {0, 40, 0}, {10, -3, 0}, {10, 10, 100}, {10, 15, 100}, {3, 1, 33}};
    for (const auto &k : cases) {
        statusLog().calls.clear();
        state()->Height = k.height;
        state()->CurrentScanLine = k.line;
        EXPECT_EQ(escape(), 0);
        ASSERT_EQ(statusLog().calls.size(), 1u);
        EXPECT_EQ(statusLog().calls[0].a5, k.expected) << k.height << " " << k.line;
    }
}

TEST_F(Escape, StopAnswerPushes901AndReturnsIt) {
    statusLog().answer = 7;
    EXPECT_EQ(escape(), 901);
    // A plain report answered non-zero is asked again as op 2, item 61.
    ASSERT_EQ(statusLog().calls.size(), 2u);
    EXPECT_EQ(statusLog().calls[1].op, 2);
    EXPECT_EQ(statusLog().calls[1].item, 61);
    EXPECT_EQ(state()->errep.code, 901);
    EXPECT_EQ(state()->errep.item, 1033);
    EXPECT_EQ(state()->esl.numlost, 1);
    EXPECT_EQ(state()->esl.oldest.code, 901);
}

TEST_F(Escape, RasterEscapeReportsZeroProgressAndStopsLikewise) {
    state()->Height = 100;
    state()->CurrentScanLine = 60;
    EXPECT_EQ(RASTER_escape(), 0);
    ASSERT_EQ(statusLog().calls.size(), 1u);
    EXPECT_EQ(statusLog().calls[0].op, 0);
    EXPECT_EQ(statusLog().calls[0].item, 0);
    EXPECT_EQ(statusLog().calls[0].a5, 0);
    statusLog().answer = 1;
    EXPECT_EQ(RASTER_escape(), 901);
    EXPECT_EQ(state()->errep.code, 901);
}

TEST_F(Escape, NoStatusFunctionMeansGoOn) {
    options.GetSet_Status = nullptr;
    EXPECT_EQ(escape(), 0);
    EXPECT_EQ(RASTER_escape(), 0);
    EXPECT_EQ(state()->errep.code, 0);
}

}  // namespace
