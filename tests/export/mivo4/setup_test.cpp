// Setup records, the string table and the entry table.
#include <gtest/gtest.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstring>
#include <string>

#include "zep_xxxx/memdebug.h"

namespace {

TEST(StringTable, UnknownIdentifierCopiesNotDefinedAndAnswersZero) {
    char out[32];
    EXPECT_EQ(LoadString(0, 25, out, sizeof out), 0);
    EXPECT_STREQ(out, "Not Defined");
}

TEST(StringTable, TooSmallBufferTakesExactlyItsSizeUnterminated) {
    char out[8];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(LoadString(0, 4, out, 5), 6);
    EXPECT_EQ(std::string(out, 6), "Drive#");
}

TEST(StringTable, EveryEntryInTableOrder) {
    const struct {
        uint32_t id;
        const char *text;
    } table[] = {{0, "~Defaults"},     {1, "~Mode"},          {2, "~Header"},
                 {3, "~Default Mode"}, {4, "Driver"},         {6, "DefaultFileSpec"},
                 {7, "Font"},          {11, "Color Mode"},    {15, "User-Defined Patterns"},
                 {17, "Resolution Mode"}, {20, "Width"},      {21, "Height"},
                 {22, "File Type"},    {13, "GP4 Export"},    {23, "Size Mode"},
                 {24, "Line Mode"},    {65535, "Not Defined"}};
    for (const auto &e : table) {
        char out[64];
        EXPECT_EQ(LoadString(0, e.id, out, sizeof out), static_cast<int32_t>(std::strlen(e.text)));
        EXPECT_STREQ(out, e.text);
    }
    for (uint32_t missing : {5u, 8u, 18u, 19u, 25u, 65534u, 65536u + 4u}) {
        char out[64];
        EXPECT_EQ(LoadString(0, missing, out, sizeof out), 0) << missing;
        EXPECT_STREQ(out, "Not Defined");
    }
}

TEST(StringTable, ExactFitKeepsTheTerminator) {
    char out[7];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(LoadString(0, 4, out, 7), 6);
    EXPECT_STREQ(out, "Driver");
}

TEST(StringTable, NoRoomCopiesNothing) {
    char out[4] = "abc";
    EXPECT_EQ(LoadString(0, 4, out, 0), 6);
    EXPECT_EQ(LoadString(0, 4, out, -5), 6);
    EXPECT_EQ(LoadString(0, 4, nullptr, 10), 6);
    EXPECT_STREQ(out, "abc");
}

class Setups : public ::testing::Test {
protected:
    void SetUp() override { before_ = mivo4::mem::LiveHandles(); }
    void TearDown() override { EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked"; }
    uint32_t before_ = 0;
};

TEST_F(Setups, FreshSetupWithoutProfileDirectoryHasTheDefaults) {
    ZHANDLE h = CreateSetup(0, nullptr, nullptr, nullptr);
    ASSERT_NE(h, 0u);
    auto *s = static_cast<Gp4_SetupData *>(GlobalLock(h));
    EXPECT_EQ(hRaster, h);
    EXPECT_EQ(lpRaster, s) << "the new setup stays locked as the current record";
    EXPECT_STREQ(s->szProfile, "");
    EXPECT_STREQ(s->szDriver, "");
    EXPECT_STREQ(s->szBackup, "");
    EXPECT_STREQ(s->out_type, "MIVO4.1");
    EXPECT_EQ(s->nColorMode, 103);
    EXPECT_EQ(s->SizeMode, 602);
    EXPECT_EQ(s->ResMode, 779);
    EXPECT_EQ(s->XResolution, 96);
    EXPECT_EQ(s->YResolution, 96);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 6.67);
    EXPECT_DOUBLE_EQ(s->PrintHeight, 5.0);
    EXPECT_EQ(s->DevFontAttrMax, 0);
    EXPECT_EQ(s->EndDialog, 0);
    EXPECT_EQ(s->lpfnHelpHook, nullptr);
    EXPECT_EQ(s->lpfnGetSetStatus, nullptr);
    // Everything else starts zero: the coder's band state among it.
    EXPECT_EQ(s->gp4_stateInfoSaved, 0);
    EXPECT_EQ(s->gp4_BitOffset, 0u);
    EXPECT_EQ(s->gp4_refLine, 0u);
    EXPECT_EQ(s->GreyThreshold, 0u);
    EXPECT_EQ(s->nLineMode, 0);
    EXPECT_STREQ(szFilter, "MIVO4") << "the short name is turned to upper case";
    EXPECT_EQ(DestroySetup(h), 0);
}

TEST_F(Setups, DefaultsLeaveTheHeaderAlone) {
    Gp4_SetupData s{};
    std::strcpy(s.szHeader, "my header");
    std::strcpy(s.szDriver, "mode");
    s.nLineMode = 119;
    EXPECT_EQ(UseDefaultSettings(&s), 0);
    EXPECT_STREQ(s.szHeader, "my header");
    EXPECT_STREQ(s.szDriver, "");
    EXPECT_EQ(s.nLineMode, 119) << "the line mode is not among the defaults";
    EXPECT_EQ(UseDefaultSettings(nullptr), 0);
}

TEST_F(Setups, CreateFailsWithZeroWhenTheRecordCannotBeAllocated) {
    mivo4::mem::FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CreateSetup(0, "x.ini", "mode", nullptr), 0u);
    testing::internal::GetCapturedStderr();
}

