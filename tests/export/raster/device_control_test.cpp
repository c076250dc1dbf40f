// Device control, settings and inquiries of the raster driver as a host
// drives them: opening and closing the output in its three ways, the picture
// states, the device window and viewport, the metric scale and the colour
// table, and the per-picture reset.
#include "export/raster/driver_session.h"

#include <mivo4/stream.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::ColorTableElement;
using mivo4::test::DriverSession;
using mivo4::test::Element;
using mivo4::test::EndImageElement;
using mivo4::test::RectElement;
using mivo4::test::statusLog;
using mivo4::test::VpsmElement;

constexpr VCD kBlack{0, 0, 0};
constexpr VCD kWhite{255, 255, 255};

bool sameVcd(const VCD &a, const VCD &b) { return a.red == b.red && a.green == b.green && a.blue == b.blue; }

// ---------------------------------------------------------------- colour table

TEST_F(DriverSession, ColourTableFromIndex250WithTenEntriesStoresOnlySix) {
    startPicture();
    std::vector<VCD> entries;
    for (uint8_t i = 0; i < 10; ++i) entries.push_back(VCD{static_cast<uint8_t>(10 + i), static_cast<uint8_t>(20 + i), static_cast<uint8_t>(30 + i)});
    EXPECT_EQ(send(ColorTableElement(250, entries)), 0);
    for (int i = 0; i < 250; ++i) ASSERT_TRUE(sameVcd(state()->ColorTable[i], kBlack)) << i;
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(sameVcd(state()->ColorTable[250 + i], entries[static_cast<size_t>(i)])) << i;
    EXPECT_TRUE(sameVcd(state()->Bgc, kBlack)) << "nothing spills past the table";
    finish();
}

TEST_F(DriverSession, ColourTableCountComesFromTheLengthFieldLessTwoDividedByThree) {
    startPicture();
    Element e = ColorTableElement(0, {VCD{1, 2, 3}, VCD{4, 5, 6}, VCD{7, 8, 9}});
    e.length(3 * 2 + 2 + 2);  // 10: (10 - 2) / 3 = 2 entries
    EXPECT_EQ(send(e), 0);
    EXPECT_TRUE(sameVcd(state()->ColorTable[0], VCD{1, 2, 3}));
    EXPECT_TRUE(sameVcd(state()->ColorTable[1], VCD{4, 5, 6}));
    EXPECT_TRUE(sameVcd(state()->ColorTable[2], kBlack)) << "the third entry was not counted";
    finish();
}

TEST_F(DriverSession, ColourTableEntriesAreInvertedUnderColourMode104) {
    setup->nColorMode = 104;  // driver colour mode 1: every component inverted
    startPicture();
    EXPECT_EQ(send(ColorTableElement(3, {VCD{0, 10, 255}})), 0);
    EXPECT_TRUE(sameVcd(state()->ColorTable[3], VCD{255, 245, 0}));
    finish();
}

TEST_F(DriverSession, ColourTableWithStartOutsideTheTableStoresNothing) {
    startPicture();
    for (int32_t start : {-1, 256, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(send(ColorTableElement(start, {kWhite, kWhite})), 0) << start;
        for (const VCD &c : state()->ColorTable) ASSERT_TRUE(sameVcd(c, kBlack)) << start;
    }
    finish();
}

TEST_F(DriverSession, ColourTableWithALengthOfNoEntriesStoresNothing) {
    startPicture();
    for (int32_t length : {0, 1, 2, 4, -1, -7, INT32_MIN}) {
        Element e = ColorTableElement(0, {kWhite, kWhite});
        e.length(length);
        EXPECT_EQ(send(e), 0) << length;
        ASSERT_TRUE(sameVcd(state()->ColorTable[0], kBlack)) << length;
    }
    finish();
}

TEST_F(DriverSession, ColourTableClaimingMoreEntriesThanTheBufferHoldsTakesOnlyThoseInIt) {
    startPicture(64);
    // The element stands 26 bytes before the end of the element buffer: two
    // whole entries after its start index, but its length claims 255.
    uint8_t *at = elbuf() + 64 - 26;
    Element e = ColorTableElement(0, {VCD{9, 9, 9}, VCD{8, 8, 8}});
    e.length(255 * 3 + 2);
    std::memcpy(at, e.bytes().data(), e.size());
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, at), 0);
    EXPECT_TRUE(sameVcd(state()->ColorTable[0], VCD{9, 9, 9}));
    EXPECT_TRUE(sameVcd(state()->ColorTable[1], VCD{8, 8, 8}));
    for (int i = 2; i < 256; ++i) ASSERT_TRUE(sameVcd(state()->ColorTable[i], kBlack)) << i;
    finish();
}

