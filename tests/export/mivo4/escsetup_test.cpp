// Option escapes: setting and querying options, keeping them in the profile.
#include <gtest/gtest.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstring>

#include "export/mivo4/tempdir.h"
#include "zep_xxxx/memdebug.h"

namespace {

class Escapes : public mivo4::test::InTempDir {
protected:
    void SetUp() override {
        InTempDir::SetUp();
        before_ = mivo4::mem::LiveHandles();
        h_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(h_, 0u);
        s_ = static_cast<Gp4_SetupData *>(GlobalLock(h_));
    }
    void TearDown() override {
        DestroySetup(h_);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_);
        InTempDir::TearDown();
    }
    int32_t set(int32_t esc, int32_t v, int32_t retain = 0) {
        return xEscapeSetup(h_, esc, 4, &v, nullptr, retain);
    }
    int32_t setd(int32_t esc, double v, int32_t retain = 0) {
        return xEscapeSetup(h_, esc, 8, &v, nullptr, retain);
    }

    ZHANDLE h_ = 0;
    Gp4_SetupData *s_ = nullptr;
    uint32_t before_ = 0;
};

TEST_F(Escapes, ColorModeOutsideItsRangeIsRefused) {
    EXPECT_EQ(set(ESC_COLOR_MODE, 100), -1);
    EXPECT_EQ(set(ESC_COLOR_MODE, 106), -1);
    EXPECT_EQ(s_->nColorMode, 103);
    EXPECT_EQ(set(ESC_COLOR_MODE, 103), 1);
    EXPECT_EQ(s_->nColorMode, 105);
}

TEST_F(Escapes, WidthBelowTheSmallestSizeIsRefusedAndTwentyTwoInchesAccepted) {
    EXPECT_EQ(setd(ESC_WIDTH, 0.03), -1);
    EXPECT_DOUBLE_EQ(s_->PrintWidth, 6.67);
    EXPECT_EQ(setd(ESC_WIDTH, 22.0), 1);
    EXPECT_DOUBLE_EQ(s_->PrintWidth, 22.0);
    EXPECT_EQ(setd(ESC_HEIGHT, 0.03125), 1);
    EXPECT_DOUBLE_EQ(s_->PrintHeight, 0.03125);
    EXPECT_EQ(setd(ESC_HEIGHT, 22.01), -1);
}

TEST_F(Escapes, UnknownSizeModeIsAcceptedAndChangesNothing) {
    EXPECT_EQ(set(ESC_SIZE_MODE, 5), 1);
    EXPECT_EQ(s_->SizeMode, 602);
    for (int v = 0; v <= 3; ++v) {
        EXPECT_EQ(set(ESC_SIZE_MODE, v), 1);
        EXPECT_EQ(s_->SizeMode, 600 + v);
    }
}

TEST_F(Escapes, UnhandledEscapesAnswerZero) {
    int32_t v = 0;
    for (int esc : {200, 0, 2, 15, 55, 80, 82, -1}) EXPECT_EQ(xEscapeSetup(h_, esc, 4, &v, &v, 0), 0) << esc;
}

TEST_F(Escapes, NoSetupOrAStaleOneIsRefused) {
    int32_t v = 103;
    EXPECT_EQ(xEscapeSetup(0, ESC_COLOR_MODE, 4, &v, nullptr, 0), -1);
    EXPECT_EQ(xEscapeSetup(0, 200, 4, &v, nullptr, 0), -1);
    ZHANDLE stale = CreateSetup(0, "absent.ini", nullptr, nullptr);
    DestroySetup(stale);
    EXPECT_EQ(xEscapeSetup(stale, ESC_COLOR_MODE, 4, &v, nullptr, 0), -1);
}

