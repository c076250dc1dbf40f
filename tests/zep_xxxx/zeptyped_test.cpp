// Typed reads and writes: every expected byte sequence below was worked out by
// hand from the value's bit pattern, not produced by the code under test.
#include <cmath>
#include <limits>

#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

// Writes through a file stream with the given format and returns the file's bytes.
template <typename Body>
Bytes Written(int16_t endian, int16_t real, Body body) {
    TempDir dir;
    std::string path = dir.Path("typed.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    EXPECT_NE(h, 0u);
    EXPECT_EQ(zepSetDataFormat(h, endian, real), 0);
    body(h);
    EXPECT_EQ(zepClose(h), 0);
    return ReadFile(path);
}

// Reads from a file stream holding exactly the given bytes.
template <typename Body>
void ReadBack(const Bytes &bytes, int16_t endian, int16_t real, Body body) {
    TempDir dir;
    std::string path = dir.Path("typed.bin");
    WriteFile(path, bytes);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSetDataFormat(h, endian, real), 0);
    body(h);
    EXPECT_EQ(zepClose(h), 0);
}

template <typename T>
Bytes RawBytes(const T *values, size_t n) {
    Bytes out(n * sizeof(T));
    std::memcpy(out.data(), values, out.size());
    return out;
}

TEST(TypedValues, ShortIsWrittenLowByteFirstByDefaultAndHighByteFirstWhenBigEndian) {
    LeakCheck leaks;
    const int16_t value = 0x1234;
    EXPECT_EQ(Written(0, 0, [&](HZEPIO h) { EXPECT_EQ(zepWriteShort(h, &value, 1), 1); }), B({0x34, 0x12}));
    EXPECT_EQ(Written(1, 0, [&](HZEPIO h) { EXPECT_EQ(zepWriteShort(h, &value, 1), 1); }), B({0x12, 0x34}));
}

TEST(TypedValues, ShortsRoundTripInBothByteOrders) {
    LeakCheck leaks;
    const int16_t values[] = {0x1234, -2, 0x7FFF, std::numeric_limits<int16_t>::min(), 0};
    const Bytes little = B({0x34, 0x12, 0xFE, 0xFF, 0xFF, 0x7F, 0x00, 0x80, 0x00, 0x00});
    const Bytes big = B({0x12, 0x34, 0xFF, 0xFE, 0x7F, 0xFF, 0x80, 0x00, 0x00, 0x00});
    for (int16_t real : {0, 1}) {
        EXPECT_EQ(Written(0, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteShort(h, values, 5), 5); }), little);
        EXPECT_EQ(Written(1, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteShort(h, values, 5), 5); }), big);
        for (int16_t endian : {0, 1}) {
            ReadBack(endian == 1 ? big : little, endian, real, [&](HZEPIO h) {
                int16_t back[5] = {};
                EXPECT_EQ(zepReadShort(h, back, 5), 5);
                for (int i = 0; i < 5; ++i) EXPECT_EQ(back[i], values[i]) << i;
            });
        }
    }
}

TEST(TypedValues, LongsRoundTripInBothByteOrders) {
    LeakCheck leaks;
    const int32_t values[] = {0x12345678, -2, std::numeric_limits<int32_t>::min(), 1};
    const Bytes little = B({0x78, 0x56, 0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF,
                            0x00, 0x00, 0x00, 0x80, 0x01, 0x00, 0x00, 0x00});
    const Bytes big = B({0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF, 0xFF, 0xFE,
                         0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01});
    for (int16_t real : {0, 1}) {
        EXPECT_EQ(Written(0, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteLong(h, values, 4), 4); }), little);
        EXPECT_EQ(Written(1, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteLong(h, values, 4), 4); }), big);
        for (int16_t endian : {0, 1}) {
            ReadBack(endian == 1 ? big : little, endian, real, [&](HZEPIO h) {
                int32_t back[4] = {};
                EXPECT_EQ(zepReadLong(h, back, 4), 4);
                for (int i = 0; i < 4; ++i) EXPECT_EQ(back[i], values[i]) << i;
            });
        }
    }
}