TEST_F(DriverSession, ColourTableCutOffBeforeItsStartIndexStoresNothing) {
    startPicture(64);
    uint8_t *at = elbuf() + 64 - 18;  // header and two bytes of the start index
    Element e = ColorTableElement(0, {kWhite});
    std::memcpy(at, e.bytes().data(), 18);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, at), 0);
    for (const VCD &c : state()->ColorTable) ASSERT_TRUE(sameVcd(c, kBlack));
    finish();
}

// ---------------------------------------------------------------- metric scale

TEST_F(DriverSession, ViewportModeOneWithFactorZeroSetsInchZero) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    ASSERT_EQ(send(VpsmElement(1, 0.1)), 0);
    ASSERT_EQ(state()->inch, 254);
    EXPECT_EQ(send(VpsmElement(1, 0.0)), 0);
    EXPECT_EQ(state()->inch, 0);
    finish();
}

TEST_F(DriverSession, ViewportModeOneWithFactorOneTenthGives254) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    EXPECT_EQ(send(VpsmElement(1, 0.1)), 0);
    EXPECT_EQ(state()->inch, 254);
    EXPECT_EQ(send(VpsmElement(1, 25.4 / 300)), 0);
    EXPECT_EQ(state()->inch, 300);
    EXPECT_EQ(send(VpsmElement(1, 25.4 / 299.6)), 0) << "rounded to the nearest unit";
    EXPECT_EQ(state()->inch, 300);
    finish();
}

TEST_F(DriverSession, ViewportModesZeroAndTwoClearTheScale) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    for (int16_t mode : {int16_t{0}, int16_t{2}}) {
        send(VpsmElement(1, 0.1));
        ASSERT_EQ(state()->inch, 254);
        EXPECT_EQ(send(VpsmElement(mode, 0.1)), 0);
        EXPECT_EQ(state()->inch, 0) << mode;
    }
    finish();
}

TEST_F(DriverSession, ViewportModesOutsideZeroToTwoAreIgnored) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    send(VpsmElement(1, 0.1));
    for (int16_t mode : {int16_t{-1}, int16_t{3}, int16_t{-32768}, int16_t{32767}}) {
        EXPECT_EQ(send(VpsmElement(mode, 1.0)), 0);
        EXPECT_EQ(state()->inch, 254) << mode;
    }
    finish();
}

TEST_F(DriverSession, ViewportModeIsIgnoredInAStateWithBit128) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    state()->inch = 5;
    state()->dvrstate = 128 | 4;
    Element e = VpsmElement(1, 0.1);
    std::memcpy(elbuf(), e.bytes().data(), e.size());
    ds_vpsm(elbuf());
    EXPECT_EQ(state()->inch, 5);
    state()->dvrstate = 1;
}

TEST_F(DriverSession, ViewportModeIsNotTakenInThePictureBody) {
    startPicture();  // state 8: the mode's mask allows 4 and 128 only
    EXPECT_EQ(send(VpsmElement(1, 0.1)), 0);
    EXPECT_EQ(state()->inch, 0);
    finish();
}

TEST_F(DriverSession, ViewportFactorsThatAreNotNumbersOrOutOfRangeGiveAWholeScaleWithoutFault) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(send(VpsmElement(1, std::nan(""))), 0);
    EXPECT_EQ(state()->inch, 0) << "not a number";
    EXPECT_EQ(send(VpsmElement(1, inf)), 0);
    EXPECT_EQ(state()->inch, 0) << "25.4 / infinity + 0.5 truncates to 0";
    EXPECT_EQ(send(VpsmElement(1, 1e-300)), 0);
    EXPECT_EQ(state()->inch, INT32_MAX) << "saturated";
    EXPECT_EQ(send(VpsmElement(1, -0.1)), 0);
    EXPECT_EQ(state()->inch, -253) << "(long)(-254 + 0.5) truncates toward zero";
    finish();
}

// ---------------------------------------------------------------- window and viewport

