// Picture output in bands: a test drawing procedure renders known bands, the
// band loop hands them to the sink, and libtiff decodes the file back.
#include <gtest/gtest.h>
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>
#include <mivo4/stream.h>

#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "export/dialog/cellsink.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using oracle::Bilevel;

// A drawing procedure over a one-bit picture (a set bit black, rows top first).
// It reports the picture at 256 dots per inch, renders bands of a chosen
// height in the sink's bottom-up row numbers, and records what it was asked.
struct TestPicture {
    Bilevel picture;
    uint32_t bandHeight = 0;         // 0: the whole picture at once
    bool answerNothing = false;      // init answers 0 rows
    bool nullBand = false;           // render answers no band
    bool growTable = false;          // init grows and rewrites the colour table
    bool whiteFirst = false;         // table: white first (clear bits white)
    uint32_t totalHeight = 0;        // the height the offscreen was made for
    std::vector<std::pair<uint32_t, uint32_t>> renders;
    int terms = 0;
    ZHANDLE lastBand = 0;

    bool blackAt(uint32_t x, uint32_t rowFromTop) const {
        return rowFromTop < picture.height && x < picture.width && picture.black(x, rowFromTop);
    }
};

uint32_t testProcedure(int32_t message, intptr_t p1, intptr_t p2, intptr_t p3) {
    if (message == DRAW_QUERY) {
        auto *t = reinterpret_cast<TestPicture *>(p1);
        auto *q = reinterpret_cast<QUERYINFO *>(p2);
        q->w = t->picture.width / 256.0;
        q->h = t->picture.height / 256.0;
        q->dpi = 256;
        q->colorformat = 1;
        return 0;
    }
    auto *o = reinterpret_cast<OFFSCREEN *>(p1);
    auto *t = static_cast<TestPicture *>(o->drawdata);
    switch (message) {
    case DRAW_INIT: {
        auto *init = reinterpret_cast<DRAWINIT *>(p2);
        t->totalHeight = init->TotalHeight;
        if (t->growTable) {
            // Grows (and so moves) the table; the one the band loop made is gone.
            o->roColorTable = static_cast<VCD *>(zepPtrGlobalReAlloc(o->roColorTable, 256 * 3, GHND));
            o->numcolors = 256;
        }
        VCD black{0, 0, 0}, white{255, 255, 255};
        if (o->roColorTable != nullptr) {  // a table that could not be had is passed on as none
            o->roColorTable[0] = t->whiteFirst ? white : black;
            o->roColorTable[1] = t->whiteFirst ? black : white;
        }
        if (t->answerNothing) return 0;
        return t->bandHeight != 0 ? t->bandHeight : init->TotalHeight;
    }
    case DRAW_RENDER: {
        auto start = static_cast<uint32_t>(p2), end = static_cast<uint32_t>(p3);
        t->renders.emplace_back(start, end);
        GlobalFree(t->lastBand);
        t->lastBand = 0;
        if (t->nullBand) return 0;
        uint32_t stride = ((o->dest_cx + 7) / 8 + 3) & ~3u;
        ZHANDLE h = GlobalAlloc(GHND, stride * (end - start));
        auto *b = static_cast<uint8_t *>(GlobalLock(h));
        if (b == nullptr) return 0;
        // Band row i is the picture's row start + i counted from the bottom.
        for (uint32_t i = 0; i < end - start; ++i) {
            uint32_t fromTop = t->totalHeight - 1 - (start + i);
            for (uint32_t x = 0; x < o->dest_cx; ++x) {
                bool black = t->blackAt(x, fromTop);
                bool bit = t->whiteFirst ? black : !black;  // bit 1 is the table's second colour
                if (bit) b[i * stride + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            }
        }
        t->lastBand = h;
        return h;
    }
    case DRAW_TERM:
        ++t->terms;
        GlobalFree(t->lastBand);
        t->lastBand = 0;
        return 0;
    default:
        return 0;
    }
}


// The progress answers of a test host.
struct Host {
    std::vector<intptr_t> progress;
    int cancelAt = -1;  // answer non-zero from this report on (0-based)
};
Host *gHost = nullptr;
int32_t hostStatus(intptr_t, int32_t op, int32_t item, intptr_t, intptr_t a5, intptr_t, intptr_t) {
    if (op != 0 || item != 0) return 1;  // the confirmation of a stop
    gHost->progress.push_back(a5);
    return gHost->cancelAt >= 0 && static_cast<int>(gHost->progress.size()) > gHost->cancelAt ? 1 : 0;
}

// Records what reaches the sink; may take bands top row first.
struct SinkLog {
    int begins = 0, ends = 0;
    std::vector<uint32_t> heights;
    int32_t orient = -1;
};
SinkLog *gSink = nullptr;

class BandOutput : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = lpRaster;
        setup_ = std::make_unique<Gp4_SetupData>();
        UseDefaultSettings(setup_.get());
        setup_->ResMode = RES_USER;  // the procedure's 256 dpi become the output's
        setup_->lpExport = &options_;
        options_.GetSet_Status = hostStatus;
        gHost = &host_;
        lpRaster = setup_.get();
        savedSink_ = mivo4::dialog::Sink();
        before_ = mivo4::mem::LiveHandles();
        path_ = oracle::scratchPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
    }
    void TearDown() override {
        mivo4::dialog::Sink() = savedSink_;
        GlobalFree(setup_->gp4_refLine);
        lpRaster = saved_;
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
        std::remove(path_.c_str());
    }

    // Runs the band loop into a fresh file with a fresh band state.
    int32_t output(TestPicture &t, uint32_t failNth = 0) {
        GlobalFree(setup_->gp4_refLine);
        setup_->gp4_refLine = 0;
        setup_->gp4_stateInfoSaved = 0;
        setup_->gp4_BitOffset = 0;
        HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
        setup_->FileHandle = out;
        mivo4::mem::FailNth(failNth);
        int32_t r = OutputPicture(out, &t, testProcedure);
        mivo4::mem::FailNth(0);
        zepClose(out);
        return r;
    }

    // A sink that only records; orient says whether bands come top row first (1).
    void recordingSink(SinkLog &log, int32_t orient) {
        gSink = &log;
        log.orient = orient;
        mivo4::dialog::CellSink &s = mivo4::dialog::Sink();
        s.begin = [](HZEPIO, uint32_t, uint32_t, int16_t, const VCD *, uint32_t *) {
            ++gSink->begins;
            return gSink->orient;
        };
        s.write = [](HZEPIO, ZHANDLE h, uint32_t, uint32_t height, int16_t, int16_t, uint32_t) {
            gSink->heights.push_back(height);
            return h != 0 ? 0 : 300;
        };
        s.end = [](HZEPIO, uint32_t) {
            ++gSink->ends;
            return 0;
        };
    }

    std::unique_ptr<Gp4_SetupData> setup_;
    Gp4_SetupData *saved_ = nullptr;
    EXPORT_OPTIONS options_{};
    Host host_;
    mivo4::dialog::CellSink savedSink_{};
    uint32_t before_ = 0;
    std::string path_;
};

