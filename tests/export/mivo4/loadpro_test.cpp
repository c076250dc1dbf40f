// Setups filled from their profiles.
#include <gtest/gtest.h>
#include <mivo4/display.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>

#include <cstring>

#include "export/mivo4/tempdir.h"
#include "zep_xxxx/memdebug.h"

namespace {

class SetupProfiles : public mivo4::test::InTempDir {
protected:
    void SetUp() override {
        InTempDir::SetUp();
        before_ = mivo4::mem::LiveHandles();
        SetDisplayInfo(0, 0, 0, 0);
        SetPrinterInfo(0, 0, 0, 0);
    }
    void TearDown() override {
        if (h_ != 0) DestroySetup(h_);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_);
        InTempDir::TearDown();
    }
    Gp4_SetupData *create(const char *profile, const char *mode) {
        h_ = CreateSetup(0, profile, mode, nullptr);
        EXPECT_NE(h_, 0u);
        return static_cast<Gp4_SetupData *>(GlobalLock(h_));
    }

    ZHANDLE h_ = 0;
    uint32_t before_ = 0;
};

TEST_F(SetupProfiles, ModeSectionFillsTheSetup) {
    spill("my.ini",
          "[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=GP4.1\nColor Mode=105\nSize Mode=602\n"
          "Resolution Mode=777\nLine Mode=120\nGrey Threshold=20\nWidth=8.5\nHeight=11\n");
    Gp4_SetupData *s = create("my.ini", nullptr);
    EXPECT_STREQ(s->szProfile, "my.ini");
    EXPECT_STREQ(s->szDriver, "Fax");
    EXPECT_STREQ(s->out_type, "GP4.1");
    EXPECT_EQ(s->nColorMode, 105);
    EXPECT_EQ(s->SizeMode, 602);
    EXPECT_EQ(s->ResMode, 777);
    EXPECT_EQ(s->XResolution, 200);
    EXPECT_EQ(s->YResolution, 200);
    EXPECT_EQ(s->nLineMode, 120);
    EXPECT_EQ(s->GreyThreshold, 20u);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 8.5);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 11.0);
}

TEST_F(SetupProfiles, GivenModeNameWinsOverTheProfilesMode) {
    spill("my.ini", "[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=A\n[Photo]\nDriver=B\n");
    Gp4_SetupData *s = create("my.ini", "Photo");
    EXPECT_STREQ(s->szDriver, "Photo");
    EXPECT_STREQ(s->out_type, "B");
}

TEST_F(SetupProfiles, MissingKeysTakeTheirDefaults) {
    spill("my.ini", "[m]\nDriver=X\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->nColorMode, 103);
    EXPECT_EQ(s->SizeMode, 602);
    EXPECT_EQ(s->ResMode, 779);
    EXPECT_EQ(s->XResolution, 300);
    EXPECT_EQ(s->nLineMode, 119);
    EXPECT_EQ(s->GreyThreshold, 0u);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 6.67);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 5.0);
}

TEST_F(SetupProfiles, SectionWithoutDriverLeavesTheRecordUntouchedAndYieldsZero) {
    spill("my.ini", "[m]\nColor Mode=107\n");
    Gp4_SetupData *s = create("my.ini", "m");
    Gp4_SetupData before;
    std::memcpy(&before, s, sizeof before);
    EXPECT_EQ(LoadProfile(1), 0);
    EXPECT_EQ(std::memcmp(&before, s, sizeof before), 0);
    EXPECT_EQ(s->nColorMode, 0) << "a mode that does not exist loads nothing at creation either";
}

