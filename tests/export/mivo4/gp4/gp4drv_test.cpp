// The GP4 driver's open and close on the metafile path, through each way of
// output, with a recording stand-in for the host platform's metafile filter.
#include <gtest/gtest.h>
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <cstring>
#include <string>
#include <vector>

#include "export/dialog/platform.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

struct EscapeCall {
    ZHANDLE setup;
    int32_t code, count, value, retain;
    bool hasOut;
};
std::vector<EscapeCall> gEscapes;
int32_t recordEscape(ZHANDLE setup, int32_t code, int32_t count, void *in, void *out, int32_t retain) {
    int32_t v = 0;
    std::memcpy(&v, in, 4);
    gEscapes.push_back({setup, code, count, v, retain, out != nullptr});
    return 1;
}

uint32_t gMetafile = 0;
int gTerms = 0;
uint32_t fakeInit(uint32_t h, const char *, EXPORT_OPTIONS *, uint32_t *h2, ZHANDLE *c,
                  LPDDENTRY32 *dd32, LPPLATFORMESCAPE *e) {
    *h2 = 0x77;
    *c = 0x1234;
    *dd32 = nullptr;
    *e = recordEscape;
    return h + 1;
}
int32_t fakeTerm(uint32_t) {
    ++gTerms;
    return 5;
}
uint32_t fakeMetafile(uint32_t, LPPLATFORMESCAPE) { return gMetafile; }

struct CallbackLog {
    std::vector<int32_t> ops;
    intptr_t openHandle = 0;
    int32_t closeAnswer = 0;
    std::string written;
};
CallbackLog *gLog = nullptr;
int32_t hostStream(intptr_t handle, int32_t op, intptr_t a1, intptr_t a2) {
    gLog->ops.push_back(op);
    switch (op) {
    case ZEP_CB_OPEN:
        gLog->openHandle = handle;
        return 99;
    case ZEP_CB_WRITE:
        gLog->written.append(reinterpret_cast<const char *>(a1), static_cast<size_t>(a2));
        return static_cast<int32_t>(a2);
    case ZEP_CB_CLOSE:
        return gLog->closeAnswer;
    default:
        return 0;
    }
}

int32_t gStopAnswer = 0;
int32_t hostStatus(intptr_t, int32_t, int32_t, intptr_t, intptr_t, intptr_t, intptr_t) { return gStopAnswer; }

class Gp4Driver : public ::testing::Test {
protected:
    void SetUp() override {
        before_ = mivo4::mem::LiveHandles();
        savedFilter_ = mivo4::platform::Filter();
        gEscapes.clear();
        gMetafile = 0;
        gTerms = 0;
        gStopAnswer = 0;
        setup_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(setup_, 0u);
        s_ = static_cast<Gp4_SetupData *>(GlobalLock(setup_));
        path_ = oracle::scratchPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::strcpy(connect_, path_.c_str());
        init_.connect = connect_;
        init_.setup = setup_;
        init_.export_ = &options_;
        init_.handle = 10;
    }
    void TearDown() override {
        mivo4::platform::Filter() = savedFilter_;
        DestroySetup(setup_);
        if (options_.hMF != 0) GlobalFree(options_.hMF);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
        std::remove(path_.c_str());
    }
    void fakeFilter() {
        mivo4::platform::Filter().init = fakeInit;
        mivo4::platform::Filter().term = fakeTerm;
        mivo4::platform::Filter().metafile = fakeMetafile;
    }

    ZHANDLE setup_ = 0;
    Gp4_SetupData *s_ = nullptr;
    char connect_[260] = "";
    VInitDriver init_{};
    EXPORT_OPTIONS options_{};
    mivo4::platform::MetafileFilter savedFilter_{};
    uint32_t before_ = 0;
    std::string path_;
};

