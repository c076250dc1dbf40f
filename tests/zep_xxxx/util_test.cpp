// Platform utilities: case-blind strings, rounding, paths, temporary names and
// the host's status callback.
#include <gtest/gtest.h>
#include <mivo4/util.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

TEST(Strings, CaseBlindComparisonOfEqualTextsIsZero) {
    EXPECT_EQ(stricmp("abc", "ABC"), 0);
    EXPECT_EQ(stricmp("", ""), 0);
}

TEST(Strings, ComparisonResultIsSecondMinusFirst) {
    EXPECT_EQ(stricmp("abc", "abd"), 1) << "upper-case D minus upper-case C";
    EXPECT_EQ(stricmp("abd", "abc"), -1);
    EXPECT_EQ(stricmp("ab", "abc"), 'C');
    EXPECT_EQ(stricmp("abc", "ab"), -'C');
}

TEST(Strings, BoundedComparisonGoesOnPastSharedTerminators) {
    const char a[5] = {'a', 'b', '\0', 'x', 'y'};
    const char b[5] = {'A', 'B', '\0', 'x', 'z'};
    EXPECT_EQ(strnicmp(a, b, 4), 0);
    EXPECT_EQ(strnicmp(a, b, 5), 'Z' - 'Y') << "the bytes after the terminators are compared too";
    const char c[5] = {'a', 'b', '\0', '\0', '\0'};
    const char d[5] = {'a', 'b', '\0', '\0', '\0'};
    EXPECT_EQ(strnicmp(c, d, 5), 0);
    EXPECT_EQ(strnicmp("abc", "abd", 2), 0);
    EXPECT_EQ(strnicmp("abc", "abd", 0), 0);
}

TEST(Strings, HighBytesCompareAsSignedCharacters) {
    EXPECT_EQ(stricmp("\x80", ""), 128) << "0 minus -128";
    EXPECT_EQ(stricmp("a", "\xff"), -1 - 'A');
}

TEST(Strings, CaseConversionChangesOnlyLettersInPlace) {
    char text[] = "Mivo4.flt-\xe9";
    EXPECT_EQ(strupr(text), text);
    EXPECT_STREQ(text, "MIVO4.FLT-\xe9");
    EXPECT_EQ(strlower(text), text);
    EXPECT_STREQ(text, "mivo4.flt-\xe9");
    char other[] = "ABC";
    EXPECT_STREQ(strlwr(other), "abc");
}

TEST(Strings, NullTextsAreTakenAsEmpty) {
    EXPECT_EQ(strupr(nullptr), nullptr);
    EXPECT_EQ(strlower(nullptr), nullptr);
    EXPECT_EQ(stricmp(nullptr, ""), 0);
    EXPECT_EQ(stricmp(nullptr, "a"), 'A');
    EXPECT_EQ(strnicmp(nullptr, nullptr, 0), 0);
}

TEST(Numbers, RoundingIsHalfAwayFromZero) {
    EXPECT_EQ(roundd(-0.4), 0);
    EXPECT_EQ(roundd(1.4999), 1);
    EXPECT_EQ(roundd(-1.5), -2);
    EXPECT_EQ(roundd(2.5), 3);
    EXPECT_EQ(roundd(-2.5), -3);
    EXPECT_EQ(roundd(0.0), 0);
    EXPECT_EQ(lroundd(2.5), 3);
    EXPECT_EQ(lroundd(-1.5), -2);
}

