// The driver's error stack: pushes, inquiries, pops and emptying.
#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <array>
#include <cstring>

namespace {

class ErrorStack : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(AllocGlobal(0), 0);
        s = static_cast<MoRastData *>(lpEMData);
        ASSERT_NE(s, nullptr);
        s->DvrBufSz = sizeof buffer;
        s->lpDvrBuf = buffer.data();
        s->element = 1033;
    }
    void TearDown() override { FreeGlobal(0); }

    template <class T>
    T at(size_t offset) const {
        T v;
        std::memcpy(&v, buffer.data() + offset, sizeof v);
        return v;
    }

    MoRastData *s = nullptr;
    std::array<uint8_t, 64> buffer{};
};

TEST_F(ErrorStack, PushRecordsTheLastReportAsOldestAndCountsItLost) {
    push_er(300);
    EXPECT_EQ(s->esl.curdepth, 0);
    EXPECT_EQ(s->esl.numlost, 1);
    EXPECT_EQ(s->esl.oldest.item, 1033);
    EXPECT_EQ(s->esl.oldest.code, 300);
    EXPECT_EQ(s->errep.item, 1033);
    EXPECT_EQ(s->errep.code, 300);
}

TEST_F(ErrorStack, TwoPushesOfTheSameCodeCountTwoAndKeepTheLast) {
    push_er(303);
    s->element = 2;
    push_er(303);
    EXPECT_EQ(s->esl.numlost, 2);
    EXPECT_EQ(s->esl.oldest.item, 2);
    EXPECT_EQ(s->esl.oldest.code, 303);
}

TEST_F(ErrorStack, PopAnswersZeroEntriesWhateverTheCount) {
    push_er(300);
    for (int32_t requested : {0, 1, 5, 100, -3}) {
        uint8_t element[20] = {};
        std::memcpy(element + 16, &requested, 4);
        s->readct = 0;
        buffer.fill(0xEE);
        EXPECT_EQ(d_popes(element), element);
        EXPECT_EQ(s->readct, 4) << requested;
        EXPECT_EQ(at<int32_t>(0), 0) << requested;
    }
}

TEST_F(ErrorStack, EmptyingClearsLostCountAndResultButNotOldest) {
    push_er(901);
    d_empes(nullptr);
    EXPECT_EQ(s->esl.numlost, 0);
    EXPECT_EQ(s->esl.curdepth, 0);
    EXPECT_EQ(s->errep.code, 0);
    EXPECT_EQ(s->errep.item, 0);
    EXPECT_EQ(s->esl.oldest.code, 901);
    EXPECT_EQ(s->esl.oldest.item, 1033);
}

TEST_F(ErrorStack, InquiryAnswersDepthOldestAndLostCount) {
    push_er(300);
    push_er(303);
    s->readct = 0;
    dq_es(nullptr);
    ASSERT_EQ(s->readct, 16);
    EXPECT_EQ(at<int32_t>(0), 0);
    EXPECT_EQ(at<int32_t>(4), 1033);
    EXPECT_EQ(at<int16_t>(8), 303);
    EXPECT_EQ(at<int16_t>(10), 0) << "the two bytes after the code are answered as stored";
    EXPECT_EQ(at<int32_t>(12), 2);
}

TEST_F(ErrorStack, AnswerLongerThanTheElementBufferIsCutShort) {
    s->DvrBufSz = 10;
    s->readct = 4;
    uint8_t payload[16];
    std::memset(payload, 0x77, sizeof payload);
    buffer.fill(0);
    mov2buf(payload, 16);
    EXPECT_EQ(s->readct, 10);
    EXPECT_EQ(buffer[9], 0x77);
    EXPECT_EQ(buffer[10], 0) << "nothing past the element buffer";
    mov2buf(payload, 16);
    EXPECT_EQ(s->readct, 10) << "a full buffer takes nothing more";
}

TEST_F(ErrorStack, StackWithAHostSetDepthLimitPushesAndPopsNewestFirst) {
    s->esl.maxdepth = 3;
    push_er(300);
    s->element = 2;
    push_er(303);
    push_er(303);  // the same element and code again: recorded once
    s->element = 5;
    push_er(901);
    push_er(300);  // full: overwrites the top entry, counted lost
    EXPECT_EQ(s->esl.curdepth, 3);
    EXPECT_EQ(s->esl.numlost, 1);
    uint8_t element[20] = {};
    int32_t requested = 2;
    std::memcpy(element + 16, &requested, 4);
    s->readct = 0;
    d_popes(element);
    ASSERT_EQ(s->readct, 4 + 16);
    EXPECT_EQ(at<int32_t>(0), 2);
    EXPECT_EQ(at<int32_t>(4), 5);
    EXPECT_EQ(at<int16_t>(8), 300);
    EXPECT_EQ(at<int32_t>(12), 2);
    EXPECT_EQ(at<int16_t>(16), 303);
    EXPECT_EQ(s->esl.curdepth, 1);
}

TEST(ErrorStackWithoutDriver, CallsWithoutAStateRecordDoNothing) {
    ASSERT_EQ(lpEMData, nullptr);
    push_er(300);
    uint8_t element[20] = {};
    EXPECT_EQ(dq_es(element), element);
    EXPECT_EQ(d_popes(element), element);
    EXPECT_EQ(d_empes(element), element);
    mov2buf(element, 4);
}

}  // namespace
