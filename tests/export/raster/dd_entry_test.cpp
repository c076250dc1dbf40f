// The driver's entries as a host uses them: version and address inquiries,
// a whole element session, and what happens to bad input.
#include "export/raster/driver_session.h"

#include <mivo4/filter.h>

#include <cstring>

namespace {

using mivo4::test::DriverSession;

TEST(SixteenBitEntry, MinusTwoAnswersTheFilterVersionInFourBytes) {
    uint8_t data[8];
    std::memset(data, 0xCC, sizeof data);
    EXPECT_EQ(RASTER_dd_entry(-2, data, 8), 0);
    uint32_t version;
    std::memcpy(&version, data, 4);
    EXPECT_EQ(version, 0x2000005u);
    EXPECT_EQ(data[4], 0xCC) << "only four bytes are written";
}

TEST(SixteenBitEntry, MinusThreeAnswersTheAddressOfThe32BitEntryAsAFullPointer) {
    uint8_t data[sizeof(void *) + 4];
    std::memset(data, 0xCC, sizeof data);
    EXPECT_EQ(RASTER_dd_entry(-3, data, sizeof(void *)), 0);
    LPDDENTRY32 entry;
    std::memcpy(&entry, data, sizeof entry);
    EXPECT_EQ(entry, &RASTER_dd_entry32);
    EXPECT_EQ(data[sizeof(void *)], 0xCC) << "a pointer's worth of bytes, no more";
}

TEST(SixteenBitEntry, OtherCodesAndNullDataDoNothingAndAnswerZero) {
    uint8_t data[16];
    std::memset(data, 0xCC, sizeof data);
    for (int16_t f : {int16_t{-32768}, int16_t{-4}, int16_t{-1}, int16_t{0}, int16_t{1},
                      int16_t{2}, int16_t{32767}}) {
        EXPECT_EQ(RASTER_dd_entry(f, data, 16), 0) << f;
        EXPECT_EQ(dd_entry(f, data, 16), 0) << f;
    }
    for (uint8_t b : data) EXPECT_EQ(b, 0xCC);
    EXPECT_EQ(RASTER_dd_entry(-2, nullptr, 4), 0);
    EXPECT_EQ(RASTER_dd_entry(-3, nullptr, 8), 0);
    EXPECT_EQ(lpEMData, nullptr) << "the 16-bit entry never starts the driver";
}

TEST(SixteenBitEntry, AliasAnswersLikeTheEntry) {
    uint32_t version = 0;
    EXPECT_EQ(dd_entry(-2, &version, 4), 0);
    EXPECT_EQ(version, 0x2000005u);
    LPDDENTRY32 entry = nullptr;
    EXPECT_EQ(dd_entry(-3, &entry, sizeof entry), 0);
    EXPECT_EQ(entry, &RASTER_dd_entry32);
}

TEST(ThirtyTwoBitEntry, VersionIsAnsweredInFourBytesWithResultFour) {
    uint8_t data[8];
    std::memset(data, 0xCC, sizeof data);
    EXPECT_EQ(RASTER_dd_entry32(0, 65534, data), 4);
    uint32_t version;
    std::memcpy(&version, data, 4);
    EXPECT_EQ(version, 0x2000005u);
    EXPECT_EQ(data[4], 0xCC);
    EXPECT_EQ(RASTER_dd_entry32(0, 65534, nullptr), 0) << "nothing to answer into";
}

TEST(ThirtyTwoBitEntry, FunctionOneAndUnknownCodesDoNothing) {
    uint8_t data[32] = {};
    for (uint16_t f : {uint16_t{1}, uint16_t{3}, uint16_t{100}, uint16_t{65533}})
        EXPECT_EQ(RASTER_dd_entry32(0, f, data), 0) << f;
    EXPECT_EQ(lpEMData, nullptr);
    for (uint8_t b : data) EXPECT_EQ(b, 0);
}

TEST(ThirtyTwoBitEntry, AliasNarrowsTheFunctionCodeTo16Bits) {
    uint32_t version = 0;
    EXPECT_EQ(dd_entry32(0, 0x1FFFEu, &version, 4), 4) << "0x1FFFE narrows to 65534";
    EXPECT_EQ(version, 0x2000005u);
    EXPECT_EQ(dd_entry32(0, 0x10001u, nullptr, 0), 0);
}

TEST(ThirtyTwoBitEntry, TerminateWithoutInitialiseAnswersZero) {
    ASSERT_EQ(lpEMData, nullptr);
    EXPECT_EQ(RASTER_dd_entry32(0, 65535, nullptr), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
}

TEST(ThirtyTwoBitEntry, ElementBeforeInitialiseIsNotDispatched) {
    uint8_t element[20] = {};
    int32_t code = 1;
    std::memcpy(element, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, element), 0);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, nullptr), 0);
    EXPECT_EQ(lpEMData, nullptr);
}