TEST_F(Gp4Driver, OpenClearsTheBandStateAndOpensTheNamedFile) {
    s_->gp4_FGC = 255;
    s_->gp4_BitOffset = 5;
    s_->gp4_stateInfoSaved = 1;
    options_.hDC = 0xD0;
    ASSERT_EQ(initdvr(&init_), 0);
    EXPECT_EQ(lpRaster, s_);
    EXPECT_EQ(s_->gp4_FGC, 0);
    EXPECT_EQ(s_->gp4_BitOffset, 0u);
    EXPECT_EQ(s_->gp4_stateInfoSaved, 0);
    EXPECT_EQ(GlobalSize(s_->gp4_refLine), 1u);
    EXPECT_NE(s_->FileHandle, 0u);
    EXPECT_STREQ(reinterpret_cast<const char *>(s_->FileName), path_.c_str());
    EXPECT_EQ(connect_[0], '\0') << "the caller's connection name is emptied";
    EXPECT_EQ(s_->hDC, 0xD0u);
    EXPECT_EQ(s_->lpExport, &options_);
    EXPECT_EQ(s_->hInst, 10u) << "the platform filter's start answers its handle";
    EXPECT_EQ(init_.setup, 0u) << "the platform filter gave no setup of its own";
    EXPECT_TRUE(gEscapes.empty());

    EXPECT_EQ(termdvr(nullptr), 300) << "nothing recorded on this platform";
    EXPECT_EQ(s_->gp4_refLine, 0u);
    EXPECT_EQ(s_->gp4_stateInfoSaved, 0);
    EXPECT_TRUE(oracle::readFile(path_).empty()) << "no picture is written";
}

TEST_F(Gp4Driver, PlatformFilterIsToldColourFontsAndLineModeInOrder) {
    fakeFilter();
    s_->nColorMode = 103;
    s_->nLineMode = 119;
    ASSERT_EQ(initdvr(&init_), 0);
    ASSERT_EQ(gEscapes.size(), 5u);
    const int32_t codes[] = {1, 2, 6, 5, 3};
    const int32_t values[] = {101, 110, 130, 119, 1};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(gEscapes[i].setup, 0x1234u);
        EXPECT_EQ(gEscapes[i].code, codes[i]);
        EXPECT_EQ(gEscapes[i].count, 4);
        EXPECT_EQ(gEscapes[i].value, values[i]) << "call " << i;
        EXPECT_EQ(gEscapes[i].retain, 0);
        EXPECT_FALSE(gEscapes[i].hasOut);
    }
    EXPECT_EQ(init_.setup, 0x1234u);
    EXPECT_EQ(s_->hPlatHandle, 0x77u);
    EXPECT_EQ(s_->hInst, 11u);
    EXPECT_EQ(termdvr(nullptr), 300);
    EXPECT_EQ(gTerms, 1);
}

TEST_F(Gp4Driver, ColourModesMapToThePlatformsCodes) {
    fakeFilter();
    const int32_t modes[] = {103, 104, 105, 106, 107, 42};
    const int32_t sent[] = {101, 102, 103, 104, 105, 101};
    for (int i = 0; i < 6; ++i) {
        gEscapes.clear();
        s_->nColorMode = modes[i];
        std::strcpy(connect_, path_.c_str());
        init_.setup = setup_;
        ASSERT_EQ(initdvr(&init_), 0);
        EXPECT_EQ(gEscapes.at(0).value, sent[i]) << modes[i];
        termdvr(nullptr);
    }
}

