// The dispatch table and the state filter: which handler a function code gets
// in each driver state, and what the host is told about support.
#include <gtest/gtest.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace {

struct Row {
    int32_t code;
    DVRFUNCTION handler;
    uint32_t mask;
};

// The rows that name a handler, in table order.
const std::vector<Row> kHandlerRows = {
    {1, d_opdv, 1},         {2, d_cldv, 126},       {3, d_begp, 18},        {4, d_begpb, 4},
    {5, d_endp, 8},         {518, ds_dvwn, 132},    {519, ds_bgc, 132},     {520, ds_dvvp, 4},
    {521, ds_vpsm, 132},    {765, dq_dvvp, 126},    {767, dq_dvwn, 126},    {771, ds_axc, 32904},
    {772, ds_tran, 32904},  {773, ds_clpr, 32904},  {774, ds_clip, 32904},  {1033, d_ca, 32776},
    {1034, d_gdp, 33064},   {1314, ds_ct, 32904},   {2310, ds_dm, 32776},   {3842, d_popes, 127},
    {3843, d_empes, 127},
};

// The rows that name d_noop, in table order, as codes and masks.
std::vector<Row> noopRows() {
    std::vector<Row> rows;
    auto add = [&](std::initializer_list<int32_t> codes, uint32_t mask) {
        for (int32_t c : codes) rows.push_back({c, d_noop, mask});
    };
    auto range = [&](int32_t first, int32_t last, uint32_t mask) {
        for (int32_t c = first; c <= last; ++c) rows.push_back({c, d_noop, mask});
    };
    add({8}, 32776);
    add({9}, 32800);
    add({778}, 32800);
    add({255}, 1);
    add({269}, 2);
    add({270}, 2);
    add({766}, 108);
    add({1025, 1026}, 33064);
    add({1027, 1028, 1029}, 33032);
    add({1030}, 33096);
    add({1031}, 33064);
    range(1035, 1043, 33064);
    add({1282, 1283, 1284, 1286, 1287, 1288}, 32904);
    add({1290, 1299, 1291, 1292, 1293, 1294, 1295}, 32968);
    add({1296, 1297, 1298, 1302, 1303, 1304, 1305, 1307, 1308, 1309, 1310, 1311, 1312, 1323},
        32904);
    add({1537}, 36863);
    add({3841}, 127);
    add({1788}, 8);
    return rows;
}

std::vector<Row> allRows() {
    std::vector<Row> rows = kHandlerRows;
    for (const Row &r : noopRows()) rows.push_back(r);
    return rows;
}

// 0 (not initialised), the lifecycle states, and every other mask bit up to 32768.
std::vector<int32_t> allStates() {
    std::vector<int32_t> states = {0};
    for (int32_t bit = 1; bit <= 32768; bit <<= 1) states.push_back(bit);
    return states;
}

int indexOf(int32_t code) {
    for (int i = 0; i < DVR_FUNCTION_COUNT; ++i)
        if (List[i].opcode == code) return i;
    return -1;
}

class Dispatch : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(lpEMData, nullptr);
        ASSERT_EQ(AllocGlobal(0), 0);
        s = static_cast<MoRastData *>(lpEMData);
        ASSERT_NE(s, nullptr);
    }
    void TearDown() override { FreeGlobal(0); }
    MoRastData *s = nullptr;
};

TEST(DispatchTable, HasSeventyFourRowsWithTheirHandlersAndMasks) {
    std::vector<Row> expected = allRows();
    ASSERT_EQ(expected.size(), 74u);
    std::set<int32_t> seen;
    for (const FUNCTION_LIST &row : List) EXPECT_TRUE(seen.insert(row.opcode).second) << row.opcode;
    for (const Row &r : expected) {
        int i = indexOf(r.code);
        ASSERT_GE(i, 0) << "code " << r.code << " missing";
        EXPECT_EQ(List[i].function, r.handler) << "code " << r.code;
        EXPECT_EQ(List[i].status, r.mask) << "code " << r.code;
    }
}

TEST(DispatchTable, KeepsTheRowOrderOfBothKindsOfRow) {
    std::vector<int32_t> handlerOrder, noopOrder;
    for (const FUNCTION_LIST &row : List) {
        if (row.function == d_noop)
            noopOrder.push_back(row.opcode);
        else
            handlerOrder.push_back(row.opcode);
    }
    std::vector<int32_t> expectedHandlers, expectedNoops;
    for (const Row &r : kHandlerRows) expectedHandlers.push_back(r.code);
    for (const Row &r : noopRows()) expectedNoops.push_back(r.code);
    EXPECT_EQ(handlerOrder, expectedHandlers);
    EXPECT_EQ(noopOrder, expectedNoops);
}

