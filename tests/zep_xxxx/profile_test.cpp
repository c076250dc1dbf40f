// Profile files: reading values and entry lists, writing entries through a
// temporary copy, and finding files through INIDIR.
#include <gtest/gtest.h>
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "zep_xxxx/profile_files.h"
#include "zep_xxxx/iniwrite.h"

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void spill(const fs::path &p, const std::string &text) {
    std::ofstream out(p, std::ios::binary);
    out << text;
}

// Each test runs in a fresh directory of its own, made current, with INIDIR unset.
class Profiles : public ::testing::Test {
protected:
    void SetUp() override {
        const char *base = std::getenv("MIVO4_TEST_TMP");
        fs::path root = base != nullptr ? fs::path(base) : fs::temp_directory_path();
        fs::create_directories(root);
        std::string pattern = (root / "profileXXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        saved_ = fs::current_path();
        fs::current_path(dir_);
        unsetenv("INIDIR");
    }
    void TearDown() override {
        fs::current_path(saved_);
        unsetenv("INIDIR");
        fs::remove_all(dir_);
    }

    std::string get(const char *section, const char *key, const char *def = "?",
                    const char *file = "p.ini") {
        char buf[300];
        uint32_t n = GetPrivateProfileString(section, key, def, buf, sizeof buf, file);
        EXPECT_EQ(n, std::strlen(buf));
        return buf;
    }

    fs::path dir_;
    fs::path saved_;
};

TEST_F(Profiles, ValueContainingSemicolonIsCutThere) {
    spill("p.ini", "[s]\nkey=a;b\n");
    EXPECT_EQ(get("s", "key"), "a");
}

TEST_F(Profiles, BlankBeforeEqualsHidesTheKeyFromTheReaderButNotFromTheWriter) {
    spill("p.ini", "[s]\nkey = 5\n");
    char buf[16];
    EXPECT_EQ(GetPrivateProfileString("s", "key", "7", buf, sizeof buf, "p.ini"), 1u);
    EXPECT_STREQ(buf, "7");
    EXPECT_EQ(GetPrivateProfileInt("s", "key", 7, "p.ini"), 7);
    EXPECT_EQ(WritePrivateProfileString("s", "key", "9", "p.ini"), 0);
    EXPECT_EQ(slurp("p.ini"), "[s]\nkey=9\n");
    EXPECT_EQ(GetPrivateProfileInt("s", "key", 7, "p.ini"), 9);
}

TEST_F(Profiles, IntegersInHexAndDecimalWithoutSign) {
    spill("p.ini", "[n]\nhex=0x1F\nmixed=12abc\nword=abc\nempty=\nneg=-5\nbare=0x\nbig=99999999999\n");
    EXPECT_EQ(GetPrivateProfileInt("n", "hex", 3, "p.ini"), 31);
    EXPECT_EQ(GetPrivateProfileInt("n", "mixed", 3, "p.ini"), 12);
    EXPECT_EQ(GetPrivateProfileInt("n", "word", 3, "p.ini"), 0) << "not a number gives 0, not the default";
    EXPECT_EQ(GetPrivateProfileInt("n", "empty", 3, "p.ini"), 3);
    EXPECT_EQ(GetPrivateProfileInt("n", "missing", 3, "p.ini"), 3);
    EXPECT_EQ(GetPrivateProfileInt("n", "neg", 3, "p.ini"), 0);
    EXPECT_EQ(GetPrivateProfileInt("n", "bare", 3, "p.ini"), 0);
    EXPECT_EQ(GetPrivateProfileInt("n", "big", 3, "p.ini"), 2147483647);
}

TEST_F(Profiles, QuotedValueIsReturnedWithoutItsQuotesAndDoubledQuotesStay) {
    spill("p.ini", "[q]\na=\"hello world\"\nb=\"x\"\"y\"\nc=\"open\n");
    EXPECT_EQ(get("q", "a"), "hello world");
    EXPECT_EQ(get("q", "b"), "x\"\"y");
    EXPECT_EQ(get("q", "c"), "\"open") << "only an enclosing pair is removed";
}

TEST_F(Profiles, SectionAndKeyNamesMatchRegardlessOfCase) {
    spill("p.ini", "[ Options ]\nColor Mode=104\n");
    EXPECT_EQ(get("options", "color mode"), "104");
    EXPECT_EQ(get("OPTIONS", "COLOR MODE"), "104");
}

TEST_F(Profiles, DeletingTheOnlyEntryOfASectionRemovesItsHeader) {
    spill("p.ini", "[a]\nx=1\n[b]\ny=2\n");
    WritePrivateProfileString("a", "x", nullptr, "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[b]\ny=2\n");
}

TEST_F(Profiles, DeletingOneEntryKeepsTheRest) {
    spill("p.ini", "[a]\nx=1\ny=2\nX = 3\n[b]\nx=4\n");
    WritePrivateProfileString("a", "x", nullptr, "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[a]\ny=2\n[b]\nx=4\n");
}

TEST_F(Profiles, DeletingASectionDropsItsHeaderAndLines) {
    spill("p.ini", "; top\n[a]\nx=1\n\n[b]\ny=2\n");
    WritePrivateProfileString("A", nullptr, nullptr, "p.ini");
    EXPECT_EQ(slurp("p.ini"), "; top\n[b]\ny=2\n");
}

TEST_F(Profiles, WritingToACrLfFileKeepsCrLfOnEveryLine) {
    spill("p.ini", "[a]\r\nx=1\r\n[b]\ny=2\n");
    WritePrivateProfileString("b", "z", "3", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[a]\r\nx=1\r\n[b]\r\ny=2\r\nz=3\r\n");
}

TEST_F(Profiles, WritingToALfFileKeepsLf) {
    spill("p.ini", "[a]\nx=1\n");
    WritePrivateProfileString("a", "x", "2", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[a]\nx=2\n");
}

TEST_F(Profiles, NewEntryGoesToTheEndOfItsSection) {
    spill("p.ini", "[a]\nx=1\n\n[b]\ny=2\n");
    WritePrivateProfileString("a", "new", "v", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[a]\nx=1\n\nnew=v\n[b]\ny=2\n");
}

TEST_F(Profiles, NewSectionIsAppendedAfterAnEmptyLine) {
    spill("p.ini", "[a]\nx=1\n");
    WritePrivateProfileString("\"fresh\"", "k", "v", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[a]\nx=1\n\n[fresh]\nk=v\n");
}

TEST_F(Profiles, WithoutInidirFilesAreOpenedRelativeToTheCurrentDirectory) {
    spill("p.ini", "[s]\nk=here\n");
    EXPECT_EQ(get("s", "k"), "here");
    fs::create_directory("sub");
    spill("sub/p.ini", "[s]\nk=sub\n");
    EXPECT_EQ(get("s", "k", "?", "sub/p.ini"), "sub");
}

TEST_F(Profiles, ProfileThatExistsNowhereIsCreatedUnderTheNameGivenNotUnderInidir) {
    fs::create_directory("inidir");
    setenv("INIDIR", (dir_ / "inidir").c_str(), 1);
    WritePrivateProfileString("Mode", "Width", "6.5", "new.ini");
    EXPECT_EQ(slurp("new.ini"), "\n[Mode]\nWidth=6.5\n");
    EXPECT_FALSE(fs::exists("inidir/new.ini"));
}

TEST_F(Profiles, InidirIsTriedAfterTheNameWithOrWithoutTrailingSlash) {
    fs::create_directory("inidir");
    spill("inidir/q.ini", "[s]\nk=from inidir\n");
    for (std::string d : {(dir_ / "inidir").string(), (dir_ / "inidir").string() + "/"}) {
        setenv("INIDIR", d.c_str(), 1);
        EXPECT_EQ(get("s", "k", "?", "q.ini"), "from inidir") << d;
        char name[260] = "q.ini";
        HZEPIO h = INIopen(name, sizeof name, ZEP_OPEN_READ);
        ASSERT_NE(h, 0u);
        EXPECT_EQ(std::string(name), (dir_ / "inidir" / "q.ini").string()) << "the path that opened";
        INIclose(h);
    }
    spill("q.ini", "[s]\nk=local\n");
    EXPECT_EQ(get("s", "k", "?", "q.ini"), "local") << "the name alone wins for reading";
}

TEST_F(Profiles, WritingUpdatesTheProfileFoundInInidir) {
    fs::create_directory("inidir");
    spill("inidir/q.ini", "[s]\nk=1\n");
    setenv("INIDIR", (dir_ / "inidir").c_str(), 1);
    WritePrivateProfileString("s", "k", "2", "q.ini");
    EXPECT_EQ(slurp("inidir/q.ini"), "[s]\nk=2\n");
    EXPECT_FALSE(fs::exists("q.ini"));
}

TEST_F(Profiles, ProfileDirectoryLooksInInidirFirst) {
    fs::create_directory("inidir");
    spill("inidir/mivo42.ini", "");
    spill("mivo42.ini", "");
    setenv("INIDIR", (dir_ / "inidir").c_str(), 1);
    char name[144] = "";
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/filters/mivo42.flt"), 0);
    EXPECT_EQ(std::string(name), (dir_ / "inidir" / "mivo42.ini").string());
    unsetenv("INIDIR");
    char again[144] = "";
    EXPECT_EQ(GetProfileDirectory(again, "/usr/lib/filters/mivo42.flt"), 0);
    EXPECT_STREQ(again, "mivo42.ini");
    char missing[144] = "nothere.ini";
    EXPECT_EQ(GetProfileDirectory(missing, nullptr), 1);
    char empty[144] = "";
    EXPECT_EQ(GetProfileDirectory(empty, nullptr), 1);
}

TEST_F(Profiles, ProfileDirectoryFallsBackToTheNameAlone) {
    spill("only.ini", "");
    setenv("INIDIR", (dir_ / "nowhere").c_str(), 1);
    char name[144] = "only.ini";
    EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
    EXPECT_STREQ(name, "only.ini");
}

TEST_F(Profiles, LinesLongerThan256CharactersAreReadAsSeveralLines) {
    std::string longValue(300, 'v');
    spill("p.ini", "[s]\nk=" + longValue + "\n");
    // The first 256 characters hold the entry; the rest is a line of its own.
    EXPECT_EQ(get("s", "k"), "" + std::string(254, 'v'));
    WritePrivateProfileString("s", "other", "1", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[s]\nk=" + std::string(254, 'v') + "\n" + std::string(46, 'v') +
                                  "\nother=1\n");
}

TEST_F(Profiles, EntryNamesOfASectionAreListed) {
    spill("p.ini", "[s]\nfirst=1\n; note\n\nsecond=2\nthird\n[t]\nx=1\n");
    char buf[64];
    std::memset(buf, 'Z', sizeof buf);
    uint32_t n = GetPrivateProfileString("s", nullptr, "dflt", buf, sizeof buf, "p.ini");
    EXPECT_EQ(n, 19u);
    EXPECT_EQ(std::string(buf, 20), std::string("first\0second\0third\0\0", 20));
}

TEST_F(Profiles, EntryListThatDoesNotFitEndsInTwoZeroBytes) {
    spill("p.ini", "[s]\nalpha=1\nbeta=2\n");
    char buf[10];
    std::memset(buf, 'Z', sizeof buf);
    EXPECT_EQ(GetPrivateProfileString("s", nullptr, "", buf, sizeof buf, "p.ini"), 9u);
    EXPECT_EQ(std::string(buf, 10), std::string("alpha\0be\0\0", 10));
}

TEST_F(Profiles, ValueAsLongAsTheBufferIsLeftUnterminated) {
    spill("p.ini", "[s]\nk=abcdef\n");
    char buf[8];
    std::memset(buf, 'Z', sizeof buf);
    EXPECT_EQ(GetPrivateProfileString("s", "k", "", buf, 6, "p.ini"), 6u);
    EXPECT_EQ(std::string(buf, 7), "abcdefZ");
}

TEST_F(Profiles, ShorterValueLeavesNothingOfTheDefault) {
    spill("p.ini", "[s]\nk=5\n");
    EXPECT_EQ(get("s", "k", "6.67"), "5");
}

TEST_F(Profiles, MissingFileSectionOrKeyGivesTheDefault) {
    EXPECT_EQ(get("s", "k", "dflt", "absent.ini"), "dflt");
    spill("p.ini", "[s]\nk=1\n");
    EXPECT_EQ(get("t", "k", "dflt"), "dflt");
    EXPECT_EQ(get("s", "j", "dflt"), "dflt");
}

TEST_F(Profiles, NullOrEmptySectionOrNullDefaultAnswersZeroAndLeavesTheBuffer) {
    spill("p.ini", "[s]\nk=1\n");
    char buf[8] = "keep";
    EXPECT_EQ(GetPrivateProfileString(nullptr, "k", "d", buf, sizeof buf, "p.ini"), 0u);
    EXPECT_EQ(GetPrivateProfileString("", "k", "d", buf, sizeof buf, "p.ini"), 0u);
    EXPECT_EQ(GetPrivateProfileString("s", "k", nullptr, buf, sizeof buf, "p.ini"), 0u);
    EXPECT_STREQ(buf, "keep");
    EXPECT_EQ(GetPrivateProfileString("s", "k", "d", nullptr, 8, "p.ini"), 0u);
}

TEST_F(Profiles, EntriesBeforeAnySectionAndCommentsAreIgnored) {
    spill("p.ini", "k=outside\n;[s]\n[s]\n;k=comment\nk=inside ; trailing note\n");
    EXPECT_EQ(get("s", "k"), "inside");
}

TEST_F(Profiles, DefaultProfileIsZepIni) {
    WriteProfileString("Global", "Key", "0x10");
    EXPECT_TRUE(fs::exists("ZEP.INI"));
    char buf[16];
    EXPECT_EQ(GetProfileString("global", "key", "", buf, sizeof buf), 4u);
    EXPECT_STREQ(buf, "0x10");
    EXPECT_EQ(GetProfileInt("Global", "Key", 0), 16);
}

TEST_F(Profiles, GarbageAndNulBytesNeverCrashTheReader) {
    std::string junk;
    for (int i = 0; i < 5000; ++i) junk += static_cast<char>((i * 7919) % 256);
    junk += std::string("\0\0[s]\nk=1\n", 10);
    spill("p.ini", junk);
    std::string v = get("s", "k");
    EXPECT_TRUE(v == "1" || v == "?") << v;
    WritePrivateProfileString("s", "k", "2", "p.ini");
    EXPECT_EQ(get("s", "k"), "2");
}

TEST_F(Profiles, ProfileThatIsADirectoryGivesDefaultsAndIsNotReplaced) {
    fs::create_directory("d.ini");
    EXPECT_EQ(get("s", "k", "dflt", "d.ini"), "dflt");
    WritePrivateProfileString("s", "k", "v", "d.ini");
    EXPECT_TRUE(fs::is_directory("d.ini"));
}

class ProfileFailures : public Profiles {};

TEST_F(ProfileFailures, NoFileBesideTheProfileRewritesItInPlaceWhenItsRoomIsReserved) {
    const std::string before = "[s]\r\nk=1\r\n";
    spill("p.ini", before);
    struct stat was;
    ASSERT_EQ(stat("p.ini", &was), 0);
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::TempCreate);
    EXPECT_EQ(WritePrivateProfileString("s", "k", "2", "p.ini"), 0);
    EXPECT_EQ(slurp("p.ini"), "[s]\r\nk=2\r\n");
    struct stat now;
    ASSERT_EQ(stat("p.ini", &now), 0);
    EXPECT_EQ(now.st_ino, was.st_ino) << "the profile's own file was rewritten";
}

TEST_F(ProfileFailures, InPlaceRewriteWithoutReservedRoomLeavesTheProfileUnchanged) {
    const std::string before = "[s]\r\nk=1\r\n";
    spill("p.ini", before);
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::TempCreate);
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::InPlace);
    WritePrivateProfileString("s", "k", "2", "p.ini");
    EXPECT_EQ(slurp("p.ini"), before);
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::None);
}

TEST_F(ProfileFailures, FailedCopyBackLeavesTheProfileUnchangedAndNoLeftovers) {
    const std::string before = "[s]\nk=1\n";
    spill("p.ini", before);
    for (auto fault : {mivo4::ini::WriteFault::CopyBack, mivo4::ini::WriteFault::Replace}) {
        mivo4::ini::InjectWriteFault(fault);
        WritePrivateProfileString("s", "k", "2", "p.ini");
        EXPECT_EQ(slurp("p.ini"), before);
        EXPECT_EQ(mivo4::test::filesBesideLocks("."), 1) << "no half-written file is left beside the profile";
    }
}

TEST_F(ProfileFailures, DiskFullDuringTheWriteLeavesTheProfileUnchanged) {
    // A file-size limit makes every write past 64 bytes fail, as a full disk does.
    std::string before = "[s]\nk=1\n";
    spill("p.ini", before);
    std::string big(200, 'x');
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {64, 64};
        setrlimit(RLIMIT_FSIZE, &limit);
        WritePrivateProfileString("s", "k", big.c_str(), "p.ini");
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(slurp("p.ini"), before);
}

TEST_F(ProfileFailures, FailedRenameLeavesTheProfileUnchanged) {
    mivo4::ini::InjectWriteFault(mivo4::ini::WriteFault::Replace);
    spill("p.ini", "[s]\nk=1\n");
    WritePrivateProfileString("s", "k", "2", "p.ini");
    EXPECT_EQ(slurp("p.ini"), "[s]\nk=1\n");
}

TEST_F(ProfileFailures, ProfileModeIsKeptAcrossAWrite) {
    spill("p.ini", "[s]\nk=1\n");
    chmod("p.ini", 0640);
    WritePrivateProfileString("s", "k", "2", "p.ini");
    struct stat st;
    ASSERT_EQ(stat("p.ini", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(slurp("p.ini"), "[s]\nk=2\n");
}

TEST(ProfileCleaning, CleaningRemovesLineEndsQuotesAndBracketsUnlessKept) {
    char a[] = "[ \"Sec\"\"tion\" ]\r\n";
    EXPECT_STREQ(stripChars(a, 0), "Sec\"tion");
    char b[] = "[x]=\"q\" ; comment";
    EXPECT_STREQ(stripChars(b, STRIP_KEEP_BRACKETS | STRIP_KEEP_QUOTES), "[x]=\"q\"");
    char c[] = "  padded  ";
    EXPECT_STREQ(stripChars(c, 5), "padded");
    EXPECT_EQ(stripChars(nullptr, 0), nullptr);
}

TEST(ProfileCleaning, TrimmingQuotesTakesOnlyOneEachSideAndNeverTheFirstCharacter) {
    char a[] = "\"\"x\"\"";
    EXPECT_STREQ(stripLdgTrlg(a, '"'), "\"x\"");
    char b[] = "\"\"";
    EXPECT_STREQ(stripLdgTrlg(b, '"'), "\"");
    char c[] = "xxaxx";
    EXPECT_STREQ(stripLdgTrlg(c, 'x'), "a");
    char d[] = "aaa";
    EXPECT_STREQ(stripLdgTrlg(d, 'a'), "");
    char e[] = "ba";
    EXPECT_STREQ(stripLdgTrlg(e, 'a'), "b");
}

TEST(ProfileNumbers, HexadecimalNeedsItsPrefixAndStopsAtTheFirstNonDigit) {
    int32_t v = -1;
    EXPECT_EQ(StrIsHexDigit("0x1f", &v), 1);
    EXPECT_EQ(v, 31);
    EXPECT_EQ(StrIsHexDigit("0XfFz9", &v), 1);
    EXPECT_EQ(v, 255);
    EXPECT_EQ(StrIsHexDigit("0x", &v), 1);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(StrIsHexDigit("0x123456789", &v), 1);
    EXPECT_EQ(static_cast<uint32_t>(v), 0x23456789u) << "values wrap at 32 bits";
    v = 7;
    EXPECT_EQ(StrIsHexDigit("1f", &v), 0);
    EXPECT_EQ(v, 7);
    EXPECT_EQ(StrIsHexDigit(nullptr, &v), 0);
}

TEST(ProfileNumbers, DecimalHasNoSign) {
    int32_t v = -1;
    EXPECT_EQ(StrIsAnInteger("42", &v), 1);
    EXPECT_EQ(v, 42);
    EXPECT_EQ(StrIsAnInteger("12abc", &v), 1);
    EXPECT_EQ(v, 12);
    EXPECT_EQ(StrIsAnInteger("0x10", &v), 1);
    EXPECT_EQ(v, 16);
    v = 9;
    EXPECT_EQ(StrIsAnInteger("-5", &v), 0);
    EXPECT_EQ(StrIsAnInteger("", &v), 0);
    EXPECT_EQ(StrIsAnInteger(" 5", &v), 0);
    EXPECT_EQ(v, 9);
}

}  // namespace