TEST_F(Gp4Driver, RecordedPictureIsRenderedThroughTheBandLoopAndClosed) {
    fakeFilter();
    gMetafile = 0x55;
    options_.Left = 0;
    options_.Top = 720;
    options_.Right = 1440;
    options_.Bottom = 0;
    options_.Inch = 72;
    ASSERT_EQ(initdvr(&init_), 0);
    // The metafile procedure of this platform renders nothing: 27.
    EXPECT_EQ(termdvr(nullptr), 27);
    EXPECT_EQ(gTerms, 1);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST_F(Gp4Driver, CancelBeforeCloseGives300AndWritesNoPicture) {
    fakeFilter();
    gMetafile = 0x55;
    ASSERT_EQ(AllocGlobal(0), 0);
    auto *drv = static_cast<MoRastData *>(lpEMData);
    EXPORT_OPTIONS driverOptions{};
    driverOptions.GetSet_Status = hostStatus;
    drv->lpExport = &driverOptions;
    ASSERT_EQ(initdvr(&init_), 0);
    gStopAnswer = 1;
    EXPECT_EQ(termdvr(nullptr), 300);
    EXPECT_TRUE(oracle::readFile(path_).empty());
    FreeGlobal(0);
}

TEST_F(Gp4Driver, CallbackOutputGoesToTheHostsStream) {
    CallbackLog log;
    gLog = &log;
    s_->pIOCBProc = hostStream;
    options_.FileHandle = 0xF11E;
    ASSERT_EQ(initdvr(&init_), 0);
    EXPECT_EQ(log.openHandle, 0xF11E) << "the host's own handle travels in the first field";
    ASSERT_FALSE(log.ops.empty());
    EXPECT_EQ(log.ops.front(), ZEP_CB_OPEN);
    EXPECT_EQ(termdvr(nullptr), 300);
    EXPECT_EQ(log.ops.back(), ZEP_CB_CLOSE);
    log.ops.clear();
    log.closeAnswer = -1;
    std::strcpy(connect_, "x");
    init_.setup = setup_;
    ASSERT_EQ(initdvr(&init_), 0);
    EXPECT_EQ(termdvr(nullptr), 303) << "a failed close";
}

TEST_F(Gp4Driver, EmptyNameOpensAMemoryBlockHandedBackInTheExportOptions) {
    connect_[0] = '\0';
    ASSERT_EQ(initdvr(&init_), 0);
    ASSERT_NE(s_->FileHandle, 0u);
    const char text[] = "abc";
    EXPECT_EQ(zepWrite(s_->FileHandle, text, 3), 3);
    EXPECT_EQ(termdvr(nullptr), 300);
    ASSERT_NE(options_.hMF, 0u);
    auto *block = static_cast<const uint8_t *>(GlobalLock(options_.hMF));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::memcmp(block, "abc\xff", 4), 0) << "the data and the end marker";
}

TEST_F(Gp4Driver, OpenFailuresGiveTheirCodes) {
    VInitDriver none = init_;
    none.setup = 0;
    EXPECT_EQ(initdvr(&none), 22);
    EXPECT_EQ(initdvr(nullptr), 22);

    testing::internal::CaptureStderr();
    mivo4::mem::FailNth(1);  // the reference row block
    EXPECT_EQ(initdvr(&init_), 22);
    std::strcpy(connect_, "");
    init_.setup = setup_;
    mivo4::mem::FailNth(2);  // the memory block (after the reference row)
    EXPECT_EQ(initdvr(&init_), 21);
    testing::internal::GetCapturedStderr();

    std::strcpy(connect_, "/nonexistent-dir/out.gp4");
    init_.setup = setup_;
    EXPECT_EQ(initdvr(&init_), 303);
    GlobalFree(s_->gp4_refLine);
    s_->gp4_refLine = 0;
}

TEST(GP4Status, ProgressWithoutExportOptionsIsZeroAndAStopIs901) {
    Gp4_SetupData s{};
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    EXPECT_EQ(UpdateStatus(50), 0);
    EXPORT_OPTIONS x{};
    s.lpExport = &x;
    EXPECT_EQ(UpdateStatus(50), 0);
    x.GetSet_Status = hostStatus;
    gStopAnswer = 0;
    EXPECT_EQ(UpdateStatus(50), 0);
    gStopAnswer = 1;
    EXPECT_EQ(UpdateStatus(50), 901);
    lpRaster = nullptr;
    EXPECT_EQ(UpdateStatus(50), 0);
    lpRaster = saved;
}

}  // namespace