TEST_F(BandOutput, BandedPictureDecodesToExactlyWhatTheProcedureDrew) {
    for (uint32_t band : {1u, 2u, 7u, 30u, 0u}) {
        for (bool whiteFirst : {false, true}) {
            TestPicture t;
            t.picture = oracle::randomBilevel(77, 30, band * 2 + whiteFirst);
            t.bandHeight = band;
            t.whiteFirst = whiteFirst;
            ASSERT_EQ(output(t), 0) << "band " << band;
            oracle::Gp4File f = oracle::splitGp4(oracle::readFile(path_));
            EXPECT_EQ(oracle::headerRecord(f.header, 8), "rpelcnt: 000077,000030");
            EXPECT_EQ(oracle::headerRecord(f.header, 9), "rdensty: 0256");
            auto decoded = oracle::decodeG4(f.data, 77, 30);
            ASSERT_TRUE(decoded.has_value());
            EXPECT_EQ(decoded->bits, t.picture.bits) << "band " << band << " white first " << whiteFirst;
            EXPECT_EQ(t.terms, 1);
        }
    }
}

TEST_F(BandOutput, OddHeightIsOutputOneRowTallerAndWidthIsNotRounded) {
    TestPicture t;
    t.picture = oracle::randomBilevel(13, 9, 3);
    t.bandHeight = 4;
    ASSERT_EQ(output(t), 0);
    EXPECT_EQ(t.totalHeight, 10u);
    oracle::Gp4File f = oracle::splitGp4(oracle::readFile(path_));
    EXPECT_EQ(oracle::headerRecord(f.header, 8), "rpelcnt: 000013,000010");
    auto decoded = oracle::decodeG4(f.data, 13, 10);
    ASSERT_TRUE(decoded.has_value());
    for (uint32_t y = 0; y < 10; ++y)
        for (uint32_t x = 0; x < 13; ++x) ASSERT_EQ(decoded->black(x, y), t.blackAt(x, y));
}

