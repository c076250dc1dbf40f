// The driver path as a host drives it: a picture sent to the raster driver
// as an image of cell arrays gives the bytes of the bitmap export whenever
// the two describe the same picture; recordings replay to the same bytes;
// hand-made recordings reach the driver's other ways of placing rows.
#include <random>

#include "driver_host.h"
#include "elements.h"
#include "exporter.h"
#include "gdp_export.h"
#include "gp4file.h"
#include "loaded_module.h"
#include "toolfixture.h"
#include "trace.h"

using namespace mivo4::host;
using toolstest::loadedModule;
using toolstest::ScratchDir;

namespace {

// A random picture in the module's memory: rows bottom first, padded to 4.
Image randomImage(ModuleMemory &memory, int depth, uint32_t w, uint32_t h, int dpi, uint32_t seed) {
    std::mt19937 rng(seed);
    Image image;
    image.depth = depth;
    image.width = w;
    image.height = h;
    image.dpi = dpi;
    image.pixels = memory.allocate(image.size());
    EXPECT_NE(image.pixels, nullptr);
    // Smooth areas and noise, so that every stage (reduction, dithering,
    // scaling) has work.
    for (uint32_t y = 0; y < h; ++y) {
        uint8_t *row = image.row(y);
        for (size_t i = 0; i < Image::rowBytes(w, depth); ++i)
            row[i] = rng() % 3 == 0 ? static_cast<uint8_t>(rng()) : static_cast<uint8_t>((i * 7 + y * 3) & 0xFF);
        // Bits past the width stay clear, as a reader leaves them.
        const size_t used = (static_cast<size_t>(w) * depth + 7) / 8;
        std::fill(row + used, row + image.stride(), 0);
        if (depth < 8 && (w * depth) % 8 != 0) row[used - 1] &= static_cast<uint8_t>(0xFF << (8 - (w * depth) % 8));
    }
    if (depth < 24) {
        for (int i = 0; i < (1 << depth); ++i)
            image.palette.push_back(Rgb{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng())});
    }
    return image;
}

std::vector<uint8_t> exportTo(const Image &image, ModuleMemory &memory, const ExportSettings &s,
                              const std::string &path) {
    AtomicOutput out;
    EXPECT_TRUE(out.open(path)) << out.error();
    try {
        exportImage(loadedModule(), memory, image, s, out);
    } catch (const ExportError &e) {
        ADD_FAILURE() << (s.via == Via::Gdp ? "driver path: " : "bitmap path: ") << e.what();
        return {};
    }
    EXPECT_TRUE(out.commit()) << out.error();
    return toolstest::readBytes(path);
}

std::vector<uint8_t> replayTo(const std::vector<TraceElement> &trace, const ExportSettings &s, const std::string &path) {
    AtomicOutput out;
    EXPECT_TRUE(out.open(path)) << out.error();
    runExport(loadedModule(), s, out, [&](ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &x) {
        replayThroughDriver(loadedModule(), trace, setup, name, x);
        return 0;
    }, false);
    EXPECT_TRUE(out.commit()) << out.error();
    return toolstest::readBytes(path);
}

// The coded picture of a GP4 file, decoded by libtiff to the size its header states.
std::optional<Bilevel> decodeFile(const std::vector<uint8_t> &file) {
    Gp4Header h = parseGp4Header(file);
    if (file.size() < 2048 || !h.width || !h.height) return std::nullopt;
    std::vector<uint8_t> coded(file.begin() + 2048, file.end());
    return decodeG4(coded, *h.width, *h.height).picture;
}

// A session written by hand: elements as a host would send them.
struct Session {
    std::vector<TraceElement> elements;
    void add(const Element &e) { elements.push_back(TraceElement{e, {}, false}); }
    void addPointerCells(Element e, std::vector<uint8_t> cells) {
        elements.push_back(TraceElement{std::move(e), std::move(cells), true});
    }
};

}  // namespace

