// mivo4 info on headers put together here byte by byte: what it flags
// (records out of order, names that are not the format's, values outside
// it), how it explains the orientation, and several files in one call.
#include "clirun.h"
#include "info.h"
#include "toolfixture.h"

using mivo4::host::describeOrientation;
using mivo4::host::headerWarnings;
using mivo4::host::parseGp4Header;
using toolstest::contains;
using toolstest::Outcome;
using toolstest::runMivo4;
using toolstest::ScratchDir;

namespace {

const std::vector<std::string> kStandard = {
    "srcdocid: NONE", "dstdocid: NONE",   "txtfilid: NONE",         "figid: NONE",
    "srcgph: NONE",   "doccls: UNCLASS",  "rtype: 1",               "rorient: 000,270",
    "rpelcnt: 000016,000004",             "rdensty: 0200",          "notes: NONE"};

// Sixteen records of 128 bytes, blank-padded.
std::vector<uint8_t> header(const std::vector<std::string> &records) {
    std::vector<uint8_t> h(2048, ' ');
    for (size_t i = 0; i < records.size() && i < 16; ++i)
        std::copy(records[i].begin(), records[i].end(), h.begin() + static_cast<long>(i * 128));
    return h;
}

// A 16 x 4 white picture coded by hand: each row a single V0 code (1) against
// the white row above, then the end of facsimile block (two EOL codes).
//   1111 0000 | 0000 0001 | 0000 0000 | 0001 0000
const std::vector<uint8_t> kWhite16x4 = {0xF0, 0x01, 0x00, 0x10};

std::vector<uint8_t> file(const std::vector<std::string> &records, const std::vector<uint8_t> &coded = kWhite16x4) {
    std::vector<uint8_t> f = header(records);
    f.insert(f.end(), coded.begin(), coded.end());
    return f;
}

std::vector<std::string> with(std::vector<std::string> records, size_t index, const std::string &record) {
    records[index] = record;
    return records;
}

std::vector<std::string> warningsOf(const std::vector<std::string> &records) {
    return headerWarnings(parseGp4Header(header(records)));
}

bool anyContains(const std::vector<std::string> &all, const std::string &part) {
    for (const std::string &s : all)
        if (contains(s, part)) return true;
    return false;
}

std::string joined(const std::vector<std::string> &all) {
    std::string s;
    for (const std::string &w : all) s += w + "\n";
    return s;
}

}  // namespace

TEST(InfoHeader, TheUsualHeaderHasNothingToFlag) {
    EXPECT_TRUE(warningsOf(kStandard).empty()) << joined(warningsOf(kStandard));
    for (const char *density : {"0200", "0240", "0300", "0400", "0600", "1200"})
        EXPECT_TRUE(warningsOf(with(kStandard, 9, std::string("rdensty: ") + density)).empty()) << density;
}

TEST(InfoHeader, ANearMissOfARecordNameIsFlaggedWithTheNameMeant) {
    // "docls:" is how one well-known converter spells the class record.
    auto w = warningsOf(with(kStandard, 5, "docls: UNCLASS"));
    ASSERT_EQ(w.size(), 1u) << joined(w);
    EXPECT_TRUE(contains(w[0], "\"docls:\" at byte 640 is not a record name of the format")) << w[0];
    EXPECT_TRUE(contains(w[0], "\"doccls:\" was probably meant")) << w[0];
    for (auto [record, meant] : std::vector<std::pair<std::string, std::string>>{
             {"srcdocld: NONE", "srcdocid"}, {"txtfileid: NONE", "txtfilid"}, {"Notes: NONE", "notes"},
             {"fgid: NONE", "figid"}, {"dsttdocid: NONE", "dstdocid"}}) {
        auto records = kStandard;
        for (size_t i = 0; i < records.size(); ++i)
            if (records[i].rfind(meant + ":", 0) == 0) records[i] = record;
        auto v = warningsOf(records);
        EXPECT_TRUE(anyContains(v, "\"" + meant + ":\" was probably meant")) << record << "\n" << joined(v);
    }
}

