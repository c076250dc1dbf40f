// The code tables hold the facsimile standard's codes. The values expected
// here are written out from the standard's tables as bit strings; the libtiff
// tests check the same codes again through libtiff's encoder.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>

#include <string>

namespace {

std::string Bits(const uint32_t entry[2]) {
    std::string s;
    for (uint32_t i = 0; i < entry[0]; ++i) s += ((entry[1] >> (15 - i)) & 1u) ? '1' : '0';
    return s;
}

TEST(CodeTables, TwoDimensionalModeCodes) {
    const char *expected[9] = {"0001", "001", "0000010", "000010", "010",
                               "1",    "011", "000011",  "0000011"};
    for (int m = 0; m < 9; ++m) EXPECT_EQ(Bits(twoD[m]), expected[m]) << "mode " << m;
    EXPECT_EQ(GP4_MODE_V0 - 3, GP4_MODE_VL3);
    EXPECT_EQ(GP4_MODE_V0 + 3, GP4_MODE_VR3);
}

TEST(CodeTables, CodesAreLeftAlignedInSixteenBitsWithNothingBelow) {
    for (const auto *table : {white, black})
        for (int i = 0; i < GP4_RUN_ENTRIES; ++i) {
            ASSERT_GE(table[i][0], 2u) << i;
            ASSERT_LE(table[i][0], 13u) << i;
            EXPECT_EQ(table[i][1] & ~(0xFFFFu << (16 - table[i][0])) & 0xFFFFu, 0u) << i;
            EXPECT_EQ(table[i][1] >> 16, 0u) << i;
        }
    for (int m = 0; m < 9; ++m) EXPECT_EQ(twoD[m][1] & ~(0xFFFFu << (16 - twoD[m][0])), 0u);
}

TEST(CodeTables, SampleTerminatingAndMakeUpCodes) {
    EXPECT_EQ(Bits(white[0]), "00110101");
    EXPECT_EQ(Bits(white[1]), "000111");
    EXPECT_EQ(Bits(white[2]), "0111");
    EXPECT_EQ(Bits(white[63]), "00110100");
    EXPECT_EQ(Bits(white[64]), "11011");         // 64
    EXPECT_EQ(Bits(white[63 + 26]), "011000");   // 1664
    EXPECT_EQ(Bits(white[63 + 27]), "010011011");  // 1728
    EXPECT_EQ(Bits(black[0]), "0000110111");
    EXPECT_EQ(Bits(black[1]), "010");
    EXPECT_EQ(Bits(black[2]), "11");
    EXPECT_EQ(Bits(black[3]), "10");
    EXPECT_EQ(Bits(black[63]), "000001100111");
    EXPECT_EQ(Bits(black[64]), "0000001111");       // 64
    EXPECT_EQ(Bits(black[63 + 27]), "0000001100101");  // 1728
}

TEST(CodeTables, ExtendedMakeUpCodesAreSharedByBothColours) {
    const char *expected[13] = {"00000001000",  "00000001100",  "00000001101",  "000000010010",
                                "000000010011", "000000010100", "000000010101", "000000010110",
                                "000000010111", "000000011100", "000000011101", "000000011110",
                                "000000011111"};
    for (int i = 0; i < 13; ++i) {
        EXPECT_EQ(Bits(white[91 + i]), expected[i]) << 1792 + 64 * i;
        EXPECT_EQ(Bits(black[91 + i]), expected[i]) << 1792 + 64 * i;
    }
    EXPECT_EQ(Bits(white[GP4_MAKEUP_2560]), "000000011111");
}

TEST(CodeTables, LastEntryIsEndOfLine) {
    EXPECT_EQ(Bits(white[GP4_EOL]), "000000000001");
    EXPECT_EQ(Bits(black[GP4_EOL]), "000000000001");
}

// Within one colour, no code is the beginning of another: a decoder could not
// tell them apart otherwise. This catches a mistyped digit anywhere.
TEST(CodeTables, EachColoursCodesArePrefixFree) {
    for (const auto *table : {white, black}) {
        for (int i = 0; i < GP4_EOL; ++i)
            for (int j = 0; j < GP4_EOL; ++j) {
                if (i == j) continue;
                std::string a = Bits(table[i]), b = Bits(table[j]);
                ASSERT_NE(b.compare(0, a.size(), a), 0)
                    << a << " (entry " << i << ") begins " << b << " (entry " << j << ")";
            }
    }
    for (int i = 0; i < 9; ++i) {
        for (int j = 0; j < 9; ++j) {
            if (i == j) continue;
            EXPECT_NE(Bits(twoD[j]).compare(0, twoD[i][0], Bits(twoD[i])), 0);
        }
    }
}

}  // namespace