TEST(DriverPath, GdpGivesTheBitmapExportsBytesForTheSamePicture) {
    // Same setup, one image bracket, a metric scale that makes a driver unit
    // one pixel at the picture's resolution, rows bottom first: the end of the
    // image renders the very bitmap the bitmap export renders.
    ScratchDir dir;
    std::mt19937 rng(20261123);
    const OutputMode modes[] = {OutputMode::File, OutputMode::Memory, OutputMode::Callback};
    int compared = 0;
    for (int depth : {1, 4, 8, 24}) {
        for (int round = 0; round < 6; ++round) {
            const uint32_t w = 1 + rng() % 150, h = 1 + rng() % 120;
            const int dpi = std::array<int, 5>{0, 72, 150, 200, 300}[rng() % 5];
            ModuleMemory memory(loadedModule().api());
            Image image = randomImage(memory, depth, w, h, dpi, rng());
            ExportSettings s;
            // User size keeps the picture's inches; picture size takes its
            // pixels as points, which leaves a picture with a resolution too
            // small to write.
            s.sizeMode = round % 3 == 2 && dpi == 0 ? 3 : 2;
            // Without a resolution the host would give the picture the
            // output's; said to have none, it is taken as points.
            if (dpi == 0) s.sourceDpi = 0;
            s.dpi = std::array<int, 3>{200, 300, 150}[rng() % 3];
            s.mode = modes[rng() % 3];
            SCOPED_TRACE(testing::Message() << "depth " << depth << " " << w << " x " << h << " at " << dpi
                                            << " dpi, output " << *s.dpi << " dpi, size mode " << *s.sizeMode);
            const auto bitmap = exportTo(image, memory, s, dir / "bitmap.cal");
            s.via = Via::Gdp;
            s.rowsPerElement = 1 + static_cast<int>(rng() % 70);
            s.mode = modes[rng() % 3];
            const auto gdp = exportTo(image, memory, s, dir / "gdp.cal");
            ASSERT_GT(bitmap.size(), 2048u);
            EXPECT_EQ(gdp, bitmap);
            auto decoded = decodeFile(gdp);
            EXPECT_TRUE(decoded.has_value()) << "decodes to the size its header states";
            ++compared;
        }
    }
    EXPECT_EQ(compared, 24);
}

TEST(DriverPath, GdpOutputIsTheSameInAllThreeOutputWays) {
    ScratchDir dir;
    ModuleMemory memory(loadedModule().api());
    Image image = randomImage(memory, 24, 211, 97, 150, 7);
    ExportSettings s;
    s.via = Via::Gdp;
    s.sizeMode = 2;
    s.dpi = 300;
    s.mode = OutputMode::File;
    const auto file = exportTo(image, memory, s, dir / "f.cal");
    s.mode = OutputMode::Memory;
    const auto inMemory = exportTo(image, memory, s, dir / "m.cal");
    s.mode = OutputMode::Callback;
    const auto callback = exportTo(image, memory, s, dir / "c.cal");
    ASSERT_GT(file.size(), 2048u);
    EXPECT_EQ(inMemory, file);
    EXPECT_EQ(callback, file);
}

TEST(DriverPath, ARecordedSessionReplaysToTheSameBytes) {
    ScratchDir dir;
    for (int depth : {1, 8, 24}) {
        ModuleMemory memory(loadedModule().api());
        Image image = randomImage(memory, depth, 90 + depth, 77, 100, depth);
        ExportSettings s;
        s.via = Via::Gdp;
        s.sizeMode = 2;
        s.dpi = 200;
        s.rowsPerElement = 10;
        s.tracePath = dir / "t.ddt";
        const auto live = exportTo(image, memory, s, dir / "live.cal");
        auto trace = readTrace(dir / "t.ddt");
        // open, begin, window, scale, body, colour table below 24 bits, begin
        // image, 8 cell arrays, end image, end picture, close
        EXPECT_EQ(trace.size(), depth < 24 ? 18u : 17u);
        ExportSettings r;
        r.sizeMode = 2;
        r.dpi = 200;
        const auto replayed = replayTo(trace, r, dir / "replayed.cal");
        EXPECT_EQ(replayed, live) << "depth " << depth;
    }
}

