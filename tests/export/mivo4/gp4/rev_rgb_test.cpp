// rev_rgb: the colour adjustment for monochrome output.
#include <gtest/gtest.h>
#include <mivo4/color.h>
#include <mivo4/setup.h>

#include <vector>

namespace {

class RevRgb : public ::testing::Test {
protected:
    void SetUp() override { saved = lpRaster; }
    void TearDown() override { lpRaster = saved; }
    void threshold(uint32_t t) {
        setup.GreyThreshold = t;
        lpRaster = &setup;
    }
    std::vector<uint8_t> run(std::vector<uint8_t> rgb, int32_t mode) {
        rev_rgb(static_cast<uint32_t>(rgb.size() / 3), rgb.data(), mode);
        return rgb;
    }
    Gp4_SetupData *saved = nullptr;
    Gp4_SetupData setup{};
};

TEST_F(RevRgb, ModeThreeDarkensGreysByTheThresholdAndKeepsNearWhite) {
    threshold(20);
    EXPECT_EQ(run({100, 100, 100, 255, 250, 250}, 3), (std::vector<uint8_t>{80, 80, 80, 251, 251, 251}));
}

TEST_F(RevRgb, ModeThreeWeighsRedGreenAndBlueThreeSixOne) {
    threshold(0);
    // (3 * 200 + 6 * 100 + 0) / 10 = 120; 249 stays below the white cut.
    EXPECT_EQ(run({200, 100, 0, 249, 249, 249}, 3), (std::vector<uint8_t>{120, 120, 120, 249, 249, 249}));
    threshold(50);
    EXPECT_EQ(run({249, 249, 249, 250, 250, 250}, 3), (std::vector<uint8_t>{124, 124, 124, 250, 250, 250}));
}

TEST_F(RevRgb, WithoutACurrentSetupTheThresholdIsZero) {
    lpRaster = nullptr;
    EXPECT_EQ(run({100, 100, 100}, 3), (std::vector<uint8_t>{100, 100, 100}));
}

TEST_F(RevRgb, AThresholdAbove100FollowsUnsignedArithmetic) {
    // 100 * (100 - 110) wraps in 32 bits: 4294966296 / 100 = 42949662, low byte 30.
    threshold(110);
    EXPECT_EQ(run({100, 100, 100}, 3), (std::vector<uint8_t>{30, 30, 30}));
}

TEST_F(RevRgb, ModeOneInvertsEverything) {
    EXPECT_EQ(run({0, 10, 255, 100, 101, 102}, 1), (std::vector<uint8_t>{255, 245, 0, 155, 154, 153}));
}

TEST_F(RevRgb, ModeTwoInvertsOnlyGreysWithinTen) {
    EXPECT_EQ(run({100, 110, 105, 100, 111, 100, 0, 0, 0}, 2),
              (std::vector<uint8_t>{155, 145, 150, 100, 111, 100, 255, 255, 255}));
}

TEST_F(RevRgb, ModeFourGivesTheInvertedGrey) {
    EXPECT_EQ(run({200, 100, 0, 255, 255, 255}, 4), (std::vector<uint8_t>{135, 135, 135, 0, 0, 0}));
}

TEST_F(RevRgb, OtherModesChangeNothing) {
    for (int32_t mode : {0, 5, -1, 100}) EXPECT_EQ(run({1, 2, 3}, mode), (std::vector<uint8_t>{1, 2, 3})) << mode;
    rev_rgb(3, nullptr, 1);
}

}  // namespace