TEST_F(BandOutput, ThousandRowsInBandsOf300BottomFirst) {
    SinkLog log;
    recordingSink(log, -1);
    TestPicture t;
    t.picture = Bilevel{8, 1000, std::vector<uint8_t>(1000, 0)};
    t.bandHeight = 300;
    ASSERT_EQ(output(t), 0);
    using Band = std::pair<uint32_t, uint32_t>;
    EXPECT_EQ(t.renders, (std::vector<Band>{{700, 1000}, {400, 700}, {100, 400}, {0, 100}}));
    EXPECT_EQ(log.heights, (std::vector<uint32_t>{300, 300, 300, 100}));
    EXPECT_EQ(host_.progress, (std::vector<intptr_t>{25, 50, 75, 100}));
    EXPECT_EQ(log.begins, 1);
    EXPECT_EQ(log.ends, 1);
}

TEST_F(BandOutput, ThousandRowsInBandsOf300TopFirst) {
    SinkLog log;
    recordingSink(log, 1);
    TestPicture t;
    t.picture = Bilevel{8, 1000, std::vector<uint8_t>(1000, 0)};
    t.bandHeight = 300;
    ASSERT_EQ(output(t), 0);
    using Band = std::pair<uint32_t, uint32_t>;
    EXPECT_EQ(t.renders, (std::vector<Band>{{0, 300}, {300, 600}, {600, 900}, {900, 1000}}));
    EXPECT_EQ(log.heights, (std::vector<uint32_t>{300, 300, 300, 100}));
}

TEST_F(BandOutput, ThreePassesReportTruncatedPercentages) {
    SinkLog log;
    recordingSink(log, -1);  // the coder's own reports stay out of the count
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    t.bandHeight = 10;
    ASSERT_EQ(output(t), 0);
    EXPECT_EQ(host_.progress, (std::vector<intptr_t>{33, 66, 100}));
}

TEST_F(BandOutput, WholePictureAtOnceIsOnePassWithOneReportOf100) {
    SinkLog log;
    recordingSink(log, -1);
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    ASSERT_EQ(output(t), 0);
    EXPECT_EQ(t.renders.size(), 1u);
    EXPECT_EQ(host_.progress, (std::vector<intptr_t>{100}));
}

TEST_F(BandOutput, CancellingStatusCallbackEndsWith901AndNoEnd) {
    for (int cancelAt : {0, 1, 2}) {
        SinkLog log;
        recordingSink(log, -1);
        host_ = Host{};
        host_.cancelAt = cancelAt;
        TestPicture t;
        t.picture = oracle::randomBilevel(16, 30, 1);
        t.bandHeight = 10;
        EXPECT_EQ(output(t), 901);
        EXPECT_EQ(log.heights.size(), static_cast<size_t>(cancelAt + 1));
        EXPECT_EQ(log.ends, 0) << "the picture is not ended";
        EXPECT_EQ(t.terms, 1) << "the offscreen is ended";
    }
}