TEST(Numbers, RoundingOutOfRangeSaturatesAndNanGivesZero) {
    EXPECT_EQ(roundd(1e12), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(roundd(-1e12), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(roundd(std::nan("")), 0);
    EXPECT_EQ(roundd(2147483646.6), 2147483647);
}

TEST(Numbers, ToleranceComparison) {
    EXPECT_EQ(feqi(3, 5, 2), 1);
    EXPECT_EQ(feqi(3, 6, 2), 0);
    EXPECT_EQ(feqi(6, 3, 2), 0);
    EXPECT_EQ(feqi(5, 3, 2), 1);
    EXPECT_EQ(feqi(-7, -7, 0), 1);
    EXPECT_EQ(feqi(std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min(), 1), 1)
        << "the difference wraps in 32 bits";
}

TEST(Numbers, AbsoluteValueOfMinusZeroIsZero) {
    double r = dabs(-0.0);
    EXPECT_EQ(r, 0.0);
    EXPECT_FALSE(std::signbit(r));
    EXPECT_EQ(dabs(-2.5), 2.5);
    EXPECT_EQ(dabs(2.5), 2.5);
}

struct PathCase {
    const char *path;
    const char *name;
    const char *dir;
};

TEST(Paths, BaseNameWithoutExtensionAndDirectoryPart) {
    const PathCase cases[] = {
        {"/usr/lib/mivo42.flt", "mivo42", "/usr/lib/"},
        {"C:\\filters\\mivo42.flt", "mivo42", "C:\\filters\\"},
        {"C:mivo42.flt", "mivo42", ""},
        {"mivo42", "mivo42", ""},
        {"dir.d/archive.tar.gz", "archive.tar", "dir.d/"},
        {"a\\b/c.ini", "b/c", "a\\"},  // a backslash wins over a later slash
        {"/", "", "/"},
        {"", "", ""},
    };
    for (const PathCase &c : cases) {
        char out[64];
        EXPECT_EQ(s_getname(out, c.path), out);
        EXPECT_STREQ(out, c.name) << c.path;
        EXPECT_EQ(s_getpath(out, c.path), out);
        EXPECT_STREQ(out, c.dir) << c.path;
    }
}

TEST(Paths, NullPathGivesEmptyText) {
    char out[8] = "xyz";
    EXPECT_STREQ(s_getname(out, nullptr), "");
    std::strcpy(out, "xyz");
    EXPECT_STREQ(s_getpath(out, nullptr), "");
    EXPECT_EQ(s_getname(nullptr, "a"), nullptr);
}

TEST(Paths, NameMayBeCutInPlace) {
    char text[] = "/tmp/profile.ini";
    EXPECT_STREQ(s_getname(text, text), "profile");
}

TEST(TempNames, FreshNamesAreInTmpDistinctAndNotCreated) {
    std::vector<std::string> names;
    for (int i = 0; i < 50; ++i) {
        char name[260] = "";
        ASSERT_EQ(ZEPGetTempFileName(0, "ignored", 7, name), 1);
        std::string s = name;
        EXPECT_EQ(s.rfind("/tmp/", 0), 0u) << s;
        EXPECT_EQ(s.find('/', 5), std::string::npos) << s;
        struct stat st;
        EXPECT_NE(lstat(name, &st), 0) << "the file is not created";
        for (const std::string &other : names) EXPECT_NE(other, s);
        names.push_back(s);
    }
    EXPECT_EQ(ZEPGetTempFileName(0, nullptr, 0, nullptr), 0);
}

struct StatusCall {
    intptr_t host;
    int32_t op, item;
    intptr_t a4, a5, a6;
    std::vector<int32_t> block;  // the ten words at a7, when given
};

std::vector<StatusCall> gCalls;
std::vector<int32_t> gAnswers;

int32_t recordingStatus(intptr_t host, int32_t op, int32_t item, intptr_t a4, intptr_t a5,
                        intptr_t a6, intptr_t a7) {
    StatusCall call{host, op, item, a4, a5, a6, {}};
    if (a7 != 0) {
        auto *words = reinterpret_cast<const int32_t *>(a7);
        call.block.assign(words, words + 10);
    }
    gCalls.push_back(call);
    int32_t answer = gAnswers.empty() ? 0 : gAnswers.front();
    if (!gAnswers.empty()) gAnswers.erase(gAnswers.begin());
    return answer;
}

class Status : public ::testing::Test {
protected:
    void SetUp() override {
        gCalls.clear();
        gAnswers.clear();
    }
};

TEST_F(Status, NoCallbackAnswersZero) {
    EXPECT_EQ(CallGetSet_Status(nullptr, 1, 0, 0, 0, 50, 0, 0), 0);
}

TEST_F(Status, ProgressReportAnsweredZeroIsAskedOnce) {
    EXPECT_EQ(CallGetSet_Status(recordingStatus, 42, 0, 0, 0, 75, 0, 0), 0);
    ASSERT_EQ(gCalls.size(), 1u);
    EXPECT_EQ(gCalls[0].host, 42);
    EXPECT_EQ(gCalls[0].a5, 75);
}

TEST_F(Status, ProgressReportAnsweredNonZeroAsksAgainWithTenZeroWords) {
    gAnswers = {1, 5};
    EXPECT_EQ(CallGetSet_Status(recordingStatus, 42, 0, 0, 0, 75, 0, 0), 5);
    ASSERT_EQ(gCalls.size(), 2u);
    EXPECT_EQ(gCalls[1].host, 42);
    EXPECT_EQ(gCalls[1].op, 2);
    EXPECT_EQ(gCalls[1].item, 61);
    EXPECT_EQ(gCalls[1].block, std::vector<int32_t>(10, 0));
}

TEST_F(Status, SecondAnswerOfZeroMeansGoOn) {
    gAnswers = {1, 0};
    EXPECT_EQ(CallGetSet_Status(recordingStatus, 0, 0, 0, 0, 10, 0, 0), 0);
    EXPECT_EQ(gCalls.size(), 2u);
}

TEST_F(Status, OtherRequestsAreAskedOnceWhateverTheAnswer) {
    gAnswers = {3};
    EXPECT_EQ(CallGetSet_Status(recordingStatus, 9, 0, -2, 100, 0, 0, 0), 3);
    ASSERT_EQ(gCalls.size(), 1u);
    EXPECT_EQ(gCalls[0].item, -2);
    EXPECT_EQ(gCalls[0].a4, 100);
}

TEST(DriverServices, NoAlternativeFonts) {
    esc_mode(5);
    EXPECT_EQ(AltFontsAvailable(), 0);
}

}  // namespace