TEST_F(DriverSession, WholeSessionMovesThroughTheStatesAndAnswersInTheElementBuffer) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_NE(state(), nullptr);
    ASSERT_NE(elbuf(), nullptr);
    EXPECT_EQ(state()->dvrstate, 1);

    // The error stack is inquired through the pop element: nothing on it.
    EXPECT_EQ(send(3842, {3}), 0);
    EXPECT_EQ(state()->readct, 4);
    EXPECT_EQ(answerAt<int32_t>(0), 0);

    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(state()->dvrstate, 2);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(state()->dvrstate, 4);
    EXPECT_EQ(send(4), 0);
    EXPECT_EQ(state()->dvrstate, 8);
    EXPECT_EQ(send(1314, {0}), 0) << "a setting accepted in the body";
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(state()->dvrstate, 16);

    EXPECT_EQ(send(3843), 0);
    EXPECT_EQ(send(3842, {10}), 0);
    EXPECT_EQ(state()->readct, 4);
    EXPECT_EQ(answerAt<int32_t>(0), 0);

    EXPECT_EQ(send(2), 0);
    EXPECT_EQ(state()->dvrstate, 1);

    uint32_t version = 0;
    EXPECT_EQ(RASTER_dd_entry32(0, 65534, &version), 4);
    EXPECT_EQ(version, 0x2000005u);

    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1) << "only the host's setup is left";
}

TEST_F(DriverSession, ElementsOutsideTheirStatesAreIgnored) {
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(send(3), 0) << "no picture before the device is open";
    EXPECT_EQ(state()->dvrstate, 1);
    EXPECT_EQ(send(2), 0) << "no close before an open";
    EXPECT_EQ(state()->dvrstate, 1);
    ASSERT_EQ(send(1), 0);
    EXPECT_EQ(send(1), 0) << "no second open";
    EXPECT_EQ(state()->dvrstate, 2);
    EXPECT_EQ(send(4), 0) << "no body before a picture";
    EXPECT_EQ(send(5), 0) << "no end before a body";
    EXPECT_EQ(state()->dvrstate, 2);
}

TEST_F(DriverSession, BeginPictureIsAcceptedAfterOpenAndAfterEndButNotInAnOpenPicture) {
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    EXPECT_EQ(state()->dvrstate, 4) << "accepted after the device was opened";
    send(3);
    EXPECT_EQ(state()->dvrstate, 4) << "not accepted in a begun picture";
    send(4);
    ASSERT_EQ(state()->dvrstate, 8);
    send(3);
    EXPECT_EQ(state()->dvrstate, 8) << "not accepted while the body is open";
    send(5);
    ASSERT_EQ(state()->dvrstate, 16);
    send(3);
    EXPECT_EQ(state()->dvrstate, 4) << "accepted after the picture ended: the next picture";
}

TEST_F(DriverSession, CloseIsAcceptedInEveryStateFromDeviceOpenToPictureEnded) {
    ASSERT_EQ(initialise(), 0);
    for (int32_t st : {2, 4, 8, 16, 32, 64}) {
        state()->dvrstate = st;
        // The state was set without opening a device: there is no stream to
        // close, and a close that fails is reported.
        EXPECT_EQ(send(2), RASTER_ERR_OUTPUT);
        EXPECT_EQ(state()->dvrstate, 1) << "from " << st;
    }
    for (int32_t st : {128, 256, 32768}) {
        state()->dvrstate = st;
        send(2);
        EXPECT_EQ(state()->dvrstate, st) << "not from " << st;
    }
}

TEST_F(DriverSession, ErrorStackElementsAreAcceptedFromInitialisedToState64) {
    ASSERT_EQ(initialise(), 0);
    for (int32_t st : {1, 2, 4, 8, 16, 32, 64, 128}) {
        state()->dvrstate = st;
        state()->esl.numlost = 5;
        send(3843);
        EXPECT_EQ(state()->esl.numlost, st <= 64 ? 0 : 5) << "state " << st;
    }
}

