// Allocation-failure walks over the entry points: for N = 1, 2, ... the N-th
// allocation of the call fails, until the call completes with no failure
// injected. Each run must give a documented answer, leak nothing, leave a
// profile either as it was or completely written, and leave an export either
// complete (byte for byte what an export without failure writes) or reported
// by GetLastExportStatus.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/profile.h>
#include <mivo4/setup.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "export/mivo4/exportfixture.h"
#include "export/mivo4/tempdir.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using mivo4::test::HostPicture;
using mivo4::test::HostStream;

constexpr uint32_t kMostSteps = 20000;

// Runs one walk: call(n) is made with the n-th allocation failing; it
// returns whether the failure was delivered. Stops at the first run in
// which it was not.
void walk(const std::function<void(uint32_t)> &call, const char *what) {
    testing::internal::CaptureStderr();  // the memory layer reports each failure
    uint32_t n = 1;
    for (; n < kMostSteps; ++n) {
        SCOPED_TRACE(std::string(what) + std::string(": allocation ") + std::to_string(n) + " fails");
        mivo4::mem::FailNth(n);
        call(n);
        bool delivered = !mivo4::mem::FailurePending();
        mivo4::mem::FailNth(0);
        if (::testing::Test::HasFatalFailure()) break;
        if (!delivered) break;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_LT(n, kMostSteps) << what << " never completed";
    EXPECT_GT(n, 1u) << what << " allocates nothing";
}

enum class Way { File, Memory, Callback };

class ExportWalk : public ::testing::TestWithParam<std::tuple<int, Way>> {
protected:
    void SetUp() override {
        before_ = mivo4::mem::LiveHandles();
        setup_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(setup_, 0u);
        int32_t mode[2] = {783, 150};
        ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
        path_ = oracle::scratchPath(std::string("walk-") + std::to_string(std::get<0>(GetParam())));
        import_.hOutputData = setup_;
        import_.lpExport = &options_;
        if (std::get<1>(GetParam()) == Way::Callback) {
            mivo4::test::gHostStream = &stream_;
            ASSERT_EQ(xEscapeSetup(setup_, ESC_OUTPUT_CALLBACK, 4,
                                   reinterpret_cast<void *>(&mivo4::test::hostStreamProc), nullptr, 0),
                      1);
        }
    }
    void TearDown() override {
        DestroySetup(setup_);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_);
        std::remove(path_.c_str());
    }
    // One export; its answer and its output.
    int32_t run(HostPicture &p, int32_t dpi, std::vector<uint8_t> &out) {
        zepRasterInfoInput ri{96, 300, dpi, p.r.cx, p.r.cy, 1280, 1078};
        int32_t rc = 0;
        switch (std::get<1>(GetParam())) {
        case Way::File:
            std::remove(path_.c_str());
            rc = ExportCellData(path_.c_str(), &p.r, &ri, &import_);
            out = oracle::readFile(path_);
            break;
        case Way::Memory:
            options_.hMF = 0;
            rc = ExportCellData("", &p.r, &ri, &import_);
            out = mivo4::test::memoryOutput(options_.hMF);
            GlobalFree(options_.hMF);
            options_.hMF = 0;
            break;
        case Way::Callback:
            stream_ = HostStream{};
            rc = ExportCellData("host", &p.r, &ri, &import_);
            out = stream_.data;
            break;
        }
        return rc;
    }

    ZHANDLE setup_ = 0;
    IMPORT_OPTIONS import_{};
    EXPORT_OPTIONS options_{};
    HostStream stream_;
    uint32_t before_ = 0;
    std::string path_;
};

TEST_P(ExportWalk, EveryAllocationFailureIsCompleteOrReportedAndLeaksNothing) {
    const auto depth = static_cast<uint16_t>(std::get<0>(GetParam()));
    // Output at 150 dpi: a picture stretched (from 100 dpi), one shrunk (from
    // 300 dpi), and one at its own size whose coded data outgrows several
    // steps of a memory block.
    // One-bit pictures also at a size whose odd height is made even by a row
    // put in front of the picture's own (a view of its large block).
    struct Shape {
        uint16_t width, height;
        int32_t dpi;
    };
    std::vector<Shape> pictures = {{61, 47, 100}, {90, 70, 300}, {240, 180, 150}};
    if (depth == 1) pictures.push_back({2480, 3507, 150});
    for (const auto &shape : pictures) {
        SCOPED_TRACE(std::string("picture ") + std::to_string(shape.width) + std::string("x") + std::to_string(shape.height) + " at " +
                     std::to_string(shape.dpi) + " dpi");
        HostPicture p(depth, shape.width, shape.height, 9 + depth);
        if (shape.height > 1000) {
            // A white page with a diagonal: few coder steps, so a short walk;
            // no bits past the pixels, as readers leave rows: a view can be made.
            const uint32_t stride = ((shape.width + 7u) / 8 + 3) & ~3u;
            auto *rows = static_cast<uint8_t *>(GlobalLock(p.r.hBuffer));
            std::memset(rows, 0, size_t{stride} * shape.height);
            for (uint32_t y = 0; y < shape.height; ++y) rows[size_t{y} * stride + (y % shape.width) / 8] = 0x80;
        }
        std::vector<uint8_t> reference;
        const uint64_t views = mivo4::mem::FrontViewsMade();
        ASSERT_EQ(run(p, shape.dpi, reference), 0);
        EXPECT_EQ(mivo4::mem::FrontViewsMade() - views, shape.height > 1000 ? 1u : 0u);
        ASSERT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
        ASSERT_GT(reference.size(), 2048u);
        int reported = 0;
        walk(
            [&](uint32_t) {
                const uint32_t live = mivo4::mem::LiveHandles();
                std::vector<uint8_t> out;
                int32_t rc = run(p, shape.dpi, out);
                int32_t status = GetLastExportStatus();
                if (rc == 303) {
                    // The output could not be had: a memory block (no memory)
                    // or a stream record that could not be made.
                    EXPECT_TRUE(status == MIVO4_EXPORT_NO_MEMORY || status == MIVO4_EXPORT_WRITE_FAILED)
                        << status;
                } else {
                    EXPECT_EQ(rc, 0) << "the documented answer";
                    EXPECT_TRUE(status == MIVO4_EXPORT_COMPLETE || status == MIVO4_EXPORT_NO_MEMORY)
                        << status;
                }
                if (status == MIVO4_EXPORT_COMPLETE) {
                    EXPECT_TRUE(out == reference) << "a complete export is the whole picture: " << out.size()
                                                  << " bytes against " << reference.size();
                } else {
                    ++reported;
                }
                EXPECT_EQ(mivo4::mem::LiveHandles(), live) << "leaked";
            },
            "ExportCellData");
        EXPECT_GT(reported, 0);
    }
}