TEST_F(Setups, EditMakesTheSetupCurrentAndKeepsTheHelpHook) {
    ZHANDLE a = CreateSetup(0, nullptr, nullptr, nullptr);
    ZHANDLE b = CreateSetup(0, nullptr, nullptr, nullptr);
    ASSERT_EQ(hRaster, b);
    auto hook = reinterpret_cast<ZEPFARPROC>(&ZEPGetFilterVersion);
    EXPECT_EQ(EditSetup(a, hook, 0), 0);
    EXPECT_EQ(hRaster, a);
    EXPECT_EQ(lpRaster, GlobalLock(a));
    EXPECT_EQ(lpRaster->lpfnHelpHook, hook);
    EXPECT_EQ(DestroySetup(a), 0);
    EXPECT_EQ(DestroySetup(b), 0);
}

TEST_F(Setups, StaleOrZeroHandlesAreRefused) {
    ZHANDLE h = CreateSetup(0, nullptr, nullptr, nullptr);
    ASSERT_EQ(DestroySetup(h), 0);
    EXPECT_EQ(lpRaster, nullptr);
    EXPECT_EQ(DestroySetup(h), 1);
    EXPECT_EQ(DestroySetup(0), 1);
    EXPECT_EQ(EditSetup(h, nullptr, 0), -1);
    EXPECT_EQ(EditSetup(0, nullptr, 0), -1);
}

TEST_F(Setups, DestroyClearsTheCurrentRecord) {
    ZHANDLE a = CreateSetup(0, nullptr, nullptr, nullptr);
    ZHANDLE b = CreateSetup(0, nullptr, nullptr, nullptr);
    EXPECT_EQ(DestroySetup(a), 0);
    EXPECT_EQ(lpRaster, nullptr) << "destroying any setup clears the current record pointer";
    EXPECT_EQ(hRaster, b);
    EXPECT_EQ(DestroySetup(b), 0);
    EXPECT_EQ(hRaster, 0u);
}

TEST(EntryTable, LoadPointersFillsCountAndTableOnly) {
    FLTPOINTERS p{};
    p.dwHostWord = 77;
    fltLoadPointers(&p);
    EXPECT_EQ(p.dwHostWord, 77u);
    ASSERT_EQ(p.wCount, 9);
    ASSERT_NE(p.lpEntries, nullptr);
    EXPECT_STREQ(p.lpEntries[8].lpszName, "szDLLName");
    EXPECT_EQ(p.lpEntries[8].lpTarget, static_cast<void *>(export_szDLLName));
    EXPECT_EQ(sizeof export_szDLLName, 260u);
    fltLoadPointers(nullptr);
}

TEST(EntryTable, FilterVersion) { EXPECT_EQ(ZEPGetFilterVersion(), 0x2000005u); }

}  // namespace