TEST_F(BandOutput, InitAnswerOfZeroGives27AndWritesNothing) {
    SinkLog log;
    recordingSink(log, -1);
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    t.answerNothing = true;
    EXPECT_EQ(output(t), 27);
    EXPECT_EQ(log.begins, 0);
    EXPECT_TRUE(t.renders.empty());
    EXPECT_EQ(t.terms, 1);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST_F(BandOutput, FailedQueryAllocationGives27WithoutEndingAnOffscreen) {
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(output(t, 1), 27);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(t.terms, 0);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST_F(BandOutput, EveryFailedAllocationEndsCleanly) {
    // Each allocation of the loop fails in turn: a documented result, nothing leaked.
    for (uint32_t n = 1; n < 40; ++n) {
        TestPicture t;
        t.picture = oracle::randomBilevel(40, 20, 9);
        t.bandHeight = 6;
        testing::internal::CaptureStderr();
        int32_t r = output(t, n);
        testing::internal::GetCapturedStderr();
        EXPECT_TRUE(r == 0 || r == 27 || r == 300 || r == -1) << "allocation " << n << ": " << r;
        GlobalFree(t.lastBand);
    }
}

TEST_F(BandOutput, ProcedureThatGrowsTheColourTableIsServedTheLiveTable) {
    TestPicture t;
    t.picture = oracle::randomBilevel(24, 12, 5);
    t.growTable = true;
    t.whiteFirst = true;
    ASSERT_EQ(output(t), 0);
    EXPECT_EQ(setup_->gp4_FGC, 255) << "the first byte of the table actually used";
    auto decoded = oracle::decodeG4(oracle::splitGp4(oracle::readFile(path_)).data, 24, 12);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->bits, t.picture.bits);
}

TEST_F(BandOutput, NullBandHandleStopsWith300) {
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    t.bandHeight = 10;
    t.nullBand = true;
    EXPECT_EQ(output(t), 300);
    EXPECT_EQ(t.renders.size(), 1u);
    EXPECT_EQ(t.terms, 1);
}

TEST_F(BandOutput, MissingExportOptionsReportNoProgress) {
    setup_->lpExport = nullptr;
    TestPicture t;
    t.picture = oracle::randomBilevel(16, 30, 1);
    t.bandHeight = 10;
    EXPECT_EQ(output(t), 0);
    EXPECT_TRUE(host_.progress.empty());
}

TEST(RowSize, OneBitRowsAreNeverPaddedDeeperOnesToFourBytes) {
    EXPECT_EQ(get_rowsize(9, 1), 2);
    EXPECT_EQ(get_rowsize(17, 1), 3);
    EXPECT_EQ(get_rowsize(3, 8), 4);
    EXPECT_EQ(get_rowsize(4, 8), 4);
    EXPECT_EQ(get_rowsize(5, 8), 8);
    EXPECT_EQ(get_rowsize(3, 4), 4);
    EXPECT_EQ(get_rowsize(10, 24), 32);
    EXPECT_EQ(get_rowsize(0, 24), 0);
}

TEST(MetafileProcedure, QueryMeasuresTheBoxInInchesAndInitRendersNothing) {
    PICTINFO p{7, RECT{100, 900, 1100, 100}, 200};
    QUERYINFO q{};
    EXPECT_EQ(DrawPlatformMetafile(DRAW_QUERY, reinterpret_cast<intptr_t>(&p), reinterpret_cast<intptr_t>(&q), 0), 0u);
    EXPECT_DOUBLE_EQ(q.w, 5.0);
    EXPECT_DOUBLE_EQ(q.h, 4.0);
    EXPECT_EQ(q.dpi, 200u);
    EXPECT_EQ(q.colorformat, 4);
    p.Inch = 0;
    DrawPlatformMetafile(DRAW_QUERY, reinterpret_cast<intptr_t>(&p), reinterpret_cast<intptr_t>(&q), 0);
    EXPECT_DOUBLE_EQ(q.w, 1000.0) << "without units per inch the size stays in units";
    OFFSCREEN o{};
    DRAWINIT init{};
    EXPECT_EQ(DrawPlatformMetafile(DRAW_INIT, reinterpret_cast<intptr_t>(&o), reinterpret_cast<intptr_t>(&init), 0), 0u);
    EXPECT_EQ(DrawPlatformMetafile(DRAW_TERM, reinterpret_cast<intptr_t>(&o), 0, 0), 0u);
    EXPECT_EQ(DrawPlatformMetafile(DRAW_TERM, 0, 0, 0), 1u);
    EXPECT_EQ(DrawPlatformMetafile(DRAW_RENDER, reinterpret_cast<intptr_t>(&o), 0, 10), 0u);
}

TEST_F(BandOutput, MetafileOutputEndsWith27AndWritesNoImage) {
    PICTINFO p{7, RECT{0, 720, 720, 0}, 72};
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
    EXPECT_EQ(OutputPicture(out, &p, DrawPlatformMetafile), 27);
    zepClose(out);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST(PlatformFilter, StubsAnswerNothing) {
    uint32_t h2 = 9;
    ZHANDLE c = 9;
    LPDDENTRY32 dd = &RASTER_dd_entry32;
    LPPLATFORMESCAPE e = &xEscapeSetup;
    EXPECT_EQ(InitPlatformMetafileFilter(42, "/path", nullptr, &h2, &c, &dd, &e), 42u);
    EXPECT_EQ(h2, 0u);
    EXPECT_EQ(c, 0u);
    EXPECT_EQ(dd, nullptr);
    EXPECT_EQ(e, nullptr);
    EXPECT_EQ(TermPlatformMetafileFilter(42), 0);
    EXPECT_EQ(GetMetaFileHandle(1, nullptr), 0u);
    EXPECT_EQ(DeleteMetaFileHandle(1), 0);
}

}  // namespace