TEST_F(SetupProfiles, UserResolutionModeReadsTheNotDefinedKey) {
    spill("my.ini", "[m]\nDriver=X\nResolution Mode=783\nNot Defined=150\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->XResolution, 150);
    EXPECT_EQ(s->YResolution, 150);
}

TEST_F(SetupProfiles, UserResolutionDefaultsTo400) {
    spill("my.ini", "[m]\nDriver=X\nResolution Mode=784\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->XResolution, 400);
}

TEST_F(SetupProfiles, UnknownResolutionModeLeavesTheResolutions) {
    spill("my.ini", "[m]\nDriver=X\nResolution Mode=310\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->ResMode, 310);
    EXPECT_EQ(s->XResolution, 0) << "the zero-filled record keeps its resolutions";
}

TEST_F(SetupProfiles, PrinterSizeWithoutAPrinterIsLoadedAsScreenSize) {
    spill("my.ini", "[m]\nDriver=X\nSize Mode=601\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->SizeMode, 600);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 1280.0 / 96.0);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 1078.0 / 96.0);
}

TEST_F(SetupProfiles, PrinterSizeWithAPrinterTakesThePrinterValuesAsStored) {
    spill("my.ini", "[m]\nDriver=X\nSize Mode=601\n");
    Gp4_SetupData *s = create("my.ini", "m");
    SetPrinterInfo(2550.0, 3300.0, 300, 300);
    s->IHaveAPrinter = 1;
    ASSERT_EQ(LoadProfile(0), 1);
    EXPECT_EQ(s->SizeMode, 601);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 2550.0);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 3300.0);
}

TEST_F(SetupProfiles, WidthThatIsNotANumberYieldsZero) {
    spill("my.ini", "[m]\nDriver=X\nWidth=wide\nHeight=.36.67\n");
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(s->PrintWidth, 0.0);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 0.36);
}

TEST_F(SetupProfiles, ProfileNameComesFromTheModuleNameWhenNoneIsGiven) {
    std::strcpy(export_szDLLName, "/opt/filters/mivo42.flt");
    spill("mivo42.ini", "[MIVO4]\n~Mode=m\n[m]\nDriver=FROMMODULE\n");
    Gp4_SetupData *s = create(nullptr, nullptr);
    EXPECT_STREQ(s->szProfile, "mivo42.ini");
    EXPECT_STREQ(s->out_type, "FROMMODULE");
    export_szDLLName[0] = '\0';
}

TEST_F(SetupProfiles, ProfileIsFoundThroughInidir) {
    std::filesystem::create_directory("conf");
    spill("conf/my.ini", "[m]\nDriver=VIAINIDIR\n");
    setenv("INIDIR", (dir_ / "conf").c_str(), 1);
    Gp4_SetupData *s = create("my.ini", "m");
    EXPECT_EQ(std::string(s->szProfile), (dir_ / "conf" / "my.ini").string());
    EXPECT_STREQ(s->out_type, "VIAINIDIR");
}

TEST_F(SetupProfiles, NoProfileAnywhereGivesTheDefaultsAndAnEmptyProfileName) {
    Gp4_SetupData *s = create("absent.ini", "m");
    EXPECT_STREQ(s->szProfile, "");
    EXPECT_EQ(s->nColorMode, 103);
    EXPECT_EQ(s->XResolution, 96);
    EXPECT_EQ(lpRaster, s);
}

TEST_F(SetupProfiles, SaveProfileDoesNothing) {
    spill("my.ini", "[m]\nDriver=X\n");
    create("my.ini", "m");
    EXPECT_EQ(SaveProfile(0), 1);
    EXPECT_EQ(slurp("my.ini"), "[m]\nDriver=X\n");
}

TEST_F(SetupProfiles, LoadProfileWithoutACurrentSetupLoadsNothing) {
    Gp4_SetupData *saved = lpRaster;
    lpRaster = nullptr;
    EXPECT_EQ(LoadProfile(0), 0);
    lpRaster = saved;
}

TEST(ResolutionModes, FixedModesAndTheUsersValue) {
    const int16_t expected[] = {200, 240, 300, 400, 600, 1200};
    for (int mode = 777; mode <= 782; ++mode) {
        int16_t x = 0, y = 0;
        EXPECT_EQ(SetResByResMode(&x, &y, mode, 5), 0);
        EXPECT_EQ(x, expected[mode - 777]);
        EXPECT_EQ(y, expected[mode - 777]);
    }
    for (int mode : {783, 784}) {
        int16_t x = 0, y = 0;
        EXPECT_EQ(SetResByResMode(&x, &y, mode, 150), 0);
        EXPECT_EQ(x, 150);
        EXPECT_EQ(y, 150);
    }
}

TEST(ResolutionModes, ModesOutsideTheTableAreRefusedAndChangeNothing) {
    for (int mode : {776, 785, 307, 310, 0, -1}) {
        int16_t x = 11, y = 12;
        EXPECT_EQ(SetResByResMode(&x, &y, mode, 150), -1) << mode;
        EXPECT_EQ(x, 11);
        EXPECT_EQ(y, 12);
    }
}

}  // namespace