TEST_F(Escapes, WrongSizesAreRefusedAndChangeNothing) {
    int64_t big = 103;
    EXPECT_EQ(xEscapeSetup(h_, ESC_COLOR_MODE, 8, &big, nullptr, 0), -1);
    double d = 3.0;
    EXPECT_EQ(xEscapeSetup(h_, ESC_WIDTH, 4, &d, nullptr, 0), -1);
    int32_t v = 100;
    EXPECT_EQ(xEscapeSetup(h_, ESC_X_RESOLUTION, 2, &v, nullptr, 0), -1);
    EXPECT_EQ(xEscapeSetup(h_, ESC_SIZE_MODE, 0, &v, nullptr, 0), -1);
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 3, &v, nullptr, 0), -1);
    EXPECT_EQ(xEscapeSetup(h_, ESC_COLOR_MODE, 4, nullptr, nullptr, 0), -1);
    EXPECT_EQ(s_->nColorMode, 103);
    EXPECT_EQ(s_->XResolution, 96);
}

TEST_F(Escapes, ResolutionsBetween32And400) {
    EXPECT_EQ(set(ESC_X_RESOLUTION, 31), -1);
    EXPECT_EQ(set(ESC_X_RESOLUTION, 401), -1);
    EXPECT_EQ(set(ESC_X_RESOLUTION, 32), 1);
    EXPECT_EQ(set(ESC_Y_RESOLUTION, 400), 1);
    EXPECT_EQ(s_->XResolution, 32);
    EXPECT_EQ(s_->YResolution, 400);
}

TEST_F(Escapes, SizeQueryAnswersZeroForUserSizeElseTheSize) {
    double size[2] = {-1, -1};
    EXPECT_EQ(xEscapeSetup(h_, ESC_SIZE_QUERY, 16, nullptr, size, 0), 1);
    EXPECT_EQ(size[0], 0.0);
    EXPECT_EQ(size[1], 0.0);
    s_->SizeMode = 600;
    EXPECT_EQ(xEscapeSetup(h_, ESC_SIZE_QUERY, 16, nullptr, size, 0), 1);
    EXPECT_DOUBLE_EQ(size[0], 6.67);
    EXPECT_DOUBLE_EQ(size[1], 5.0);
}

TEST_F(Escapes, SpecialResolutionOnlyForThree) {
    EXPECT_EQ(set(ESC_RES_SPECIAL, 2), 1);
    EXPECT_EQ(s_->ResMode, 779);
    EXPECT_EQ(set(ESC_RES_SPECIAL, 3), 1);
    EXPECT_EQ(s_->ResMode, 310);
}

TEST_F(Escapes, ColorModeQueryAnswers101To105OrMinusOne) {
    int32_t out = 0;
    EXPECT_EQ(xEscapeSetup(h_, ESC_COLOR_QUERY, 4, nullptr, &out, 0), 1);
    EXPECT_EQ(out, 101);
    s_->nColorMode = 107;
    EXPECT_EQ(xEscapeSetup(h_, ESC_COLOR_QUERY, 4, nullptr, &out, 0), 1);
    EXPECT_EQ(out, 105);
    s_->nColorMode = 42;
    EXPECT_EQ(xEscapeSetup(h_, ESC_COLOR_QUERY, 4, nullptr, &out, 0), -1);
}

TEST_F(Escapes, ResolutionModeSetsFixedOrUserResolutions) {
    int32_t fixed[1] = {781};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 4, fixed, nullptr, 0), 1);
    EXPECT_EQ(s_->ResMode, 781);
    EXPECT_EQ(s_->XResolution, 600);
    int32_t user[2] = {783, 250};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 8, user, nullptr, 0), 1);
    EXPECT_EQ(s_->ResMode, 783);
    EXPECT_EQ(s_->XResolution, 250);
    EXPECT_EQ(s_->YResolution, 250);
    int32_t userOnly[2] = {784, 999};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 4, userOnly, nullptr, 0), 1) << "the second value is read only when given";
    EXPECT_EQ(s_->ResMode, 784);
    EXPECT_EQ(s_->XResolution, 250);
    int32_t bad[2] = {785, 100};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 8, bad, nullptr, 0), -1);
    int32_t zero[2] = {783, 0};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RES_MODE, 8, zero, nullptr, 0), -1);
    EXPECT_EQ(s_->ResMode, 784);
}

int32_t hostCallback(intptr_t, int32_t, intptr_t, intptr_t) { return 0; }