TEST(DriverPath, TraceFilesStartWithTheMagicAndHoldWholeRecords) {
    const uint8_t notTrace[] = {'P', '4', '\n', '1', ' ', '1', '\n', 0};
    EXPECT_THROW(parseTrace(notTrace, sizeof notTrace), TraceError);
    std::vector<uint8_t> t(kTraceMagic, kTraceMagic + 8);
    EXPECT_TRUE(parseTrace(t.data(), t.size()).empty()) << "a trace of no elements";
    t.insert(t.end(), {4, 0, 0, 0, 1, 0, 0, 0});
    EXPECT_EQ(parseTrace(t.data(), t.size()).size(), 1u);
    t.insert(t.end(), {9, 0, 0, 0, 1, 2, 3});
    EXPECT_THROW(parseTrace(t.data(), t.size()), TraceError) << "a record longer than the rest of the file";
    t.resize(t.size() - 6);
    EXPECT_THROW(parseTrace(t.data(), t.size()), TraceError) << "a byte count cut short";

    // A cell array of 3 rows of 5 one-bit cells elsewhere declares 3 rows of
    // 4 bytes: a cells record of 11 bytes is refused, one of 12 taken.
    auto withCells = [](size_t n) {
        std::vector<uint8_t> trace(kTraceMagic, kTraceMagic + 8);
        Element e = cellArray(0, 0, 4, 2, 5, 3, -1, nullptr, 8);
        const uint32_t size = static_cast<uint32_t>(e.size());
        trace.insert(trace.end(), {uint8_t(size), uint8_t(size >> 8), 0, 0});
        trace.insert(trace.end(), e.begin(), e.end());
        trace.insert(trace.end(), {uint8_t(n), 0, 0, 0});
        trace.resize(trace.size() + n, 0xAA);
        return trace;
    };
    auto shortCells = withCells(11), enough = withCells(12);
    EXPECT_THROW(parseTrace(shortCells.data(), shortCells.size()), TraceError);
    auto parsed = parseTrace(enough.data(), enough.size());
    ASSERT_EQ(parsed.size(), 1u);
    EXPECT_TRUE(parsed[0].pointerCells);
    EXPECT_EQ(parsed[0].cells.size(), 12u);
}

TEST(DriverPath, PointerCellsReplayLikeCellsInTheElement) {
    ScratchDir dir;
    const int32_t w = 40, h = 30;
    std::vector<uint8_t> rows(static_cast<size_t>(Image::rowBytes(w, 8)) * h);
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<uint8_t>(i * 13);
    std::vector<uint8_t> grey;
    for (int i = 0; i < 256; ++i) grey.insert(grey.end(), {uint8_t(i), uint8_t(i), uint8_t(i)});
    auto session = [&](bool pointers) {
        Session s;
        s.add(makeElement(kOpenDevice));
        s.add(makeElement(kBeginPicture));
        s.add(deviceWindow(0, 0, w - 1, h - 1));
        s.add(makeElement(kBeginPictureBody));
        s.add(colourTable(0, grey));
        s.add(beginImage(w, h, 8));
        if (pointers) {
            Element e = cellArray(0, 0, w - 1, h - 1, w, h, -8, nullptr, 8);
            s.addPointerCells(e, rows);
        } else {
            s.add(cellArray(0, 0, w - 1, h - 1, w, h, 8, rows.data(), rows.size()));
        }
        s.add(endImage());
        s.add(makeElement(kEndPicture));
        s.add(makeElement(kCloseDevice));
        return s.elements;
    };
    ExportSettings r;
    r.sizeMode = 2;
    r.dpi = 300;
    const auto inElement = replayTo(session(false), r, dir / "a.cal");
    const auto elsewhere = replayTo(session(true), r, dir / "b.cal");
    ASSERT_GT(inElement.size(), 2048u);
    EXPECT_EQ(elsewhere, inElement);
    // Through a trace file too: the address is recorded as zero and the
    // cells follow.
    TraceWriter t;
    t.open(dir / "p.ddt");
    for (const TraceElement &e : session(true)) {
        t.record(e.bytes.data(), e.bytes.size());
        if (e.pointerCells) t.record(e.cells.data(), e.cells.size());
    }
    t.close();
    EXPECT_EQ(replayTo(readTrace(dir / "p.ddt"), r, dir / "c.cal"), inElement);
}