TEST(InfoHeader, ANameFarFromEveryRecordOfTheFormatIsFlaggedAlone) {
    auto w = warningsOf(with(kStandard, 10, "colour: red"));
    ASSERT_EQ(w.size(), 1u) << joined(w);
    EXPECT_TRUE(contains(w[0], "\"colour:\" at byte 1280 is not a record name of the format")) << w[0];
    EXPECT_FALSE(contains(w[0], "probably meant")) << w[0];
    w = warningsOf(with(kStandard, 10, "just some words"));
    EXPECT_TRUE(anyContains(w, "has no name")) << joined(w);
}

TEST(InfoHeader, RecordsOutOfTheUsualOrderAreFlagged) {
    auto records = kStandard;
    std::swap(records[7], records[8]);  // rpelcnt before rorient
    auto w = warningsOf(records);
    ASSERT_EQ(w.size(), 1u) << joined(w);
    EXPECT_TRUE(contains(w[0], "\"rorient:\" at byte 1024 comes after \"rpelcnt:\" at byte 896")) << w[0];
    EXPECT_TRUE(contains(w[0], "srcdocid, dstdocid, txtfilid, figid, srcgph, doccls, rtype, rorient, rpelcnt, rdensty, notes"));
    // Leaving records out or blank lines between them is no disorder.
    EXPECT_TRUE(warningsOf({"rtype: 1", "", "rorient: 000,270", "rpelcnt: 000016,000004", "rdensty: 0300"}).empty());
}

TEST(InfoHeader, ValuesOutsideTheFormatAreFlagged) {
    struct Case {
        size_t index;
        std::string record, words;
    } cases[] = {
        {6, "rtype: 2", "files of this format are of type 1"},
        {7, "rorient: 045,270", "outside the format"},
        {7, "rorient: 000,180", "outside the format"},
        {7, "rorient: sideways", "not two angles"},
        {9, "rdensty: 0150", "150 dpi is not one of the format's densities (200, 240, 300, 400, 600, 1200)"},
        {9, "rdensty: many", "not a number"},
        {8, "rpelcnt: 000000,000004", "a pixel count of 0"},
        {8, "rpelcnt: 000016,000000", "a pixel count of 0"},
    };
    for (const Case &k : cases) {
        auto w = warningsOf(with(kStandard, k.index, k.record));
        ASSERT_EQ(w.size(), 1u) << k.record << "\n" << joined(w);
        EXPECT_TRUE(contains(w[0], k.words)) << w[0];
        EXPECT_TRUE(contains(w[0], k.record)) << w[0];
    }
}

TEST(InfoHeader, TheOrientationIsExplainedInWords) {
    auto usual = describeOrientation(" 000,270");
    ASSERT_TRUE(usual);
    EXPECT_TRUE(contains(*usual, "000,270")) << *usual;
    EXPECT_TRUE(contains(*usual, "each row runs left to right")) << *usual;
    EXPECT_TRUE(contains(*usual, "rows follow top to bottom")) << *usual;
    EXPECT_TRUE(contains(*usual, "the usual")) << *usual;
    // Angles count anticlockwise, the line progression from the pel path.
    auto turned = describeOrientation("090,270");
    ASSERT_TRUE(turned);
    EXPECT_TRUE(contains(*turned, "each row runs bottom to top")) << *turned;
    EXPECT_TRUE(contains(*turned, "rows follow left to right")) << *turned;
    EXPECT_FALSE(contains(*turned, "the usual")) << *turned;
    auto mirrored = describeOrientation("000,090");
    ASSERT_TRUE(mirrored);
    EXPECT_TRUE(contains(*mirrored, "rows follow bottom to top")) << *mirrored;
    auto odd = describeOrientation("045,270");
    ASSERT_TRUE(odd);
    EXPECT_TRUE(contains(*odd, "not an orientation of the format")) << *odd;
    EXPECT_FALSE(describeOrientation("up"));
    EXPECT_FALSE(describeOrientation("000"));
}

// ---------------------------------------------------------------- the command

