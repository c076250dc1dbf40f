// The EXIF orientation read from the bytes of an APP1 segment: both byte
// orders, the value's two integer types, and damaged or hostile segments
// that must give "no orientation" without reading outside the bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "exif.h"
#include "exifbytes.h"

using mivo4::host::exifOrientation;
using toolstest::ExifEntry;
using toolstest::exifSegment;

namespace {

// The bytes in a block of their own exact length, so that a memory checker
// catches a read past them.
int orientationOf(const std::vector<uint8_t> &bytes) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    if (!bytes.empty()) std::memcpy(exact.get(), bytes.data(), bytes.size());
    return exifOrientation(exact.get(), bytes.size());
}

}  // namespace

TEST(ExifOrientation, EveryValueFromOneToEightIsReadInBothByteOrders) {
    for (bool big : {false, true})
        for (int o = 1; o <= 8; ++o) EXPECT_EQ(orientationOf(toolstest::exifOrientationSegment(big, o)), o) << big;
}

TEST(ExifOrientation, ALongValueIsTakenLikeAShortOne) {
    for (bool big : {false, true}) EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 4, 1, 6}})), 6);
}

TEST(ExifOrientation, ValuesOutsideOneToEightAndOtherTypesMeanNone) {
    for (bool big : {false, true}) {
        EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 3, 1, 0}})), 0);
        EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 3, 1, 9}})), 0);
        EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 3, 1, 0xFFFF}})), 0);
        EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 2, 1, 6}})), 0) << "an ASCII value";
        EXPECT_EQ(orientationOf(exifSegment(big, {{0x0112, 3, 5, 6}})), 0) << "five values live elsewhere";
    }
}

TEST(ExifOrientation, ASegmentWithoutTheTagOrNotExifMeansNone) {
    EXPECT_EQ(orientationOf(exifSegment(false, {{0x010F, 2, 4, 0x00434241}})), 0);
    EXPECT_EQ(orientationOf(exifSegment(true, {})), 0);
    std::vector<uint8_t> xmp = toolstest::exifOrientationSegment(false, 6);
    std::memcpy(xmp.data(), "Exif\0\1", 6);
    EXPECT_EQ(orientationOf(xmp), 0);
    std::vector<uint8_t> order = toolstest::exifOrientationSegment(false, 6);
    order[6] = 'X';
    EXPECT_EQ(orientationOf(order), 0) << "neither II nor MM";
    std::vector<uint8_t> magic = toolstest::exifOrientationSegment(true, 6);
    magic[9] = 43;
    EXPECT_EQ(orientationOf(magic), 0) << "not 42";
    EXPECT_EQ(orientationOf({}), 0);
    EXPECT_EQ(exifOrientation(nullptr, 100), 0);
}

TEST(ExifOrientation, EveryCutOfAGoodSegmentIsReadWithinItsBytes) {
    for (bool big : {false, true}) {
        const std::vector<uint8_t> whole = toolstest::exifOrientationSegment(big, 3);
        for (size_t n = 0; n < whole.size(); ++n) {
            std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
            const int o = orientationOf(cut);
            // Whole entry present: the value; else nothing.
            EXPECT_EQ(o, n >= 6 + 8 + 2 + 2 * 12 ? 3 : 0) << n;
        }
    }
}

TEST(ExifOrientation, DirectoryOffsetsAndCountsPastTheEndAreStoppedThere) {
    std::vector<uint8_t> far = toolstest::exifOrientationSegment(false, 6);
    far[10] = 0xF0, far[11] = 0xFF, far[12] = 0xFF, far[13] = 0xFF;  // IFD0 at 4 GB
    EXPECT_EQ(orientationOf(far), 0);
    std::vector<uint8_t> inside = toolstest::exifOrientationSegment(false, 6);
    inside[10] = 2;  // IFD0 inside the header itself
    EXPECT_EQ(orientationOf(inside), 0);
    std::vector<uint8_t> many = exifSegment(false, {{0x010F, 2, 4, 0}});
    many[14] = 0xFF, many[15] = 0xFF;  // 65535 entries claimed, one there
    EXPECT_EQ(orientationOf(many), 0);
    std::vector<uint8_t> manyThenTag = toolstest::exifOrientationSegment(true, 8);
    manyThenTag[14] = 0xFF, manyThenTag[15] = 0xFF;
    EXPECT_EQ(orientationOf(manyThenTag), 8) << "the entries that are there are read";
}