TEST(DispatchTable, Has1299Between1290And1291And1314RightAfter1323) {
    EXPECT_EQ(indexOf(1299), indexOf(1290) + 1);
    EXPECT_EQ(indexOf(1291), indexOf(1299) + 1);
    EXPECT_EQ(indexOf(1314), indexOf(1323) + 1);
}

TEST_F(Dispatch, EveryRowGivesItsHandlerExactlyInTheStatesItsMaskAllows) {
    for (int32_t state : allStates()) {
        s->dvrstate = state;
        for (const Row &r : allRows()) {
            bool allowed = (r.mask & static_cast<uint32_t>(state)) != 0;
            DVRFUNCTION expected = allowed ? r.handler : d_noop;
            EXPECT_EQ(getfunc(r.code), expected) << "code " << r.code << " state " << state;
        }
    }
}

TEST_F(Dispatch, UnknownCodesGiveNoopInEveryState) {
    const int32_t unknown[] = {0, 6, 7, 10, 256, 517, 522, 764, 768, 775, 1024, 1032, 1044,
                               1285, 1289, 1300, 1301, 1306, 1313, 1315, 2309, 3840, 3844,
                               65535, 65536 + 1, -1, -1034, INT32_MIN, INT32_MAX};
    std::vector<int32_t> states = allStates();
    states.push_back(-1);  // every bit set
    for (int32_t state : states) {
        s->dvrstate = state;
        for (int32_t code : unknown) EXPECT_EQ(getfunc(code), d_noop) << code << " in " << state;
    }
}

TEST(DispatchWithoutDriver, NothingIsDispatchedBeforeInitialisation) {
    ASSERT_EQ(lpEMData, nullptr);
    for (const Row &r : allRows()) EXPECT_EQ(getfunc(r.code), d_noop) << r.code;
    EXPECT_EQ(InquireSupport(1, 0), 0);
}

TEST(Noop, ReturnsItsArgumentUnchanged) {
    int value = 7;
    EXPECT_EQ(d_noop(&value), &value);
    EXPECT_EQ(d_noop(nullptr), nullptr);
    EXPECT_EQ(value, 7);
}

TEST_F(Dispatch, SupportIsTwoForCodesThatWouldRunNowAndZeroOtherwise) {
    for (int32_t state : allStates()) {
        s->dvrstate = state;
        for (const Row &r : allRows()) {
            if (r.code == 1034 || r.code == 1323) continue;
            bool runs = r.handler != d_noop && (r.mask & static_cast<uint32_t>(state)) != 0;
            EXPECT_EQ(InquireSupport(r.code, 0), runs ? 2 : 0) << r.code << " in " << state;
        }
        EXPECT_EQ(InquireSupport(4711, 0), 0);
    }
}

TEST_F(Dispatch, SupportOf1323IsZeroAlthoughItIsInTheTable) {
    ASSERT_GE(indexOf(1323), 0);
    for (int32_t state : allStates()) {
        s->dvrstate = state;
        EXPECT_EQ(InquireSupport(1323, 0), 0) << state;
    }
    s->dvrstate = DVR_BODY_BEGUN;
    EXPECT_EQ(InquireSupport(1314, 0), 2) << "its neighbour with a handler is supported";
}

TEST_F(Dispatch, SupportOfPrimitivesIsAskedOfThePrimitiveTable) {
    s->dvrstate = DVR_BODY_BEGUN;  // 1034 would run here
    for (int32_t id = -10; id <= 3; ++id) EXPECT_EQ(InquireSupport(1034, id), 0) << id;
}

TEST(PrimitiveSupport, EveryIdentifierAnswersZero) {
    for (uint32_t word : GDPSupport) EXPECT_EQ(word, 0u);
    for (int32_t id : {INT32_MIN, -100, -8, -7, -6, -5, -1, 0, 1, 5, INT32_MAX})
        EXPECT_EQ(InqGDPSupport(id), 0) << id;
}

TEST(PrimitiveSupport, IdentifiersMinusOneToMinusSevenReadTheirSupportWord) {
    // The words are the host-visible data behind the answer: a word set for
    // the test shows which identifier reads which index.
    for (int32_t id = -7; id <= -1; ++id) {
        GDPSupport[-id] = 40u + static_cast<uint32_t>(-id);
        EXPECT_EQ(InqGDPSupport(id), 40 - id) << id;
        GDPSupport[-id] = 0;
    }
    GDPSupport[0] = 99;
    EXPECT_EQ(InqGDPSupport(0), 0) << "identifier 0 never reads index 0";
    GDPSupport[0] = 0;
}

}  // namespace
