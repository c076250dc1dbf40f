// Copying files through streams, and positioning a FILE directly.
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

TEST(FileCopy, CopyDuplicatesTheFileExactlyAndReturnsZero) {
    LeakCheck leaks;
    TempDir dir;
    for (size_t size : {size_t{0}, size_t{1}, size_t{4096}, size_t{8192}, size_t{12289}, size_t{50001}}) {
        std::string source = dir.Path("src.bin");
        std::string target = dir.Path("dst.bin");
        Bytes data = Pattern(size, static_cast<uint32_t>(size));
        WriteFile(source, data);
        EXPECT_EQ(zepCopy(source.c_str(), target.c_str()), 0) << size;
        EXPECT_EQ(ReadFile(target), data) << size;
        EXPECT_EQ(ReadFile(source), data) << size;
    }
}

TEST(FileCopy, CopyReplacesWhatTheTargetHeld) {
    LeakCheck leaks;
    TempDir dir;
    std::string source = dir.Path("src.bin");
    std::string target = dir.Path("dst.bin");
    WriteFile(source, B("short"));
    WriteFile(target, Pattern(9000));
    EXPECT_EQ(zepCopy(source.c_str(), target.c_str()), 0);
    EXPECT_EQ(ReadFile(target), B("short"));
}

TEST(FileCopy, CopyOfAMissingSourceCreatesAnEmptyTargetAndReturnsZero) {
    LeakCheck leaks;
    TempDir dir;
    std::string target = dir.Path("dst.bin");
    EXPECT_EQ(zepCopy(dir.Path("missing").c_str(), target.c_str()), 0);
    EXPECT_TRUE(Exists(target));
    EXPECT_TRUE(ReadFile(target).empty());
}

TEST(FileCopy, CopyToATargetThatCannotBeOpenedReturnsMinusTheBytesRead) {
    LeakCheck leaks;
    TempDir dir;
    std::string source = dir.Path("src.bin");
    WriteFile(source, Pattern(10000));
    EXPECT_EQ(zepCopy(source.c_str(), dir.Path("no/such/dir/dst.bin").c_str()), -10000);
}

TEST(FileCopy, CopyWithNullNamesCopiesNothing) {
    LeakCheck leaks;
    EXPECT_EQ(zepCopy(nullptr, nullptr), 0);
}

TEST(FileSeek, UnxSeekSeeksThenReportsThePosition) {
    TempDir dir;
    std::string path = dir.Path("u.bin");
    WriteFile(path, Pattern(100));
    FILE *file = std::fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(unxSeek(file, 10, SEEK_SET), 10);
    EXPECT_EQ(unxSeek(file, 5, SEEK_CUR), 15);
    EXPECT_EQ(unxSeek(file, -1, SEEK_END), 99);
    EXPECT_EQ(unxSeek(file, 200, SEEK_SET), 200) << "past the end is a position too";
    EXPECT_EQ(unxSeek(file, -1, SEEK_SET), -1);
    EXPECT_EQ(unxSeek(file, 0, 42), -1);
    std::fclose(file);
}

}  // namespace