TEST(TypedValues, IeeeFloatsRoundTripInBothByteOrders) {
    LeakCheck leaks;
    // 1.0f = 3F800000, -2.5f = C0200000, 0.1f = 3DCCCCCD, largest finite = 7F7FFFFF.
    const float values[] = {1.0f, -2.5f, 0.1f, std::numeric_limits<float>::max()};
    const Bytes little = B({0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0,
                            0xCD, 0xCC, 0xCC, 0x3D, 0xFF, 0xFF, 0x7F, 0x7F});
    const Bytes big = B({0x3F, 0x80, 0x00, 0x00, 0xC0, 0x20, 0x00, 0x00,
                         0x3D, 0xCC, 0xCC, 0xCD, 0x7F, 0x7F, 0xFF, 0xFF});
    EXPECT_EQ(Written(0, 0, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, values, 4), 4); }), little);
    EXPECT_EQ(Written(1, 0, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, values, 4), 4); }), big);
    for (int16_t endian : {0, 1}) {
        ReadBack(endian == 1 ? big : little, endian, 0, [&](HZEPIO h) {
            float back[4] = {};
            EXPECT_EQ(zepReadFloat(h, back, 4), 4);
            for (int i = 0; i < 4; ++i) EXPECT_EQ(back[i], values[i]) << i;
        });
    }
}

TEST(TypedValues, DoublesRoundTripInBothByteOrdersWhateverTheRealFormat) {
    LeakCheck leaks;
    // 1.0 = 3FF0000000000000, -2.5 = C004000000000000, 0.1 = 3FB999999999999A.
    const double values[] = {1.0, -2.5, 0.1};
    const Bytes little = B({0, 0, 0, 0, 0, 0, 0xF0, 0x3F,
                            0, 0, 0, 0, 0, 0, 0x04, 0xC0,
                            0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F});
    const Bytes big = B({0x3F, 0xF0, 0, 0, 0, 0, 0, 0,
                         0xC0, 0x04, 0, 0, 0, 0, 0, 0,
                         0x3F, 0xB9, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9A});
    for (int16_t real : {0, 1}) {
        EXPECT_EQ(Written(0, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteDouble(h, values, 3), 3); }), little);
        EXPECT_EQ(Written(1, real, [&](HZEPIO h) { EXPECT_EQ(zepWriteDouble(h, values, 3), 3); }), big);
        for (int16_t endian : {0, 1}) {
            ReadBack(endian == 1 ? big : little, endian, real, [&](HZEPIO h) {
                double back[3] = {};
                EXPECT_EQ(zepReadDouble(h, back, 3), 3);
                for (int i = 0; i < 3; ++i) EXPECT_EQ(back[i], values[i]) << i;
            });
        }
    }
}

TEST(TypedValues, FixedPointReadOfBigEndianBytesGivesOneAndAHalf) {
    LeakCheck leaks;
    ReadBack(B({0x00, 0x01, 0x80, 0x00}), 1, 1, [](HZEPIO h) {
        float value = 0;
        EXPECT_EQ(zepReadFloat(h, &value, 1), 1);
        EXPECT_EQ(value, 1.5f);
    });
}

TEST(TypedValues, FixedPointWriteOfOneAndAHalfGivesFractionThenInteger) {
    LeakCheck leaks;
    const float value = 1.5f;
    EXPECT_EQ(Written(1, 1, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, &value, 1), 1); }),
              B({0x80, 0x00, 0x00, 0x01}));
}

TEST(TypedValues, FixedPointWriteOfMinusOneAndAHalfStoresMinusOneAndMinus32768) {
    LeakCheck leaks;
    const float value = -1.5f;
    EXPECT_EQ(Written(1, 1, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, &value, 1), 1); }),
              B({0x80, 0x00, 0xFF, 0xFF}));
}