TEST_F(Escapes, OutputCallbackIsTheDataPointerItself) {
    EXPECT_EQ(xEscapeSetup(h_, ESC_OUTPUT_CALLBACK, 4, reinterpret_cast<void *>(&hostCallback), nullptr, 0), 1);
    EXPECT_EQ(s_->pIOCBProc, &hostCallback);
    EXPECT_EQ(xEscapeSetup(h_, ESC_OUTPUT_CALLBACK, 8, reinterpret_cast<void *>(&hostCallback), nullptr, 0), -1);
}

TEST_F(Escapes, RasterInfoQueryAnswersTheOutputSize) {
    zepRasterInfoInput in{96, 300, 100, 600, 300, 1280, 1024};
    _outdata out{};
    EXPECT_EQ(xEscapeSetup(h_, ESC_RASTER_INFO, sizeof in, &in, &out, 0), 1);
    EXPECT_DOUBLE_EQ(s_->PrintWidth, 6.0);
    EXPECT_DOUBLE_EQ(s_->PrintHeight, 3.0);
    EXPECT_EQ(out.width, 1800);
    EXPECT_EQ(out.height, 900);
    EXPECT_EQ(out.depth, 1);
}

TEST_F(Escapes, RetainedValuesAreWrittenWithTheirKeysAndFormats) {
    spill("keep.ini", "[MIVO4]\n~Mode=m\n[m]\nDriver=X\n");
    ZHANDLE h = CreateSetup(0, "keep.ini", nullptr, nullptr);
    ASSERT_NE(h, 0u);
    int32_t v = 104;
    EXPECT_EQ(xEscapeSetup(h, ESC_COLOR_MODE, 4, &v, nullptr, 1), 1);
    v = 150;
    EXPECT_EQ(xEscapeSetup(h, ESC_X_RESOLUTION, 4, &v, nullptr, 1), 1);
    v = 200;
    EXPECT_EQ(xEscapeSetup(h, ESC_Y_RESOLUTION, 4, &v, nullptr, 1), 1);
    double d = 6.67;
    EXPECT_EQ(xEscapeSetup(h, ESC_WIDTH, 8, &d, nullptr, 1), 1);
    d = 4.25;
    EXPECT_EQ(xEscapeSetup(h, ESC_HEIGHT, 8, &d, nullptr, 1), 1);
    v = 2;
    EXPECT_EQ(xEscapeSetup(h, ESC_SIZE_MODE, 4, &v, nullptr, 1), 1) << "not kept";
    EXPECT_EQ(slurp("keep.ini"),
              "[MIVO4]\n~Mode=m\n[m]\nDriver=X\nColor Mode=106\nNot Defined=200\nWidth=.36.67\nHeight=4.25\n");
    DestroySetup(h);
}

TEST_F(Escapes, KeptValuesRoundTripThroughAFreshSetup) {
    spill("keep.ini", "[MIVO4]\n~Mode=m\n[m]\nDriver=X\nResolution Mode=783\n");
    ZHANDLE h = CreateSetup(0, "keep.ini", nullptr, nullptr);
    int32_t v = 105;
    xEscapeSetup(h, ESC_COLOR_MODE, 4, &v, nullptr, 1);
    v = 120;
    xEscapeSetup(h, ESC_Y_RESOLUTION, 4, &v, nullptr, 1);
    double d = 6.67;
    xEscapeSetup(h, ESC_WIDTH, 8, &d, nullptr, 1);
    d = 9.5;
    xEscapeSetup(h, ESC_HEIGHT, 8, &d, nullptr, 1);
    DestroySetup(h);

    ZHANDLE fresh = CreateSetup(0, "keep.ini", nullptr, nullptr);
    auto *s = static_cast<Gp4_SetupData *>(GlobalLock(fresh));
    EXPECT_EQ(s->nColorMode, 107);
    EXPECT_EQ(s->XResolution, 120) << "both resolutions come back from the one key";
    EXPECT_EQ(s->YResolution, 120);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 0.36) << "the width is read back from .36.67";
    EXPECT_DOUBLE_EQ(s->PrintHeight, 9.5);
    DestroySetup(fresh);
}