namespace {

std::vector<uint8_t> greyTable() {
    std::vector<uint8_t> grey;
    for (int i = 0; i < 256; ++i) grey.insert(grey.end(), {uint8_t(i), uint8_t(i), uint8_t(i)});
    return grey;
}

// An 8-bit grey image of one bracket: the window from (wx1, wy1) to (wx2,
// wy2), cells of cx x cy sent in one cell array from P (0, py) to Q (cx - 1, qy).
std::vector<TraceElement> oneImage(double wx1, double wy1, double wx2, double wy2, int32_t nx, int32_t ny,
                                   int32_t cx, int32_t cy, double py, double qy, const std::vector<uint8_t> &cells,
                                   int32_t precision = 8) {
    Session s;
    s.add(makeElement(kOpenDevice));
    s.add(makeElement(kBeginPicture));
    s.add(deviceWindow(wx1, wy1, wx2, wy2));
    s.add(makeElement(kBeginPictureBody));
    s.add(colourTable(0, greyTable()));
    s.add(beginImage(nx, ny, precision));
    s.add(cellArray(0, py, cx - 1, qy, cx, cy, precision, cells.data(), cells.size()));
    s.add(endImage());
    s.add(makeElement(kEndPicture));
    s.add(makeElement(kCloseDevice));
    return s.elements;
}

// The bitmap export of an 8-bit grey picture whose rows, bottom first, are
// `rows` (each Image::rowBytes(w, 8) bytes).
std::vector<uint8_t> bitmapOf(uint32_t w, uint32_t h, const std::vector<uint8_t> &rows, const ExportSettings &s,
                              const std::string &path) {
    ModuleMemory memory(loadedModule().api());
    Image image;
    image.depth = 8;
    image.width = w;
    image.height = h;
    image.pixels = memory.allocate(image.size());
    std::copy(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(image.size()), image.pixels);
    for (int i = 0; i < 256; ++i) image.palette.push_back(Rgb{uint8_t(i), uint8_t(i), uint8_t(i)});
    return exportTo(image, memory, s, path);
}

// The replayed sessions send no metric scale: the bitmap they are compared
// with has no resolution either.
ExportSettings userSize300() {
    ExportSettings s;
    s.sizeMode = 2;
    s.dpi = 300;
    s.sourceDpi = 0;
    return s;
}

std::vector<uint8_t> ramp(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = static_cast<uint8_t>(rng());
    return v;
}

}  // namespace

TEST(DriverPath, RowsAgainstTheWindowsDirectionArePlacedUpwardsFromTwoBelowTheTop) {
    // The window's y runs downwards while the cells run upwards: the first
    // row goes one row above the start of Height - 1, so the top row of the
    // image stays clear and the last row sent finds no place.
    ScratchDir dir;
    const uint32_t w = 36, h = 25;
    const size_t stride = Image::rowBytes(w, 8);
    const auto cells = ramp(stride * h, 3);
    const auto replayed = replayTo(oneImage(0, h - 1, w - 1, 0, w, h, w, h, 0, h - 1, cells), userSize300(),
                                   dir / "r.cal");
    std::vector<uint8_t> rows(stride * h, 0);  // bottom first
    for (uint32_t k = 0; k + 1 < h; ++k)
        std::copy_n(cells.begin() + static_cast<std::ptrdiff_t>(k * stride), stride,
                    rows.begin() + static_cast<std::ptrdiff_t>((h - 2 - k) * stride));
    ASSERT_GT(replayed.size(), 2048u);
    EXPECT_EQ(replayed, bitmapOf(w, h, rows, userSize300(), dir / "b.cal"));
}

TEST(DriverPath, AWindowNarrowerThanTheCellsNarrowsTheImageAndTakesRowsAtItsOwnLength) {
    // An 8-bit cell array narrower than its cells does not skip the rest of
    // each source row: rows are read one after another at the window's row
    // length.
    ScratchDir dir;
    const uint32_t cx = 50, h = 20, w = 21;
    const auto cells = ramp(Image::rowBytes(cx, 8) * h, 5);
    const auto replayed = replayTo(oneImage(0, 0, w - 1, h - 1, cx, h, cx, h, 0, h - 1, cells), userSize300(),
                                   dir / "r.cal");
    const size_t stride = Image::rowBytes(w, 8);
    std::vector<uint8_t> rows(cells.begin(), cells.begin() + static_cast<std::ptrdiff_t>(stride * h));
    ASSERT_GT(replayed.size(), 2048u);
    EXPECT_EQ(replayed, bitmapOf(w, h, rows, userSize300(), dir / "b.cal"));
    // A window wider than nx is capped at nx.
    const auto wide = replayTo(oneImage(0, 0, 499, h - 1, cx, h, cx, h, 0, h - 1, cells), userSize300(), dir / "w.cal");
    EXPECT_EQ(wide, bitmapOf(cx, h, cells, userSize300(), dir / "c.cal"));
}