std::string wayName(const testing::TestParamInfo<std::tuple<int, Way>> &info) {
    const char *ways[] = {"File", "Memory", "Callback"};
    return std::string("Depth") + std::to_string(std::get<0>(info.param)) + ways[static_cast<int>(std::get<1>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(EveryDepthEveryWay, ExportWalk,
                         ::testing::Combine(::testing::Values(1, 4, 8, 24),
                                            ::testing::Values(Way::File, Way::Memory, Way::Callback)),
                         wayName);

class SetupWalk : public mivo4::test::InTempDir {};

const char kProfile[] =
    "[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=GP4.1\nColor Mode=104\nSize Mode=602\n"
    "Resolution Mode=783\nNot Defined=150\nWidth=4.5\nHeight=3.25\n";

TEST_F(SetupWalk, CreateSetupWithAProfileGivesAWholeSetupOrNoneAndLeaksNothing) {
    spill("p.ini", kProfile);
    ZHANDLE good = CreateSetup(0, "p.ini", nullptr, nullptr);
    ASSERT_NE(good, 0u);
    Gp4_SetupData expected = *static_cast<Gp4_SetupData *>(GlobalLock(good));
    GlobalUnlock(good);
    DestroySetup(good);
    walk(
        [&](uint32_t) {
            const uint32_t live = mivo4::mem::LiveHandles();
            ZHANDLE h = CreateSetup(0, "p.ini", nullptr, nullptr);
            if (h != 0) {
                const auto *s = static_cast<const Gp4_SetupData *>(GlobalLock(h));
                EXPECT_STREQ(s->szDriver, expected.szDriver);
                EXPECT_EQ(s->XResolution, expected.XResolution);
                EXPECT_EQ(s->PrintWidth, expected.PrintWidth);
                EXPECT_EQ(s->nColorMode, expected.nColorMode);
                GlobalUnlock(h);
                EXPECT_EQ(DestroySetup(h), 0);
            }
            EXPECT_EQ(mivo4::mem::LiveHandles(), live);
            EXPECT_EQ(slurp("p.ini"), kProfile);
        },
        "CreateSetup");
}

TEST_F(SetupWalk, EscapeWithRetainKeepsTheProfileWholeOldOrNew) {
    spill("p.ini", kProfile);
    ZHANDLE h = CreateSetup(0, "p.ini", nullptr, nullptr);
    ASSERT_NE(h, 0u);
    double height = 7.5;
    ASSERT_EQ(xEscapeSetup(h, ESC_HEIGHT, 8, &height, nullptr, 1), 1);
    const std::string written = slurp("p.ini");
    ASSERT_NE(written, kProfile);
    spill("p.ini", kProfile);
    testing::internal::CaptureStderr();
    for (uint32_t n = 1; n < 1000; ++n) {
        spill("p.ini", kProfile);
        const uint32_t live = mivo4::mem::LiveHandles();
        mivo4::mem::FailNth(n);
        EXPECT_EQ(xEscapeSetup(h, ESC_HEIGHT, 8, &height, nullptr, 1), 1);
        bool delivered = !mivo4::mem::FailurePending();
        mivo4::mem::FailNth(0);
        std::string now = slurp("p.ini");
        EXPECT_TRUE(now == kProfile || now == written) << "allocation " << n << ": " << now;
        EXPECT_EQ(mivo4::mem::LiveHandles(), live);
        if (!delivered) {
            EXPECT_EQ(now, written) << "with no failure the value is kept";
            break;
        }
    }
    testing::internal::GetCapturedStderr();
    DestroySetup(h);
}

TEST_F(SetupWalk, WritePrivateProfileStringAnswersZeroAndLeavesTheProfileWholeOldOrNew) {
    spill("p.ini", kProfile);
    WritePrivateProfileString("Fax", "Width", "2.0", "p.ini");
    const std::string written = slurp("p.ini");
    ASSERT_NE(written, kProfile);
    testing::internal::CaptureStderr();
    for (uint32_t n = 1; n < 1000; ++n) {
        spill("p.ini", kProfile);
        const uint32_t live = mivo4::mem::LiveHandles();
        mivo4::mem::FailNth(n);
        EXPECT_EQ(WritePrivateProfileString("Fax", "Width", "2.0", "p.ini"), 0);
        bool delivered = !mivo4::mem::FailurePending();
        mivo4::mem::FailNth(0);
        std::string now = slurp("p.ini");
        EXPECT_TRUE(now == kProfile || now == written) << "allocation " << n;
        EXPECT_EQ(mivo4::mem::LiveHandles(), live);
        if (!delivered) {
            EXPECT_EQ(now, written);
            break;
        }
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace
