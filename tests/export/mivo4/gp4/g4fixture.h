// A current setup record for the coder's tests, and helpers that code
// pictures through the module's routines.
#pragma once

#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "g4pictures.h"

namespace g4test {

// Makes a zero-filled setup record current for the test, as a fresh setup is,
// and puts the previous one back afterwards. Its helpers are public so that
// functions shared by several tests can code with them.
class CoderTest : public ::testing::Test {
public:
    void SetUp() override {
        saved_ = lpRaster;
        setup_ = std::make_unique<Gp4_SetupData>();
        lpRaster = setup_.get();
    }
    void TearDown() override {
        GlobalFree(setup_->gp4_refLine);
        lpRaster = saved_;
    }
    Gp4_SetupData &Rec() { return *setup_; }

    // Starts a new picture: the band state a fresh setup has.
    void NewPicture() {
        GlobalFree(setup_->gp4_refLine);
        setup_->gp4_refLine = 0;
        setup_->gp4_stateInfoSaved = 0;
        setup_->gp4_BitOffset = 0;
    }

    // Codes rows [first, first + count) of p with Group4 as one band; answers
    // the bytes Group4 returns. The output buffer starts at `startSize` bytes
    // (default: the band's uncompressed size, as Encode allocates it).
    std::vector<uint8_t> Group4Band(const Picture &p, uint32_t first, uint32_t count,
                                    int64_t startSize = -1) {
        uint32_t size = startSize < 0 ? p.stride * count : static_cast<uint32_t>(startSize);
        ZHANDLE h = GlobalAlloc(GHND, size);
        EXPECT_NE(h, 0u);
        uint32_t n = Group4(p.Row(first), &h, p.width, count, p.stride);
        std::vector<uint8_t> out;
        if (h != 0) {
            auto *q = static_cast<uint8_t *>(GlobalLock(h));
            EXPECT_LE(n, GlobalSize(h));
            out.assign(q, q + n);
            GlobalFree(h);
        }
        return out;
    }
    std::vector<uint8_t> Group4Picture(const Picture &p) {
        NewPicture();
        return Group4Band(p, 0, p.height);
    }

    std::unique_ptr<Gp4_SetupData> setup_;
    Gp4_SetupData *saved_ = nullptr;
};

// A file name in the tests' scratch directory, of this test and process
// alone: the tests may run in parallel.
inline std::string ScratchFile(const std::string &name) {
    const char *dir = std::getenv("MIVO4_TEST_TMP");
    std::filesystem::path base = dir != nullptr ? dir : std::filesystem::temp_directory_path();
    std::filesystem::create_directories(base);
    std::string unique = std::to_string(getpid());
    if (const auto *test = ::testing::UnitTest::GetInstance()->current_test_info())
        unique = std::string(test->test_suite_name()) + "." + test->name() + "." + unique;
    return (base / (unique + "." + name)).string();
}

inline std::vector<uint8_t> ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace g4test