TEST(InfoCommand, AHandMadeFileIsReportedWithItsOrientationAndChecksOut) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.cal", "", file(kStandard));
    Outcome r = runMivo4({"info", dir / "a.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "file: " + (dir / "a.cal"))) << r.out;
    EXPECT_TRUE(contains(r.out, "orientation: 000,270")) << r.out;
    EXPECT_TRUE(contains(r.out, "check: ok, decodes to exactly 16 x 4 pixels (0.00% black)")) << r.out;
    EXPECT_FALSE(contains(r.out, "warning:")) << r.out;
    EXPECT_FALSE(contains(r.out, "==>")) << "no heading for one file";
}

TEST(InfoCommand, WarningsLeaveAUsableFileGood) {
    ScratchDir dir;
    auto records = with(with(kStandard, 5, "docls: UNCLASS"), 9, "rdensty: 0150");
    std::swap(records[0], records[1]);
    toolstest::writeBytes(dir / "w.cal", "", file(records));
    Outcome r = runMivo4({"info", dir / "w.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "warning: \"docls:\" at byte 640")) << r.out;
    EXPECT_TRUE(contains(r.out, "warning: \"rdensty: 0150\"")) << r.out;
    EXPECT_TRUE(contains(r.out, "warning: \"srcdocid:\" at byte 128 comes after \"dstdocid:\"")) << r.out;
    EXPECT_TRUE(contains(r.out, "check: ok")) << r.out;
}

TEST(InfoCommand, AFileWithoutPixelsIsFlaggedAndFails) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "z.cal", "", file(with(kStandard, 8, "rpelcnt: 000000,000004")));
    Outcome r = runMivo4({"info", dir / "z.cal"}, dir);
    EXPECT_EQ(r.code, 1) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "a pixel count of 0")) << r.out;
    EXPECT_TRUE(contains(r.out, "check: FAILED")) << r.out;
}

TEST(InfoCommand, AMisspeltSizeRecordMakesTheFileUnusableAndSaysWhy) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "m.cal", "", file(with(kStandard, 8, "rpelcount: 000016,000004")));
    Outcome r = runMivo4({"info", dir / "m.cal"}, dir);
    EXPECT_EQ(r.code, 1) << r.out << r.err;
    EXPECT_TRUE(contains(r.err, "not a GP4 file")) << r.err;
    EXPECT_TRUE(contains(r.out, "\"rpelcnt:\" was probably meant")) << r.out;
}

TEST(InfoCommand, SeveralFilesAreEachReportedAndAnyFailureFailsTheCall) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.cal", "", file(kStandard));
    toolstest::writeBytes(dir / "b.cal", "", file(with(kStandard, 5, "docls: UNCLASS")));
    // A stream that ends after two of its four rows.
    toolstest::writeBytes(dir / "cut.cal", "", file(kStandard, {0xC0}));
    Outcome r = runMivo4({"info", dir / "a.cal", dir / "missing.cal", dir / "cut.cal", dir / "b.cal"}, dir);
    EXPECT_EQ(r.code, 1) << r.out << r.err;
    for (const char *name : {"a.cal", "missing.cal", "cut.cal", "b.cal"})
        EXPECT_TRUE(contains(r.out, "==> " + (dir / name) + " <==")) << r.out;
    EXPECT_TRUE(contains(r.err, "missing.cal: cannot open")) << r.err;
    // The files after the failures are still reported in full.
    const size_t b = r.out.find("==> " + (dir / "b.cal"));
    ASSERT_NE(b, std::string::npos);
    EXPECT_TRUE(contains(r.out.substr(b), "warning: \"docls:\"")) << r.out;
    EXPECT_TRUE(contains(r.out.substr(b), "check: ok")) << r.out;
    const size_t cut = r.out.find("==> " + (dir / "cut.cal"));
    EXPECT_TRUE(contains(r.out.substr(cut, b - cut), "check: FAILED")) << r.out;
    // All good: 0.
    r = runMivo4({"info", dir / "a.cal", dir / "b.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.out << r.err;
}