TEST_F(DriverSession, EmptyingTheStackClearsLostCountAndResultButNotTheOldestReport) {
    ASSERT_EQ(initialise(), 0);
    state()->element = 1033;
    push_er(300);
    push_er(303);
    ASSERT_EQ(state()->esl.numlost, 2);
    EXPECT_EQ(send(3843), 0);
    EXPECT_EQ(state()->esl.numlost, 0);
    EXPECT_EQ(state()->errep.code, 0);
    EXPECT_EQ(state()->esl.oldest.item, 1033);
    EXPECT_EQ(state()->esl.oldest.code, 303);
}

TEST_F(DriverSession, OpeningTheDeviceEmptiesTheErrorStack) {
    ASSERT_EQ(initialise(), 0);
    state()->element = 4;
    push_er(300);
    ASSERT_EQ(state()->esl.numlost, 1);
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(state()->dvrstate, 2);
    EXPECT_EQ(state()->esl.numlost, 0);
    EXPECT_EQ(state()->esl.oldest.code, 300) << "the oldest report stays";
}

TEST_F(DriverSession, EveryElementStartsWithACleanResult) {
    ASSERT_EQ(initialise(), 0);
    state()->element = 1;
    push_er(303);
    ASSERT_EQ(state()->errep.code, 303);
    EXPECT_EQ(send(3842, {1}), 0) << "the last call's code is not this element's result";
    EXPECT_EQ(state()->element, 3842) << "the element in hand is the one that was sent";
}

TEST_F(DriverSession, AnElementIgnoredByItsStateStillClearsTheLastResult) {
    ASSERT_EQ(initialise(), 0);
    push_er(901);
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(state()->errep.code, 0);
}

TEST_F(DriverSession, PopAnswerStartsAtTheBufferStartForEveryElement) {
    ASSERT_EQ(initialise(), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(send(3842, {2}), 0);
        EXPECT_EQ(state()->readct, 4) << "answer " << i;
    }
}

TEST_F(DriverSession, SecondInitialiseWhileRunningReturnsZeroAndChangesNothing) {
    ASSERT_EQ(initialise(), 0);
    send(1);
    MoRastData *first = state();
    void *firstBuffer = init.elbuf;
    uint32_t live = mivo4::mem::LiveHandles();

    VInitDriver again = init;
    again.elbuf = nullptr;
    again.elbufsz = 1024;
    char otherName[] = "other.gp4";
    again.connect = otherName;
    std::array<uint32_t, 64> otherSup;
    otherSup.fill(mivo4::test::kUntouched);
    again.InqSupData = otherSup.data();
    size_t callsBefore = mivo4::test::statusLog().calls.size();

    EXPECT_EQ(RASTER_dd_entry32(0, 0, &again), 0);
    EXPECT_EQ(state(), first);
    EXPECT_EQ(state()->dvrstate, 2);
    EXPECT_EQ(state()->lpDvrBuf, firstBuffer);
    EXPECT_EQ(state()->DvrBufSz, 256u);
    EXPECT_STREQ(state()->szFileName, "out.gp4");
    EXPECT_EQ(again.elbuf, nullptr);
    for (uint32_t v : otherSup) EXPECT_EQ(v, mivo4::test::kUntouched);
    EXPECT_EQ(mivo4::mem::LiveHandles(), live);
    EXPECT_EQ(mivo4::test::statusLog().calls.size(), callsBefore);
}

TEST_F(DriverSession, TerminateWithAnOpenDeviceClosesItFirst) {
    // A host-supplied state record outlives termination, so the close can be
    // seen in it afterwards.
    MoRastData hostRecord{};
    hostRecord.dvrstate = 8;
    hCommon = 1;
    lpEMData = &hostRecord;
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(hostRecord.dvrstate, 1);
    EXPECT_EQ(lpEMData, nullptr);
}

TEST_F(DriverSession, TerminateAfterClosingDoesNotCloseAgain) {
    MoRastData hostRecord{};
    hostRecord.dvrstate = 1;
    hCommon = 1;
    lpEMData = &hostRecord;
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(hostRecord.dvrstate, 1);
}

TEST_F(DriverSession, TerminateMidPictureFreesEverythingTheDriverMade) {
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    send(4);
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1);
    EXPECT_EQ(terminate(), 0) << "a second terminate finds nothing to do";
}

