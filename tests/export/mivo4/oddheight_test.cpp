// Pictures of odd height are made one row taller before they are coded. From a
// large block that row is put in front of the picture's own rows (no copy of
// the picture); the file must be byte for byte the one a stretched copy gives.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstdio>
#include <string>
#include <vector>

#include "export/mivo4/exportfixture.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using mivo4::test::HostPicture;

class OddHeight : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        before_ = mivo4::mem::LiveHandles();
        setup_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(setup_, 0u);
        int32_t mode[2] = {783, 150};  // 150 dpi: the pictures below keep their size
        ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
        import_.hOutputData = setup_;
        import_.lpExport = &options_;
        path_ = oracle::scratchPath("oddheight-" + std::to_string(GetParam()));
    }
    void TearDown() override {
        mivo4::mem::SetRoomInFront(true);
        DestroySetup(setup_);
        std::remove(path_.c_str());
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_);
    }
    // The file written for a picture, and how many views the export made.
    std::vector<uint8_t> exported(uint16_t width, uint16_t height, bool roomInFront, uint64_t &views) {
        const auto depth = static_cast<uint16_t>(GetParam());
        mivo4::mem::SetRoomInFront(roomInFront);
        HostPicture p(depth, width, height, 77 + depth);
        p.clearPadding();
        zepRasterInfoInput ri{96, 300, 150, p.r.cx, p.r.cy, 1280, 1078};
        const uint64_t before = mivo4::mem::FrontViewsMade();
        std::remove(path_.c_str());
        EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &import_), 0);
        EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
        views = mivo4::mem::FrontViewsMade() - before;
        return oracle::readFile(path_);
    }

    ZHANDLE setup_ = 0;
    IMPORT_OPTIONS import_{};
    EXPORT_OPTIONS options_{};
    uint32_t before_ = 0;
    std::string path_;
};

TEST_P(OddHeight, APictureOneRowTallerInFrontOfItsRowsIsTheStretchedCopysFile) {
    // One-bit rows of the output fill a large block (a megabyte and more).
    const uint16_t width = GetParam() == 1 ? 2480 : 2900, height = GetParam() == 1 ? 3507 : 2901;
    uint64_t views = 0, copies = 0;
    const std::vector<uint8_t> viewed = exported(width, height, true, views);
    const std::vector<uint8_t> copied = exported(width, height, false, copies);
    EXPECT_EQ(views, 1u) << "the new row was put in front of the picture";
    EXPECT_EQ(copies, 0u) << "without room in front the picture is copied";
    ASSERT_GT(copied.size(), 2048u);
    EXPECT_TRUE(viewed == copied) << viewed.size() << " bytes against " << copied.size();
    const oracle::Gp4File file = oracle::splitGp4(viewed);
    char pixels[32];
    std::snprintf(pixels, sizeof pixels, "rpelcnt: %06u,%06u", unsigned{width}, height + 1u);
    EXPECT_EQ(oracle::headerRecord(file.header, 8), pixels);
    EXPECT_TRUE(oracle::decodeG4(file.data, width, height + 1u).has_value()) << "libtiff decodes it";
}

// A host that frees its picture while the export codes it (from the progress
// callback): a view of the picture's own rows (one bit) keeps them alive; a
// view of the dithered rows (deeper pictures) never needed them.
ZHANDLE gPictureToFree = 0;
int32_t freeThePictureWhileCoding(intptr_t, int32_t, int32_t, intptr_t, intptr_t value, intptr_t, intptr_t) {
    if (value >= 50 && gPictureToFree != 0) {
        GlobalFree(gPictureToFree);
        gPictureToFree = 0;
    }
    return 0;
}

TEST_P(OddHeight, APictureFreedByTheHostWhileItIsCodedStillGivesTheWholeFile) {
    const auto depth = static_cast<uint16_t>(GetParam());
    const uint16_t width = depth == 1 ? 2480 : 2900, height = depth == 1 ? 3507 : 2901;
    uint64_t views = 0;
    const std::vector<uint8_t> reference = exported(width, height, true, views);
    HostPicture p(depth, width, height, 77 + depth);  // the picture exported() made
    p.clearPadding();
    zepRasterInfoInput ri{96, 300, 150, p.r.cx, p.r.cy, 1280, 1078};
    gPictureToFree = p.r.hBuffer;
    options_.GetSet_Status = &freeThePictureWhileCoding;
    const uint64_t before = mivo4::mem::FrontViewsMade();
    std::remove(path_.c_str());
    EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &import_), 0);
    options_.GetSet_Status = nullptr;
    EXPECT_EQ(gPictureToFree, 0u) << "the host freed its picture during the export";
    EXPECT_EQ(mivo4::mem::FrontViewsMade() - before, 1u);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
    EXPECT_TRUE(oracle::readFile(path_) == reference);
}

INSTANTIATE_TEST_SUITE_P(EveryDepth, OddHeight, ::testing::Values(1, 4, 8, 24),
                         [](const testing::TestParamInfo<int> &info) {
                             return "Depth" + std::to_string(info.param);
                         });

}  // namespace