TEST_F(Escapes, RetainWithoutAProfileWritesNothing) {
    int32_t v = 104;
    EXPECT_EQ(set(ESC_COLOR_MODE, v, 1), 1);
    EXPECT_FALSE(std::filesystem::exists("absent.ini"));
    int files = 0;
    for (const auto &e : std::filesystem::directory_iterator(".")) {
        (void)e;
        ++files;
    }
    EXPECT_EQ(files, 0);
}

TEST(RasterInfo, UserSizeAtPictureResolution) {
    Gp4_SetupData s{};
    UseDefaultSettings(&s);
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    zepRasterInfoInput in{96, 0, 100, 600, 300, 1280, 1024};
    _outdata out{};
    GetRasterInfo(0, &in, &out);
    EXPECT_DOUBLE_EQ(s.PrintWidth, 6.0);
    EXPECT_DOUBLE_EQ(s.PrintHeight, 3.0);
    EXPECT_EQ(s.XResolution, 300);
    EXPECT_EQ(out.width, 1800);
    EXPECT_EQ(out.height, 900);
    EXPECT_EQ(out.depth, 1);
    lpRaster = saved;
}

TEST(RasterInfo, BoxIsCutAlongItsLongerSideToThePicturesAspect) {
    Gp4_SetupData s{};
    UseDefaultSettings(&s);
    s.XResolution = s.YResolution = 300;
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    double size[2] = {0, 0};
    AdjustAspect(size, 100, 100);
    EXPECT_DOUBLE_EQ(size[0], 5.0);
    EXPECT_DOUBLE_EQ(size[1], 5.0);
    zepRasterInfoInput in{96, 0, 0, 100, 100, 1280, 1024};
    _outdata out{};
    GetRasterInfo(0, &in, &out);
    EXPECT_EQ(out.width, 1500);
    EXPECT_EQ(out.height, 1500);
    lpRaster = saved;
}

TEST(RasterInfo, OneIsAddedToEachExtentWhenFitting) {
    Gp4_SetupData s{};
    s.XResolution = s.YResolution = 100;
    s.PrintWidth = 10.0;  // 1000 x 1000 pixels
    s.PrintHeight = 10.0;
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    double size[2];
    AdjustAspect(size, 199, 99);  // fitted as 200 x 100
    EXPECT_DOUBLE_EQ(size[0], 10.0);
    EXPECT_DOUBLE_EQ(size[1], 5.0);
    AdjustAspect(size, -99, 199);  // extents taken as absolute values
    EXPECT_DOUBLE_EQ(size[0], 5.0);
    EXPECT_DOUBLE_EQ(size[1], 10.0);
    lpRaster = saved;
}

TEST(RasterInfo, ScreenSizeAndScreenResolution) {
    Gp4_SetupData s{};
    UseDefaultSettings(&s);
    s.SizeMode = 600;
    s.ResMode = 307;
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    zepRasterInfoInput in{96, 0, 0, 640, 480, 1280, 960};
    _outdata out{};
    GetRasterInfo(0, &in, &out);
    EXPECT_DOUBLE_EQ(s.PrintWidth, 1280.0 / 96);
    EXPECT_DOUBLE_EQ(s.PrintHeight, 10.0);
    EXPECT_EQ(s.XResolution, 96);
    EXPECT_EQ(out.width, 1280);
    EXPECT_EQ(out.height, 960);
    lpRaster = saved;
}

TEST(RasterInfo, ZeroResolutionsAreGuarded) {
    Gp4_SetupData s{};
    s.PrintWidth = 2.0;
    s.PrintHeight = 3.0;
    Gp4_SetupData *saved = lpRaster;
    lpRaster = &s;
    double size[2];
    AdjustAspect(size, 10, 10);
    EXPECT_EQ(size[0], 2.0);
    EXPECT_EQ(size[1], 3.0);
    zepRasterInfoInput in{0, 0, 0, 10, 10, 0, 0};
    _outdata out{-1, -1, -1};
    GetRasterInfo(0, &in, &out);
    EXPECT_EQ(out.width, 0);
    EXPECT_EQ(out.height, 0);
    lpRaster = nullptr;
    GetRasterInfo(0, &in, &out);
    AdjustAspect(size, 1, 1);
    lpRaster = saved;
}

}  // namespace