TEST(TypedValues, FixedPointWritesTheSameBytesInEitherByteOrder) {
    LeakCheck leaks;
    // fraction (MSB first), then integer part (MSB first):
    // 2.25 -> 4000 0002, -0.25 -> C000 0000, 0 -> 0000 0000, 100.75 -> C000 0064.
    const float values[] = {2.25f, -0.25f, 0.0f, 100.75f};
    const Bytes expected = B({0x40, 0x00, 0x00, 0x02, 0xC0, 0x00, 0x00, 0x00,
                              0x00, 0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0x64});
    for (int16_t endian : {0, 1, 2}) {
        EXPECT_EQ(Written(endian, 1, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, values, 4), 4); }), expected)
            << "byte order " << endian;
    }
}

TEST(TypedValues, FixedPointReadsFollowTheStreamsByteOrder) {
    LeakCheck leaks;
    // Big-endian words: 0001 8000 = 98304 -> 1.5; FFFF 8000 = -32768 -> -0.5;
    // 0064 C000 -> 100.75; 8000 0000 -> -32768.
    ReadBack(B({0x00, 0x01, 0x80, 0x00, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x64, 0xC0, 0x00, 0x80, 0x00, 0x00, 0x00}), 1, 1,
             [](HZEPIO h) {
                 float v[4] = {};
                 EXPECT_EQ(zepReadFloat(h, v, 4), 4);
                 EXPECT_EQ(v[0], 1.5f);
                 EXPECT_EQ(v[1], -0.5f);
                 EXPECT_EQ(v[2], 100.75f);
                 EXPECT_EQ(v[3], -32768.0f);
             });
    // The same words little-endian.
    ReadBack(B({0x00, 0x80, 0x01, 0x00, 0x00, 0x80, 0xFF, 0xFF}), 0, 1, [](HZEPIO h) {
        float v[2] = {};
        EXPECT_EQ(zepReadFloat(h, v, 2), 2);
        EXPECT_EQ(v[0], 1.5f);
        EXPECT_EQ(v[1], -0.5f);
    });
    // 7FFFFFFF / 65536 = 32767.99998..., which single precision rounds to 32768.
    ReadBack(B({0x7F, 0xFF, 0xFF, 0xFF}), 1, 1, [](HZEPIO h) {
        float v = 0;
        EXPECT_EQ(zepReadFloat(h, &v, 1), 1);
        EXPECT_EQ(v, 32768.0f);
    });
}

TEST(TypedValues, FixedPointValueWrittenAndReadBackIsNotTheSameValue) {
    LeakCheck leaks;
    const float value = 1.5f;
    Bytes bytes = Written(1, 1, [&](HZEPIO h) { zepWriteFloat(h, &value, 1); });
    ASSERT_EQ(bytes, B({0x80, 0x00, 0x00, 0x01}));
    // Big-endian 80000001 = -2147483647; / 65536 rounds in single precision to -32768.
    ReadBack(bytes, 1, 1, [](HZEPIO h) {
        float v = 0;
        EXPECT_EQ(zepReadFloat(h, &v, 1), 1);
        EXPECT_EQ(v, -32768.0f);
    });
    // Little-endian 01000080 = 16777344; / 65536 = 256.001953125.
    ReadBack(bytes, 0, 1, [](HZEPIO h) {
        float v = 0;
        EXPECT_EQ(zepReadFloat(h, &v, 1), 1);
        EXPECT_EQ(v, 256.001953125f);
    });
}

