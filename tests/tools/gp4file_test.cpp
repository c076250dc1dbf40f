// The host's look inside GP4 files: header records, and decoding checked
// against a stream made by libtiff's own Group 4 coder.
#include <tiffio.h>

#include "gp4file.h"
#include "toolfixture.h"

using namespace mivo4::host;
using toolstest::ScratchDir;

namespace {

std::vector<uint8_t> header(const std::string &pelcnt, const std::string &density) {
    const char *records[16] = {"srcdocid: NONE", "dstdocid: NONE", "txtfilid: NONE", "figid: NONE",
                               "srcgph: NONE",   "doccls: UNCLASS", "rtype: 1",      "rorient: 000,270",
                               nullptr,          nullptr,           "notes: NONE",   "", "", "", "", ""};
    std::string h;
    for (int i = 0; i < 16; ++i) {
        std::string r = i == 8 ? "rpelcnt: " + pelcnt : i == 9 ? "rdensty: " + density : records[i];
        r.resize(128, ' ');
        h += r;
    }
    return std::vector<uint8_t>(h.begin(), h.end());
}

bool on(uint32_t x, uint32_t y) { return (x * x + y * 3) % 13 < 5 || y % 17 == 0; }

// A Group 4 stream from libtiff's encoder, not ours.
std::vector<uint8_t> libtiffG4(const std::string &path, uint32_t w, uint32_t h) {
    toolstest::TiffSpec s;
    s.width = w;
    s.height = h;
    s.bps = 1;
    s.photometric = PHOTOMETRIC_MINISWHITE;
    s.compression = COMPRESSION_CCITTFAX4;
    auto bits = toolstest::packedBits(w, h, on);
    const size_t stride = (w + 7) / 8;
    for (uint32_t y = 0; y < h; ++y) s.rows.emplace_back(bits.begin() + y * stride, bits.begin() + (y + 1) * stride);
    EXPECT_TRUE(toolstest::writeTiffFile(path, s));
    TIFF *t = TIFFOpen(path.c_str(), "r");
    EXPECT_NE(t, nullptr);
    std::vector<uint8_t> raw(static_cast<size_t>(TIFFRawStripSize(t, 0)));
    TIFFReadRawStrip(t, 0, raw.data(), static_cast<tmsize_t>(raw.size()));
    TIFFClose(t);
    return raw;
}

}  // namespace

TEST(Gp4Header, RecordsWidthHeightAndDensityAreRead) {
    auto file = header("001728,002200", "0200");
    Gp4Header h = parseGp4Header(file);
    EXPECT_TRUE(h.wellFormed);
    ASSERT_EQ(h.records.size(), 16u);
    EXPECT_EQ(h.records[0], "srcdocid: NONE");
    EXPECT_EQ(h.records[15], "");
    EXPECT_EQ(h.width, 1728u);
    EXPECT_EQ(h.height, 2200u);
    EXPECT_EQ(h.density, 200u);
}

TEST(Gp4Header, ShortFilesAndMissingCountsGiveNoSize) {
    EXPECT_FALSE(parseGp4Header(std::vector<uint8_t>(100, ' ')).wellFormed);
    auto file = header("0017x8,002200", "0200");
    Gp4Header h = parseGp4Header(file);
    EXPECT_FALSE(h.width.has_value());
    file[5] = '\n';
    EXPECT_FALSE(parseGp4Header(file).wellFormed);
}

TEST(Gp4Decode, AStreamFromLibtiffsCoderDecodesToItsPixels) {
    ScratchDir dir;
    const uint32_t w = 213, h = 77;
    auto coded = libtiffG4(dir / "a.tif", w, h);
    DecodeResult d = decodeG4(coded, w, h);
    ASSERT_TRUE(d.picture) << d.problem;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(d.picture->black(x, y), on(x, y)) << x << "," << y;
    EXPECT_FALSE(codesMoreRows(coded, w, h));
}