TEST_F(DriverSession, DeviceWindowTakesTheSixDoublesAndIsAnsweredAsIs) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    EXPECT_EQ(send(RectElement(518, 1.5, -2.5, 300.25, 400.75, 3.0, 4.0)), 0);
    EXPECT_EQ(state()->dtr.wn.p1.x, 1.5);
    EXPECT_EQ(state()->dtr.wn.p1.y, -2.5);
    EXPECT_EQ(state()->dtr.wn.p1.z, 3.0);
    EXPECT_EQ(state()->dtr.wn.p2.x, 300.25);
    EXPECT_EQ(state()->dtr.wn.p2.y, 400.75);
    EXPECT_EQ(state()->dtr.wn.p2.z, 4.0);
    std::memset(elbuf(), 0xEE, 64);
    EXPECT_EQ(send(767), 0);
    EXPECT_EQ(state()->readct, 48);
    const double expected[6] = {1.5, -2.5, 3.0, 300.25, 400.75, 4.0};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(answerAt<double>(8 * static_cast<size_t>(i)), expected[i]) << i;
    finish();
}

TEST_F(DriverSession, DeviceViewportInquiryAnswersTheCrossedOrderWithZeroSlots) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    EXPECT_EQ(send(RectElement(520, 11, 22, 33, 44, 55, 66)), 0);
    std::memset(elbuf(), 0xEE, 64);
    EXPECT_EQ(send(765), 0);
    EXPECT_EQ(state()->readct, 48);
    // x of the first corner, y of the second, a slot, y of the first, x of the
    // second, a slot.
    const double expected[6] = {11, 44, 0, 22, 33, 0};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(answerAt<double>(8 * static_cast<size_t>(i)), expected[i]) << i;
    finish();
}

TEST_F(DriverSession, DeviceViewportSettingLeavesTheZValuesAlone) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    state()->dtr.vp.p1.z = 7;
    state()->dtr.vp.p2.z = 8;
    EXPECT_EQ(send(RectElement(520, 1, 2, 3, 4, 55, 66)), 0);
    EXPECT_EQ(state()->dtr.vp.p1.x, 1);
    EXPECT_EQ(state()->dtr.vp.p1.y, 2);
    EXPECT_EQ(state()->dtr.vp.p2.x, 3);
    EXPECT_EQ(state()->dtr.vp.p2.y, 4);
    EXPECT_EQ(state()->dtr.vp.p1.z, 7);
    EXPECT_EQ(state()->dtr.vp.p2.z, 8);
    finish();
}

TEST_F(DriverSession, DeviceViewportIsTakenOnlyRightAfterBeginPicture) {
    startPicture();  // state 8
    EXPECT_EQ(send(RectElement(520, 1, 2, 3, 4)), 0);
    EXPECT_EQ(state()->dtr.vp.p1.x, 0);
    finish();
}

TEST_F(DriverSession, WindowCutOffByTheBufferEndReadsAsZero) {
    init.elbufsz = 40;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    state()->dtr.wn.p1.x = 9;
    Element e = RectElement(518, 1, 2, 3, 4);
    std::memcpy(elbuf(), e.bytes().data(), 40);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, elbuf()), 0);
    EXPECT_EQ(state()->dtr.wn.p1.x, 0) << "a window the element cannot hold is read as zero";
    EXPECT_EQ(state()->dtr.wn.p2.y, 0);
    finish();
}

TEST_F(DriverSession, BackgroundColourTakesTheThreeBytesAfterTheHeader) {
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    Element e(519, 20);
    e.put<uint8_t>(16, 10).put<uint8_t>(17, 20).put<uint8_t>(18, 30).put<uint8_t>(19, 40);
    EXPECT_EQ(send(e), 0);
    EXPECT_TRUE(sameVcd(state()->Bgc, VCD{10, 20, 30}));
    finish();
}

TEST_F(DriverSession, AxesTransformClipAndDrawingModeSettingsChangeNothing) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 9, 9)});
    std::vector<uint8_t> before(sizeof(MoRastData));
    std::memcpy(before.data(), state(), before.size());
    for (int32_t code : {771, 772, 773, 774, 2310}) {
        Element e(code, 64);
        for (size_t i = 16; i < 64; ++i) e.put<uint8_t>(i, 0xFF);
        EXPECT_EQ(send(e), 0) << code;
        EXPECT_EQ(std::memcmp(before.data(), state(), offsetof(MoRastData, errep)), 0) << code;
        EXPECT_EQ(std::memcmp(&before[offsetof(MoRastData, dtr)], &state()->dtr, sizeof(Dtrans)), 0) << code;
    }
    finish();
}