TEST_F(DriverSession, TerminateClearsTheLastResult) {
    MoRastData hostRecord{};
    hostRecord.dvrstate = 1;
    hostRecord.errep.code = 303;
    hCommon = 1;
    lpEMData = &hostRecord;
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(hostRecord.errep.code, 0);
}

TEST_F(DriverSession, HostSuppliedRecordInStateZeroDispatchesNothing) {
    MoRastData hostRecord{};
    hostRecord.errep.code = 303;
    hCommon = 1;
    lpEMData = &hostRecord;
    uint8_t element[20] = {};
    int32_t code = 1;
    std::memcpy(element, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, element), 0);
    EXPECT_EQ(hostRecord.dvrstate, 0);
    EXPECT_EQ(hostRecord.errep.code, 0) << "the result is cleared before the state is looked at";
    EXPECT_EQ(hostRecord.element, 0);
    EXPECT_EQ(RASTER_dd_entry32(0, 0, &init), 0) << "a host-supplied record is not made again";
    EXPECT_EQ(init.elbuf, nullptr);
    lpEMData = nullptr;
}

TEST_F(DriverSession, UnknownElementCodesAreIgnoredWithResultZero) {
    ASSERT_EQ(initialise(), 0);
    send(1);
    for (int32_t code : {0, 6, 1032, 4000, -1, INT32_MAX}) {
        EXPECT_EQ(send(code), 0) << code;
        EXPECT_EQ(state()->dvrstate, 2);
        EXPECT_EQ(state()->readct, 0) << "nothing answered";
    }
}

TEST_F(DriverSession, NullElementIsIgnored) {
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, nullptr), 0);
    EXPECT_EQ(state()->dvrstate, 1);
}

TEST_F(DriverSession, ElementCutOffBeforeItsHeaderEndsIsIgnored) {
    ASSERT_EQ(initialise(), 0);
    uint8_t *tail = elbuf() + init.elbufsz - 12;  // 12 bytes: less than a header
    int32_t code = 1;
    std::memcpy(tail, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, tail), 0);
    EXPECT_EQ(state()->dvrstate, 1);
    uint8_t *last = elbuf() + init.elbufsz - 1;
    EXPECT_EQ(RASTER_dd_entry32(0, 2, last), 0);
    EXPECT_EQ(state()->dvrstate, 1);
}

TEST_F(DriverSession, ElementWithExactlyAHeaderLeftIsDispatched) {
    ASSERT_EQ(initialise(), 0);
    uint8_t *tail = elbuf() + init.elbufsz - 16;
    int32_t code = 1;
    std::memcpy(tail, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, tail), 0);
    EXPECT_EQ(state()->dvrstate, 2);
}

TEST_F(DriverSession, PopElementCutOffBeforeItsCountAsksForNothing) {
    ASSERT_EQ(initialise(), 0);
    state()->esl.maxdepth = 3;  // a stack that could answer entries
    state()->element = 9;
    push_er(300);
    ASSERT_EQ(state()->esl.curdepth, 1);
    uint8_t *tail = elbuf() + init.elbufsz - 16;  // header only, no count
    int32_t code = 3842;
    std::memcpy(tail, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, tail), 0);
    EXPECT_EQ(answerAt<int32_t>(0), 0);
    EXPECT_EQ(state()->esl.curdepth, 1) << "nothing was popped";
}

TEST_F(DriverSession, AnswersLongerThanTheElementBufferAreCutAtItsEnd) {
    init.elbufsz = 2;
    ASSERT_EQ(initialise(), 0);
    // The buffer is too small for an element, so the host sends it from its own memory.
    uint8_t element[20] = {};
    int32_t code = 3842, count = 1;
    std::memcpy(element, &code, 4);
    std::memcpy(element + 16, &count, 4);
    elbuf()[0] = 0xEE;
    elbuf()[1] = 0xEE;
    EXPECT_EQ(RASTER_dd_entry32(0, 2, element), 0);
    EXPECT_EQ(state()->readct, 2);
    EXPECT_EQ(elbuf()[0], 0);
    EXPECT_EQ(elbuf()[1], 0);
}

TEST_F(DriverSession, ZeroSizedElementBufferTakesNoAnswer) {
    init.elbufsz = 0;
    ASSERT_EQ(initialise(), 0);
    EXPECT_NE(init.elbuf, nullptr);
    uint8_t element[20] = {};
    int32_t code = 3842;
    std::memcpy(element, &code, 4);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, element), 0);
    EXPECT_EQ(state()->readct, 0);
}

}  // namespace
