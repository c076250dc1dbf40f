// The suggestions for a misspelt option or command: which names are near
// enough to offer, and how the offer reads.
#include <gtest/gtest.h>

#include "suggest.h"

using mivo4::host::didYouMean;
using mivo4::host::editDistance;
using mivo4::host::nearestNames;

namespace {

const std::vector<std::string> kOptions = {"--dpi", "--density", "--dither", "--demo", "--width", "--height",
                                           "--source-dpi", "--allow-truncated", "--via", "--verify"};

}  // namespace

TEST(Suggest, EditDistanceCountsASwapOfNeighboursAsOneEdit) {
    EXPECT_EQ(editDistance("dpi", "dpi"), 0u);
    EXPECT_EQ(editDistance("dpl", "dpi"), 1u);
    EXPECT_EQ(editDistance("widht", "width"), 1u);
    EXPECT_EQ(editDistance("", "abc"), 3u);
    EXPECT_EQ(editDistance("abc", ""), 3u);
    EXPECT_EQ(editDistance("kitten", "sitting"), 3u);
}

TEST(Suggest, TheOneNameATypedStartBelongsToIsOffered) {
    EXPECT_EQ(nearestNames("--allow", kOptions), (std::vector<std::string>{"--allow-truncated"}));
    EXPECT_EQ(nearestNames("--sou", kOptions), (std::vector<std::string>{"--source-dpi"}));
}

TEST(Suggest, NamesWithinTwoEditsAreOfferedNearestFirst) {
    EXPECT_EQ(nearestNames("--dpl", kOptions), (std::vector<std::string>{"--dpi"}));
    EXPECT_EQ(nearestNames("--heigth", kOptions), (std::vector<std::string>{"--height"}));
    EXPECT_EQ(nearestNames("--densty", kOptions), (std::vector<std::string>{"--density"}));
    EXPECT_EQ(nearestNames("--vix", kOptions), (std::vector<std::string>{"--via"}));
    // The nearer wins: --demo is one edit away, --dpi two.
    EXPECT_EQ(nearestNames("--demi", kOptions), (std::vector<std::string>{"--demo"}));
    // Equally near: all of them, in the order known.
    EXPECT_EQ(nearestNames("abcx", {"abcd", "xyz", "abce"}), (std::vector<std::string>{"abcd", "abce"}));
}

TEST(Suggest, ADashMoreOrLessIsNoEdit) {
    EXPECT_EQ(nearestNames("-dpi", kOptions), (std::vector<std::string>{"--dpi"}));
    EXPECT_EQ(nearestNames("dither", kOptions), (std::vector<std::string>{"--dither"}));
}

TEST(Suggest, NothingNearIsNoSuggestion) {
    EXPECT_TRUE(nearestNames("--bogus", kOptions).empty());
    EXPECT_TRUE(nearestNames("", kOptions).empty());
    // One letter is not taken for a name two edits away.
    EXPECT_TRUE(nearestNames("-x", kOptions).empty());
    EXPECT_EQ(didYouMean("--bogus", kOptions), "");
}

TEST(Suggest, TheOfferReadsAsAQuestion) {
    EXPECT_EQ(didYouMean("--dpl", kOptions), " (did you mean --dpi?)");
    EXPECT_EQ(didYouMean("abcx", {"abcd", "abce"}), " (did you mean abcd or abce?)");
    EXPECT_EQ(didYouMean("ab", {"abc", "abd", "abe"}), " (did you mean abc, abd or abe?)");
}