// ---------------------------------------------------------------- picture reset

TEST_F(DriverSession, BeginPictureRestoresEveryPerPictureAttributeAndReleasesAnOpenImage) {
    // Everything a picture can set, then a picture left with its image open.
    startPicture(1u << 16, {RectElement(518, 0, 0, 15, 3, 1, 2)});
    send(ColorTableElement(0, {kWhite, VCD{1, 2, 3}}));
    send(BeginImageElement(16, 4, 8, 0, 0x12345));
    ASSERT_NE(state()->hBuffer, 0u);
    const ZHANDLE image = state()->hBuffer;
    send(CellArrayElement(0, 1, 16, 1, 8, std::vector<uint8_t>(16, 1)));
    ASSERT_EQ(state()->CurrentScanLine, 1);
    state()->Bgc = VCD{4, 5, 6};
    state()->inch = 300;
    state()->dtr.vp.p1.x = 5;
    state()->dtr.rsx = 2;
    state()->dtr.rotate = 90;
    const uint32_t live = mivo4::mem::LiveHandles();
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(state()->dvrstate, 4);

    const Dtrans zero{};
    EXPECT_EQ(std::memcmp(&state()->dtr, &zero, sizeof zero), 0) << "window and viewport all zero";
    EXPECT_EQ(state()->inch, 0);
    EXPECT_TRUE(sameVcd(state()->Bgc, kBlack));
    for (const VCD &c : state()->ColorTable) ASSERT_TRUE(sameVcd(c, kBlack));
    EXPECT_EQ(state()->CurrentScanLine, 0);
    EXPECT_EQ(state()->bInCellArray, 0);
    EXPECT_EQ(state()->ColorSpecMode, 0);
    EXPECT_EQ(state()->Width, 0u);
    EXPECT_EQ(state()->Height, 0u);
    EXPECT_EQ(state()->BitsPerPixel, 0u);
    EXPECT_EQ(state()->hBuffer, 0u);
    EXPECT_EQ(GlobalLock(image), nullptr) << "the open image's bitmap is released";
    EXPECT_EQ(mivo4::mem::LiveHandles(), live - 1);
    EXPECT_EQ(state()->dvrstate, 4);
    EXPECT_NE(state()->hFile, 0u) << "the device stays open";
    finish();
}

TEST_F(DriverSession, ResetCalledDirectlyLeavesDeviceAndErrorStackAlone) {
    startPicture();
    send(BeginImageElement(8, 2, 1));
    state()->element = 77;
    push_er(303);
    const HZEPIO file = state()->hFile;
    d_reset(0, 4);
    EXPECT_EQ(state()->hFile, file);
    EXPECT_EQ(state()->esl.numlost, 1);
    EXPECT_EQ(state()->dvrstate, 8);
    EXPECT_EQ(state()->bInCellArray, 0);
    EXPECT_EQ(state()->hBuffer, 0u);
    finish();
}

TEST_F(DriverSession, ResetAfterASingleCellArrayDoesNotFreeAnythingTwice) {
    startPicture();
    send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF)));
    const uint32_t live = mivo4::mem::LiveHandles();
    send(5);
    send(3);
    EXPECT_EQ(mivo4::mem::LiveHandles(), live) << "the cell array's block was already freed";
    finish();
}

// ---------------------------------------------------------------- the three ways of output

// A host stream that keeps the bytes in memory, with seeks.
struct HostFile {
    std::vector<uint8_t> bytes;
    size_t at = 0;
    intptr_t openedWith = -1;
    int opens = 0, closes = 0, deletes = 0;
};
HostFile *gHost = nullptr;