TEST(Gp4Decode, TooFewRowsOrDamagedCodesAreReported) {
    ScratchDir dir;
    const uint32_t w = 213, h = 77;
    auto coded = libtiffG4(dir / "a.tif", w, h);
    EXPECT_TRUE(codesMoreRows(coded, w, h - 1)) << "the stream holds one row more than asked for";
    auto cut = coded;
    cut.resize(cut.size() / 2);
    EXPECT_FALSE(decodeG4(cut, w, h).picture);
    EXPECT_FALSE(decodeG4(cut, w, h).problem.empty());
    auto damaged = coded;
    for (size_t i = damaged.size() / 3; i < damaged.size() / 3 + 8; ++i) damaged[i] = 0;
    EXPECT_FALSE(decodeG4(damaged, w, h).picture);
}

TEST(Gp4Header, ASoundHeaderHasNoDamage) {
    EXPECT_TRUE(parseGp4Header(header("001728,002200", "0200")).damage.empty());
}

TEST(Gp4Header, OverflowingNumbersAreDamageNotWrappedValues) {
    Gp4Header h = parseGp4Header(header("4294967297,1", "0200"));
    EXPECT_FALSE(h.width.has_value());
    ASSERT_EQ(h.damage.size(), 1u);
    EXPECT_NE(h.damage[0].find("does not fit"), std::string::npos);
    h = parseGp4Header(header("000010,000010", "99999999999"));
    EXPECT_FALSE(h.density.has_value());
    ASSERT_EQ(h.damage.size(), 1u);
    h = parseGp4Header(header("000010,4294967295", "0200"));
    EXPECT_EQ(h.height, 4294967295u) << "the largest 32-bit count still fits";
    EXPECT_TRUE(h.damage.empty());
}

TEST(Gp4Header, RepeatedRecordsAreDamageAndTheFirstCounts) {
    auto file = header("000020,000030", "0200");
    std::string again = "rpelcnt: 000001,000001";
    again.resize(128, ' ');
    std::copy(again.begin(), again.end(), file.begin() + 11 * 128);
    std::string other = "notes: again";
    other.resize(128, ' ');
    std::copy(other.begin(), other.end(), file.begin() + 12 * 128);
    Gp4Header h = parseGp4Header(file);
    EXPECT_EQ(h.width, 20u);
    EXPECT_EQ(h.height, 30u);
    ASSERT_EQ(h.damage.size(), 2u);
    EXPECT_NE(h.damage[0].find("\"rpelcnt\" record is given more than once"), std::string::npos);
    EXPECT_NE(h.damage[1].find("\"notes\" record is given more than once"), std::string::npos);
}

TEST(Gp4Header, MissingRasterRecordsAreDamage) {
    auto file = header("000020,000030", "0200");
    std::fill(file.begin() + 9 * 128, file.begin() + 10 * 128, ' ');  // rdensty
    std::fill(file.begin() + 6 * 128, file.begin() + 7 * 128, ' ');   // rtype
    Gp4Header h = parseGp4Header(file);
    ASSERT_EQ(h.damage.size(), 2u);
    EXPECT_NE(h.damage[0].find("no \"rtype\""), std::string::npos);
    EXPECT_NE(h.damage[1].find("no \"rdensty\""), std::string::npos);
}

TEST(Gp4Decode, RowByRowCheckAgreesWithTheWholeDecode) {
    ScratchDir dir;
    const uint32_t w = 203, h = 61;
    auto coded = libtiffG4(dir / "g4.tif", w, h);
    DecodeResult whole = decodeG4(coded, w, h);
    ASSERT_TRUE(whole.picture);
    uint64_t black = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) black += whole.picture->black(x, y);
    std::vector<uint8_t> rows;
    G4Check c = checkG4(coded, w, h, [&](const uint8_t *row) {
        rows.insert(rows.end(), row, row + (w + 7) / 8);
        return true;
    });
    EXPECT_TRUE(c.decodes) << c.problem;
    EXPECT_FALSE(c.moreRows);
    EXPECT_EQ(c.black, black);
    EXPECT_EQ(rows, whole.picture->bits);
    EXPECT_TRUE(checkG4(coded, w, h - 1).moreRows);
    auto cut = coded;
    cut.resize(cut.size() / 2);
    EXPECT_FALSE(checkG4(cut, w, h).decodes);
}
