// Display and printer information, and the profile backup step.
#include <gtest/gtest.h>
#include <mivo4/display.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

class DisplayInfo : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("DISPLAYINFO");
        SetDisplayInfo(0, 0, 0, 0);
        SetPrinterInfo(0, 0, 0, 0);
    }
    void TearDown() override { SetUp(); }

    void get() { EXPECT_EQ(GetDisplayInfo(&w, &h, &xdpi, &ydpi), 0); }

    double w = -1, h = -1;
    int16_t xdpi = -1, ydpi = -1;
};

TEST_F(DisplayInfo, NothingSetGivesTheDefaultScreenAt96Dpi) {
    get();
    EXPECT_DOUBLE_EQ(w, 1280.0 / 96.0);
    EXPECT_DOUBLE_EQ(h, 1078.0 / 96.0);
    EXPECT_NEAR(w, 13.333, 0.001);
    EXPECT_NEAR(h, 11.229, 0.001);
    EXPECT_EQ(xdpi, 96);
    EXPECT_EQ(ydpi, 96);
}

TEST_F(DisplayInfo, StoredValuesReplaceTheDefaultsOneByOneWhereNotZero) {
    SetDisplayInfo(1920.0, 0.0, 120, 0);
    get();
    EXPECT_DOUBLE_EQ(w, 1920.0 / 120.0);
    EXPECT_DOUBLE_EQ(h, 1078.0 / 96.0);
    EXPECT_EQ(xdpi, 120);
    EXPECT_EQ(ydpi, 96);
}

TEST_F(DisplayInfo, VariableOverridesStoredValuesWithAnySeparator) {
    SetDisplayInfo(1920.0, 1200.0, 120, 120);
    for (const char *value : {"1152x900x90x90", "1152,900,90,90"}) {
        setenv("DISPLAYINFO", value, 1);
        get();
        EXPECT_DOUBLE_EQ(w, 1152.0 / 90.0) << value;
        EXPECT_DOUBLE_EQ(h, 900.0 / 90.0) << value;
        EXPECT_EQ(xdpi, 90);
        EXPECT_EQ(ydpi, 90);
    }
}

TEST_F(DisplayInfo, EmptyVariableIsIgnored) {
    setenv("DISPLAYINFO", "", 1);
    get();
    EXPECT_EQ(xdpi, 96);
    EXPECT_DOUBLE_EQ(w, 1280.0 / 96.0);
}

TEST_F(DisplayInfo, MissingNumbersReadAsZeroAndZeroResolutionIsGuarded) {
    setenv("DISPLAYINFO", "1152x900", 1);
    get();
    EXPECT_EQ(xdpi, 0);
    EXPECT_EQ(ydpi, 0);
    EXPECT_EQ(w, 0.0) << "no division by a zero resolution";
    EXPECT_EQ(h, 0.0);
    setenv("DISPLAYINFO", "1152x900x75", 1);
    get();
    EXPECT_EQ(xdpi, 75);
    EXPECT_DOUBLE_EQ(w, 1152.0 / 75.0);
    EXPECT_EQ(ydpi, 0);
    EXPECT_EQ(h, 0.0);
}

TEST_F(DisplayInfo, NegativeNumberShiftsTheFields) {
    // The minus sign ends the width field as its separator; the height is then
    // read as -900 and the rest move up by one field.
    setenv("DISPLAYINFO", "1152x-900x90x80", 1);
    get();
    EXPECT_EQ(xdpi, 900);
    EXPECT_EQ(ydpi, 90);
    EXPECT_DOUBLE_EQ(w, 1152.0 / 900.0);
    EXPECT_DOUBLE_EQ(h, -900.0 / 90.0);
}

TEST_F(DisplayInfo, NullPointersAreSkipped) {
    int16_t only = 0;
    EXPECT_EQ(GetDisplayInfo(nullptr, nullptr, &only, nullptr), 0);
    EXPECT_EQ(only, 96);
    EXPECT_EQ(GetPrinterInfo(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(DisplayInfo, PrinterValuesAreAnsweredAsStoredInPixels) {
    SetPrinterInfo(2550.0, 3300.0, 300, 300);
    double pw = 0, ph = 0;
    int16_t px = 0, py = 0;
    EXPECT_EQ(GetPrinterInfo(&pw, &ph, &px, &py), 0);
    EXPECT_EQ(pw, 2550.0);
    EXPECT_EQ(ph, 3300.0);
    EXPECT_EQ(px, 300);
    EXPECT_EQ(py, 300);
}

TEST(MovePtr, StepsOverDigitsAndOneSeparator) {
    const char *text = "1152x900";
    const char *p = text;
    moveptr(&p);
    EXPECT_EQ(p, text + 5);
    moveptr(&p);
    EXPECT_EQ(p, text + 8) << "at the end it stays at the terminator";
    moveptr(&p);
    EXPECT_EQ(p, text + 8);
    const char *sign = "-5";
    p = sign;
    moveptr(&p);
    EXPECT_EQ(p, sign + 1);
    moveptr(nullptr);
}

TEST(DisplayColour, NoColourInformationOnThisPlatform) {
    int dummy = 0;
    EXPECT_EQ(GetDisplayColorInfo(&dummy), 0);
}

TEST(ProfileBackup, ProfileNameMovesToBackupAndATemporaryNameTakesItsPlace) {
    Gp4_SetupData s{};
    std::strcpy(s.szProfile, "/home/user/mivo42.ini");
    EXPECT_EQ(BackupProfile(&s), 1);
    EXPECT_STREQ(s.szBackup, "/home/user/mivo42.ini");
    std::string temp = s.szProfile;
    EXPECT_EQ(temp.rfind("/tmp/", 0), 0u) << temp;
    EXPECT_NE(temp, "/home/user/");
}

TEST(ProfileBackup, ProfileListHasNoEntriesWithoutADialog) {
    Gp4_SetupData s{};
    EXPECT_EQ(LoadProfileList(&s, 0, 0), 0);
}

}  // namespace