TEST(DriverPath, OneBitPrecisionMinus32768IsOneBit) {
    ScratchDir dir;
    const uint32_t w = 45, h = 17;
    const auto cells = ramp(Image::rowBytes(w, 1) * h, 9);
    auto session = [&](int32_t precision) {
        Session s;
        s.add(makeElement(kOpenDevice));
        s.add(makeElement(kBeginPicture));
        s.add(deviceWindow(0, 0, w - 1, h - 1));
        s.add(viewportMode(1, 25.4 / 300));  // a unit is a pixel at 300 dpi
        s.add(makeElement(kBeginPictureBody));
        s.add(colourTable(0, {255, 255, 255, 0, 0, 0}));
        s.add(beginImage(w, h, precision));
        // A negative precision means the cells are elsewhere.
        if (precision < 0) s.addPointerCells(cellArray(0, 0, w - 1, h - 1, w, h, precision, nullptr, 8), cells);
        else s.add(cellArray(0, 0, w - 1, h - 1, w, h, precision, cells.data(), cells.size()));
        s.add(endImage());
        s.add(makeElement(kCloseDevice));
        return s.elements;
    };
    const auto one = replayTo(session(1), userSize300(), dir / "a.cal");
    ASSERT_GT(one.size(), 2048u);
    EXPECT_EQ(replayTo(session(-32768), userSize300(), dir / "b.cal"), one);
    auto decoded = decodeFile(one);
    ASSERT_TRUE(decoded);
    // White first in the table: a set bit is black, rows bottom first.
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            ASSERT_EQ(decoded->black(x, y), ((cells[(h - 1 - y) * Image::rowBytes(w, 1) + x / 8] >> (7 - x % 8)) & 1) != 0)
                << x << "," << y;
}

TEST(DriverPath, ACellArrayOutsideAnImageWithNoRowsYetWritesAPictureOfZeros) {
    // After the beginning of a picture the driver's image has no rows, so a
    // cell array outside an image copies none: its bitmap stays zero, which
    // with the table cleared at the beginning of the picture is black.
    ScratchDir dir;
    Session s;
    s.add(makeElement(kOpenDevice));
    s.add(makeElement(kBeginPicture));
    s.add(deviceWindow(0, 0, 29, 19));
    s.add(makeElement(kBeginPictureBody));
    const auto cells = ramp(Image::rowBytes(30, 24) * 20, 11);
    s.add(cellArray(0, 0, 29, 19, 30, 20, 24, cells.data(), cells.size()));
    s.add(makeElement(kCloseDevice));
    const auto file = replayTo(s.elements, userSize300(), dir / "z.cal");
    auto decoded = decodeFile(file);
    ASSERT_TRUE(decoded) << "decodes to the size its header states";
    EXPECT_GT(decoded->width, 0u);
    for (uint32_t y = 0; y < decoded->height; ++y)
        for (uint32_t x = 0; x < decoded->width; ++x) ASSERT_TRUE(decoded->black(x, y)) << x << "," << y;
}

TEST(DriverPath, ASecondPictureOnOneDeviceRewritesTheDataFromByte2048) {
    // Each picture writes its header where the stream stands and its data
    // from byte 2048: the second picture's header lands after the first
    // picture's data, then its data overwrites from 2048.
    ScratchDir dir;
    const uint32_t w1 = 60, h1 = 40, w2 = 33, h2 = 18;
    const auto c1 = ramp(Image::rowBytes(w1, 8) * h1, 21), c2 = ramp(Image::rowBytes(w2, 8) * h2, 22);
    auto picture = [](uint32_t w, uint32_t h, const std::vector<uint8_t> &c) {
        auto e = oneImage(0, 0, w - 1, h - 1, w, h, w, h, 0, h - 1, c);
        e.erase(e.begin());  // no open
        e.pop_back();        // no close
        return e;
    };
    auto alone = [&](const std::vector<TraceElement> &p, const std::string &name) {
        std::vector<TraceElement> t{TraceElement{makeElement(kOpenDevice), {}, false}};
        t.insert(t.end(), p.begin(), p.end());
        t.push_back(TraceElement{makeElement(kCloseDevice), {}, false});
        return replayTo(t, userSize300(), dir / name);
    };
    const auto first = alone(picture(w1, h1, c1), "1.cal"), second = alone(picture(w2, h2, c2), "2.cal");
    std::vector<TraceElement> both{TraceElement{makeElement(kOpenDevice), {}, false}};
    for (auto &p : {picture(w1, h1, c1), picture(w2, h2, c2)}) both.insert(both.end(), p.begin(), p.end());
    both.push_back(TraceElement{makeElement(kCloseDevice), {}, false});
    const auto together = replayTo(both, userSize300(), dir / "both.cal");

    std::vector<uint8_t> model = first;
    auto overwrite = [&](size_t at, auto from, auto to) {
        const size_t n = static_cast<size_t>(to - from);
        if (model.size() < at + n) model.resize(at + n, 0);
        std::copy(from, to, model.begin() + static_cast<std::ptrdiff_t>(at));
    };
    overwrite(first.size(), second.begin(), second.begin() + 2048);
    overwrite(2048, second.begin() + 2048, second.end());
    ASSERT_GT(first.size(), second.size());
    EXPECT_EQ(together, model);
}

