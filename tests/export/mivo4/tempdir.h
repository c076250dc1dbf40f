// A fresh directory per test, made current, with INIDIR and DISPLAYINFO unset.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace mivo4::test {

class InTempDir : public ::testing::Test {
protected:
    void SetUp() override {
        namespace fs = std::filesystem;
        const char *base = std::getenv("MIVO4_TEST_TMP");
        fs::path root = base != nullptr ? fs::path(base) : fs::temp_directory_path();
        fs::create_directories(root);
        std::string pattern = (root / "setupXXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        saved_ = fs::current_path();
        fs::current_path(dir_);
        unsetenv("INIDIR");
        unsetenv("DISPLAYINFO");
    }
    void TearDown() override {
        std::filesystem::current_path(saved_);
        unsetenv("INIDIR");
        std::filesystem::remove_all(dir_);
    }
    static void spill(const std::string &name, const std::string &text) {
        std::ofstream(name, std::ios::binary) << text;
    }
    static std::string slurp(const std::string &name) {
        std::ifstream in(name, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    std::filesystem::path dir_;
    std::filesystem::path saved_;
};

}  // namespace mivo4::test