int32_t hostStream(intptr_t handle, int32_t op, intptr_t a1, intptr_t a2) {
    switch (op) {
    case ZEP_CB_OPEN:
        ++gHost->opens;
        gHost->openedWith = handle;
        return 42;
    case ZEP_CB_WRITE: {
        const auto *p = reinterpret_cast<const uint8_t *>(a1);
        const size_t n = static_cast<size_t>(a2);
        if (gHost->bytes.size() < gHost->at + n) gHost->bytes.resize(gHost->at + n, 0);
        std::memcpy(gHost->bytes.data() + gHost->at, p, n);
        gHost->at += n;
        return static_cast<int32_t>(a2);
    }
    case ZEP_CB_SEEK: {
        int32_t where = 0;
        std::memcpy(&where, reinterpret_cast<const void *>(a1), 4);
        if (a2 == 0) gHost->at = static_cast<size_t>(where);
        else if (a2 == 1) gHost->at = static_cast<size_t>(static_cast<int64_t>(gHost->at) + where);
        else gHost->at = static_cast<size_t>(static_cast<int64_t>(gHost->bytes.size()) + where);
        return static_cast<int32_t>(gHost->at);
    }
    case ZEP_CB_CLOSE:
        ++gHost->closes;
        if (a2 == ZEP_OPEN_DELETE) ++gHost->deletes;
        return 0;
    default:
        return 0;
    }
}

class DriverOutput : public DriverSession {
protected:
    // One picture: a 16 x 6 one-bit image of stripes through an image bracket.
    void open() { startPicture(1u << 16, {RectElement(518, 0, 0, 15, 5)}); }
    void nextPicture() {
        ASSERT_EQ(send(3), 0);
        ASSERT_EQ(send(RectElement(518, 0, 0, 15, 5)), 0);
        ASSERT_EQ(send(4), 0);
    }
    void sendPicture() {
        ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
        ASSERT_EQ(send(BeginImageElement(16, 6, 1)), 0);
        for (uint8_t r = 0; r < 6; ++r) {
            std::vector<uint8_t> row = {static_cast<uint8_t>(0x0F << (r % 4)), static_cast<uint8_t>(0xA5 ^ r), 0, 0};
            ASSERT_EQ(send(CellArrayElement(0, 1, 16, 1, 1, row)), 0);
        }
        ASSERT_EQ(send(EndImageElement()), 0);
    }
    // The memory block holds the data, one 0xFF end mark, then zero fill.
    void expectMemoryBlockHolds(const std::vector<uint8_t> &expected) {
        ASSERT_NE(options.hMF, 0u);
        const auto *block = static_cast<const uint8_t *>(GlobalLock(options.hMF));
        ASSERT_NE(block, nullptr);
        const std::vector<uint8_t> bytes(block, block + GlobalSize(options.hMF));
        GlobalUnlock(options.hMF);
        ASSERT_GT(bytes.size(), expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin())) << "the data as the file way writes it";
        EXPECT_EQ(bytes[expected.size()], 0xFF);
        for (size_t i = expected.size() + 1; i < bytes.size(); ++i) ASSERT_EQ(bytes[i], 0) << i;
    }
    std::vector<uint8_t> fileWay() {
        open();
        sendPicture();
        finish();
        return outputFile();
    }
};

TEST_F(DriverOutput, FileWayWritesAHeaderAndACodedPictureThatDecodes) {
    std::vector<uint8_t> file = fileWay();
    ASSERT_GT(file.size(), 2048u);
    mivo4::test::DecodedGp4 d = mivo4::test::DecodeGp4File(file);
    EXPECT_EQ(d.width, 16u);
    EXPECT_EQ(d.height, 6u);
    ASSERT_TRUE(d.picture.has_value());
    // The first row received is the picture's bottom row; a clear bit is
    // entry 0 of the table, black.
    for (uint32_t y = 0; y < 6; ++y) {
        const uint32_t r = 5 - y;
        const uint8_t row[2] = {static_cast<uint8_t>(0x0F << (r % 4)), static_cast<uint8_t>(0xA5 ^ r)};
        for (uint32_t x = 0; x < 16; ++x) {
            const bool set = (row[x / 8] >> (7 - x % 8)) & 1;
            ASSERT_EQ(d.picture->black(x, y), !set) << x << "," << y;
        }
    }
}

TEST_F(DriverOutput, MemoryWayHandsTheFinalBlockToTheHostAtCloseWithTheSameBytes) {
    const std::vector<uint8_t> expected = fileWay();
    std::filesystem::remove(connectName);
    connectName[0] = '\0';
    open();
    sendPicture();
    EXPECT_EQ(options.hMF, 0u) << "handed over only at close";
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(send(2), 0);
    expectMemoryBlockHolds(expected);
    EXPECT_FALSE(std::filesystem::exists("out.gp4"));
    terminate();
    GlobalFree(options.hMF);
}