TEST(DriverPath, TwentyFourBitCellArraysOutsideAnImageAreShrunkAndStretchedByTheirHeights) {
    // A cell array outside an image places rows only where the picture's
    // image has them, so an image of the same height comes first (and is
    // written first). The device window in units of the metric scale gives
    // the size in inches; the output resolution decides whether the cells
    // are shrunk or stretched. Plain white and plain black cells stay so.
    ScratchDir dir;
    const int32_t cx = 40, cy = 30;
    for (uint8_t value : {uint8_t{255}, uint8_t{0}}) {
        const std::vector<uint8_t> cells(Image::rowBytes(cx, 24) * cy, value);
        for (double unitsPerInch : {100.0, 400.0}) {
            Session s;
            s.add(makeElement(kOpenDevice));
            s.add(makeElement(kBeginPicture));
            s.add(deviceWindow(0, 0, cx - 1, cy - 1));
            s.add(viewportMode(1, 25.4 / unitsPerInch));
            s.add(makeElement(kBeginPictureBody));
            s.add(beginImage(1, cy, 24));
            s.add(endImage());
            s.add(cellArray(0, 0, cx - 1, cy - 1, cx, cy, 24, cells.data(), cells.size()));
            s.add(makeElement(kCloseDevice));
            ExportSettings r;
            r.sizeMode = 2;
            r.dpi = 200;
            const auto file = replayTo(s.elements, r, dir / "s.cal");
            // 0.4 x 0.3 inches at 200 dpi is stretched; 0.1 x 0.075 shrunk.
            const auto w = static_cast<uint32_t>(cx * 200 / unitsPerInch), h = static_cast<uint32_t>(cy * 200 / unitsPerInch);
            ASSERT_GT(file.size(), 2048u);
            DecodeResult d = decodeG4(std::vector<uint8_t>(file.begin() + 2048, file.end()), w, h);
            ASSERT_TRUE(d.picture) << d.problem;
            for (uint32_t y = 0; y < h; ++y)
                for (uint32_t x = 0; x < w; ++x)
                    ASSERT_EQ(d.picture->black(x, y), value == 0) << x << "," << y << " per inch " << unitsPerInch;
        }
    }
}

TEST(DriverPath, APointerCellArrayCutBeforeItsAddressPointsAtNothing) {
    // The second cell array ends before its address field. The host still
    // writes the address there (none), so the driver cannot take the first
    // cell array's address left over in the element buffer.
    ScratchDir dir;
    const int32_t w = 8, h = 2;
    const std::vector<uint8_t> white(Image::rowBytes(w, 8), 255);
    Session s;
    s.add(makeElement(kOpenDevice));
    s.add(makeElement(kBeginPicture));
    s.add(deviceWindow(0, 0, w - 1, h - 1));
    s.add(viewportMode(1, 25.4 / 300));
    s.add(makeElement(kBeginPictureBody));
    s.add(colourTable(0, greyTable()));
    s.add(beginImage(w, h, 8));
    s.addPointerCells(cellArray(0, 0, w - 1, 0, w, 1, -8, nullptr, 8), white);
    Element cut = cellArray(0, 1, w - 1, 1, w, 1, -8, nullptr, 0);
    cut.resize(DVR_CA_CELLS);  // no room for the address
    s.addPointerCells(cut, {});   // and no cells recorded after it
    s.add(endImage());
    s.add(makeElement(kCloseDevice));
    const auto file = replayTo(s.elements, userSize300(), dir / "p.cal");
    auto decoded = decodeFile(file);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->height, 2u);
    for (uint32_t x = 0; x < static_cast<uint32_t>(w); ++x) {
        EXPECT_FALSE(decoded->black(x, 1)) << "the bottom row came from the first cell array";
        EXPECT_TRUE(decoded->black(x, 0)) << "the top row received nothing";
    }
}