TEST(TypedValues, FixedPointIntegerPartKeepsItsLow16BitsAndUnrepresentableValuesWriteZero) {
    LeakCheck leaks;
    // 40000.5: integer 40000 = 9C40 kept as 16 bits, fraction 8000.
    const float values[] = {40000.5f, std::numeric_limits<float>::quiet_NaN(), 1e10f, -65536.0f};
    EXPECT_EQ(Written(1, 1, [&](HZEPIO h) { EXPECT_EQ(zepWriteFloat(h, values, 4), 4); }),
              B({0x80, 0x00, 0x9C, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(TypedValues, ReadingThreeShortsFromFiveBytesReturnsZeroAndLeavesTheRawBytes) {
    LeakCheck leaks;
    ReadBack(B({0x01, 0x02, 0x03, 0x04, 0x05}), 1, 0, [](HZEPIO h) {
        int16_t values[3] = {0x7777, 0x7777, 0x7777};
        EXPECT_EQ(zepReadShort(h, values, 3), 0);
        EXPECT_EQ(RawBytes(values, 3), B({0x01, 0x02, 0x03, 0x04, 0x05, 0x77}));
    });
}

TEST(TypedValues, ShortReadOfEveryTypeConvertsNothing) {
    LeakCheck leaks;
    ReadBack(B({0x01, 0x02, 0x03}), 1, 1, [](HZEPIO h) {
        int32_t longs[1] = {0};
        EXPECT_EQ(zepReadLong(h, longs, 1), 0);
        EXPECT_EQ(RawBytes(longs, 1), B({0x01, 0x02, 0x03, 0x00}));
    });
    ReadBack(B({0x3F, 0x80, 0x00, 0x00, 0x01}), 1, 0, [](HZEPIO h) {
        float floats[2] = {0, 0};
        EXPECT_EQ(zepReadFloat(h, floats, 2), 0);
        EXPECT_EQ(RawBytes(floats, 2), B({0x3F, 0x80, 0x00, 0x00, 0x01, 0, 0, 0}));
    });
    ReadBack(B({0x3F, 0xF0}), 1, 0, [](HZEPIO h) {
        double d = 0;
        EXPECT_EQ(zepReadDouble(h, &d, 1), 0);
        EXPECT_EQ(RawBytes(&d, 1), B({0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
    });
}

TEST(TypedValues, ByteOrderValuesOtherThanOneMeanLittleEndianAndRealFormatsOtherThanOneMeanIeee) {
    LeakCheck leaks;
    const int16_t s = 0x1234;
    const float f = 1.0f;
    for (int16_t endian : {0, 2, -1, 256}) {
        EXPECT_EQ(Written(endian, 0, [&](HZEPIO h) { zepWriteShort(h, &s, 1); }), B({0x34, 0x12})) << endian;
    }
    for (int16_t real : {0, 2, -1}) {
        EXPECT_EQ(Written(1, real, [&](HZEPIO h) { zepWriteFloat(h, &f, 1); }), B({0x3F, 0x80, 0, 0})) << real;
    }
}

TEST(TypedValues, DataFormatIsZeroAfterOpenAndReportsWhatWasSet) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("f.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    int16_t endian = 9, real = 9;
    EXPECT_EQ(zepGetDataFormat(h, &endian, &real), 0);
    EXPECT_EQ(endian, 0);
    EXPECT_EQ(real, 0);
    EXPECT_EQ(zepSetDataFormat(h, 1, 1), 0);
    EXPECT_EQ(zepGetDataFormat(h, &endian, &real), 0);
    EXPECT_EQ(endian, 1);
    EXPECT_EQ(real, 1);
    EXPECT_EQ(zepSetDataFormat(h, -3, 7), 0);
    EXPECT_EQ(zepGetDataFormat(h, &endian, nullptr), 0);
    EXPECT_EQ(endian, -3);
    EXPECT_EQ(zepClose(h), 0);
}

TEST(TypedValues, TypedWriteStopsAtTheFirstFailingWriteAndReturnsItsResult) {
    LeakCheck leaks;
    const int16_t values[] = {1, 2, 3};
    for (int32_t failure : {-1, 0}) {
        FakeHost host;
        host.failWriteAt = 1;
        host.writeFailure = failure;
        IOINFO info{};
        info.pIOProc = &FakeHost::Proc;
        HZEPIO h = zepOpen("s", &info, ZEP_OPEN_WRITE);
        ASSERT_NE(h, 0u);
        EXPECT_EQ(zepWriteShort(h, values, 3), failure);
        EXPECT_EQ(host.Ops(), (std::vector<int32_t>{1, 3, 3})) << "the third item is not tried";
        EXPECT_EQ(host.content, B({1, 0}));
        EXPECT_EQ(zepClose(h), 0);
    }
}

TEST(TypedValues, TypedWriteToAStreamInErrorReturnsZero) {
    LeakCheck leaks;
    TempDir dir;
    std::string path = dir.Path("e.bin");
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(zepSeek(h, -1, 0), -1);
    const double d = 1.0;
    EXPECT_EQ(zepWriteDouble(h, &d, 1), 0);
    EXPECT_EQ(zepClose(h), 0);
    EXPECT_TRUE(ReadFile(path).empty());
}

TEST(TypedValues, ZeroItemsAreReadAndWrittenAsZero) {
    LeakCheck leaks;
    ReadBack(B({1, 2}), 0, 0, [](HZEPIO h) {
        int16_t v = 5;
        EXPECT_EQ(zepReadShort(h, &v, 0), 0);
        EXPECT_EQ(zepWriteShort(h, &v, 0), 0);
        EXPECT_EQ(v, 5);
        EXPECT_EQ(zepSeek(h, 0, 1), 0);
    });
}

TEST(TypedValues, CharReadsAndWritesArePlainBytes) {
    LeakCheck leaks;
    EXPECT_EQ(Written(1, 1, [](HZEPIO h) { EXPECT_EQ(zepWriteChar(h, "\x01\x02\x03", 3), 3); }), B({1, 2, 3}));
    ReadBack(B({1, 2, 3}), 1, 1, [](HZEPIO h) {
        uint8_t got[4] = {};
        EXPECT_EQ(zepReadChar(h, got, 4), 3);
        EXPECT_EQ(got[2], 3);
    });
}

TEST(TypedValues, NativeToBigAndLittleEndianStoreTheLowBytesInTheirOrder) {
    uint8_t d[8];
    std::memset(d, 0xEE, sizeof d);
    zepNativeToBE(d, 0x11223344u, 2);
    EXPECT_EQ(d[0], 0x33);
    EXPECT_EQ(d[1], 0x44);
    EXPECT_EQ(d[2], 0xEE);
    std::memset(d, 0xEE, sizeof d);
    zepNativeToLE(d, 0x11223344u, 2);
    EXPECT_EQ(d[0], 0x44);
    EXPECT_EQ(d[1], 0x33);
    EXPECT_EQ(d[2], 0xEE);
    zepNativeToBE(d, 0x11223344u, 4);
    EXPECT_EQ(Bytes(d, d + 4), B({0x11, 0x22, 0x33, 0x44}));
    zepNativeToLE(d, 0x11223344u, 4);
    EXPECT_EQ(Bytes(d, d + 4), B({0x44, 0x33, 0x22, 0x11}));
}

TEST(TypedValues, NativeToEndianBeyondFourBytesWidensWithZeros) {
    uint8_t d[8];
    std::memset(d, 0xEE, sizeof d);
    zepNativeToLE(d, 0xAABBCCDDu, 6);
    EXPECT_EQ(Bytes(d, d + 8), B({0xDD, 0xCC, 0xBB, 0xAA, 0, 0, 0xEE, 0xEE}));
    std::memset(d, 0xEE, sizeof d);
    zepNativeToBE(d, 0xAABBCCDDu, 6);
    EXPECT_EQ(Bytes(d, d + 8), B({0, 0, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xEE}));
    std::memset(d, 0xEE, sizeof d);
    zepNativeToBE(d, 1, 0);
    zepNativeToLE(d, 1, -3);
    EXPECT_EQ(d[0], 0xEE) << "nothing stored for n <= 0";
}

}  // namespace