TEST_F(DriverOutput, MemoryWayWithoutExportOptionsFreesTheBlock) {
    connectName[0] = '\0';
    init.export_ = nullptr;
    open();
    sendPicture();
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(send(2), 0);
    EXPECT_EQ(options.hMF, 0u);
    terminate();  // the fixture checks that nothing is left
}

TEST_F(DriverOutput, CallbackWayGivesTheHostTheSameBytesThroughItsStream) {
    const std::vector<uint8_t> expected = fileWay();
    std::filesystem::remove(connectName);
    HostFile host;
    gHost = &host;
    setup->pIOCBProc = &hostStream;
    options.FileHandle = 0x4455;
    open();
    sendPicture();
    finish();
    gHost = nullptr;
    EXPECT_EQ(host.opens, 1);
    EXPECT_EQ(host.openedWith, 0x4455) << "the host's own stream travels with the open";
    EXPECT_EQ(host.closes, 1);
    EXPECT_EQ(host.bytes, expected);
    EXPECT_FALSE(std::filesystem::exists("out.gp4"));
}

TEST_F(DriverOutput, OpeningANameThatCannotBeOpenedPushes303AsTheResult) {
    std::strcpy(connectName, "no/such/dir.x");
    init.elbufsz = 4096;
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(send(1), 303);
    EXPECT_EQ(state()->dvrstate, 2) << "the device counts as open";
    EXPECT_EQ(state()->hFile, 0u);
    EXPECT_EQ(state()->esl.oldest.item, 1);
    EXPECT_EQ(state()->esl.oldest.code, 303);
    // A picture sent to no stream writes nothing and does not fault.
    nextPicture();
    sendPicture();
    state()->Height = 2;  // lets a single cell array place its rows
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    send(5);
    EXPECT_EQ(send(2), 303) << "a stream that was never opened does not close";
    EXPECT_EQ(state()->dvrstate, 1);
    EXPECT_FALSE(std::filesystem::exists("no"));
}

TEST_F(DriverOutput, StopAnsweredAtCloseDeletesTheOutputFile) {
    open();
    sendPicture();
    send(5);
    ASSERT_TRUE(std::filesystem::exists("out.gp4"));
    statusLog().answer = 1;
    EXPECT_EQ(send(2), 901);
    EXPECT_EQ(state()->dvrstate, 1);
    EXPECT_FALSE(std::filesystem::exists("out.gp4"));
    terminate();
}

TEST_F(DriverOutput, StopAnsweredAtCloseOfTheMemoryWayHandsNothingOverAndLeaksNothing) {
    connectName[0] = '\0';
    open();
    sendPicture();
    send(5);
    statusLog().answer = 1;
    EXPECT_EQ(send(2), 901);
    EXPECT_EQ(options.hMF, 0u);
    terminate();
}

TEST_F(DriverOutput, StopAnsweredAtCloseOfTheCallbackWayAsksTheHostToDelete) {
    HostFile host;
    gHost = &host;
    setup->pIOCBProc = &hostStream;
    open();
    sendPicture();
    send(5);
    statusLog().answer = 1;
    EXPECT_EQ(send(2), 901);
    terminate();
    gHost = nullptr;
    EXPECT_EQ(host.deletes, 1);
}

TEST_F(DriverOutput, TerminateWithTheDeviceOpenClosesItFirstAndTheFileIsComplete) {
    const std::vector<uint8_t> expected = fileWay();
    std::filesystem::remove(connectName);
    open();
    sendPicture();
    EXPECT_EQ(terminate(), 0);  // no end picture, no close
    EXPECT_EQ(outputFile(), expected);
}

TEST_F(DriverOutput, TerminateWithTheMemoryWayOpenHandsTheBlockOver) {
    const std::vector<uint8_t> expected = fileWay();
    connectName[0] = '\0';
    open();
    sendPicture();
    EXPECT_EQ(terminate(), 0);
    expectMemoryBlockHolds(expected);
    GlobalFree(options.hMF);
}

TEST_F(DriverOutput, DeviceCanBeOpenedAgainAfterClosingAndWritesAFreshFile) {
    open();
    sendPicture();
    send(5);
    EXPECT_EQ(send(2), 0);
    const std::vector<uint8_t> first = outputFile();
    EXPECT_EQ(send(1), 0);
    nextPicture();
    sendPicture();
    finish();
    EXPECT_EQ(outputFile(), first);
}

}  // namespace
