// Every element code the driver knows, and some it does not, sent in every
// state a host can bring the driver to, with empty, cut-off and random
// parameters: nothing faults, nothing is left behind, and every answer is one
// the driver documents.
#include "export/raster/driver_session.h"

#include <random>
#include <set>
#include <string>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::ColorTableElement;
using mivo4::test::DriverSession;
using mivo4::test::Element;
using mivo4::test::RectElement;

enum class Stage { Initialised, DeviceOpen, PictureBegun, Body, ImageOpen, PictureEnded, FailedOpen };

const char *name(Stage s) {
    switch (s) {
    case Stage::Initialised: return "initialised";
    case Stage::DeviceOpen: return "device open";
    case Stage::PictureBegun: return "picture begun";
    case Stage::Body: return "body";
    case Stage::ImageOpen: return "image open";
    case Stage::PictureEnded: return "picture ended";
    case Stage::FailedOpen: return "open failed";
    }
    return "";
}

enum class Params { Zero, Random, HeaderOnlyAtBufferEnd, RandomCutAtBufferEnd };

class ElementStates : public DriverSession {
protected:
    static constexpr uint32_t kBuffer = 4096;

    void reach(Stage stage) {
        std::strcpy(connectName, stage == Stage::FailedOpen ? "no/such/dir.x" : "out.gp4");
        init.elbufsz = kBuffer;
        ASSERT_EQ(initialise(), 0);
        if (stage == Stage::Initialised) return;
        send(1);
        if (stage == Stage::DeviceOpen || stage == Stage::FailedOpen) return;
        ASSERT_EQ(send(3), 0);
        ASSERT_EQ(send(RectElement(518, 0, 0, 31, 15)), 0);
        ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
        if (stage == Stage::PictureBegun) return;
        ASSERT_EQ(send(4), 0);
        state()->Height = 16;  // lets single cell arrays place rows
        if (stage == Stage::Body) return;
        if (stage == Stage::ImageOpen) {
            ASSERT_EQ(send(BeginImageElement(32, 16, 8)), 0);
            ASSERT_EQ(send(CellArrayElement(0, 1, 32, 2, 8, std::vector<uint8_t>(64, 1))), 0);
            return;
        }
        ASSERT_EQ(send(5), 0);
    }

    // Sends one element of `code`; answers the dispatch result.
    int32_t sendHostile(int32_t code, Params p, std::mt19937 &rng) {
        uint8_t *b = elbuf();
        std::vector<uint8_t> e(512, 0);
        if (p == Params::Random || p == Params::RandomCutAtBufferEnd)
            for (auto &x : e) x = static_cast<uint8_t>(rng());
        std::memcpy(e.data(), &code, 4);
        // Random cells with a negative precision would name a random address:
        // a host's element always names its own memory, so the address is none.
        if (code == 1033) {
            int32_t precision = 0;
            std::memcpy(&precision, e.data() + DVR_CA_PRECISION, 4);
            if (precision < 0) std::memset(e.data() + DVR_CA_CELLS, 0, sizeof(void *));
            // Keep most random sizes small enough to be made, so that rows are placed.
            if (p == Params::Random && rng() % 2 == 0) {
                const int32_t sx = static_cast<int32_t>(rng() % 64) - 8, sy = static_cast<int32_t>(rng() % 64) - 8;
                const int32_t precisions[] = {1, 4, 8, 24, 32, DVR_PRECISION_ONE_BIT, 0, 3, 64};
                const int32_t pr = precisions[rng() % 9];
                std::memcpy(e.data() + DVR_CA_SIZE_X, &sx, 4);
                std::memcpy(e.data() + DVR_CA_SIZE_Y, &sy, 4);
                std::memcpy(e.data() + DVR_CA_PRECISION, &pr, 4);
                if (pr < 0) std::memset(e.data() + DVR_CA_CELLS, 0, sizeof(void *));
            }
        }
        if (code == 1034 && p == Params::Random && rng() % 2 == 0) {
            const int32_t id = rng() % 2 == 0 ? DVR_GDP_BEGIN_IMAGE : DVR_GDP_END_IMAGE, pts = static_cast<int32_t>(rng() % 4);
            std::memcpy(e.data() + DVR_GDP_FUNCTION, &id, 4);
            std::memcpy(e.data() + DVR_GDP_NUMPTS, &pts, 4);
            const size_t record = DVR_GDP_POINTS + DVR_GDP_POINT_SIZE * static_cast<size_t>(pts) + 4;
            const int32_t nx = static_cast<int32_t>(rng() % 80) - 8, ny = static_cast<int32_t>(rng() % 80) - 8;
            const int32_t precisions[] = {1, 4, 8, 24, DVR_PRECISION_ONE_BIT, 0, 3, 64};
            const int32_t pr = precisions[rng() % 8];
            std::memcpy(e.data() + record, &nx, 4);
            std::memcpy(e.data() + record + 4, &ny, 4);
            std::memcpy(e.data() + record + 8, &pr, 4);
        }
        uint8_t *at = b;
        size_t n = e.size();
        if (p == Params::HeaderOnlyAtBufferEnd) {
            at = b + kBuffer - DVR_ELEMENT_HEADER;
            n = DVR_ELEMENT_HEADER;
        } else if (p == Params::RandomCutAtBufferEnd) {
            n = DVR_ELEMENT_HEADER + rng() % 120;
            at = b + kBuffer - n;
        }
        std::memcpy(at, e.data(), n);
        return RASTER_dd_entry32(0, DVR_FN_ELEMENT, at);
    }
};

TEST_F(ElementStates, EveryElementInEveryStateGivesADocumentedAnswerAndLeavesNothing) {
    std::set<int32_t> codes = {0, 6, 7, 10, 256, 517, 522, 764, 768, 1024, 1032, 1044, 1315, 3840, 3844, 4000, -1};
    for (const FUNCTION_LIST &row : List) codes.insert(row.opcode);
    std::mt19937 rng(12);
    int runs = 0;
    for (Stage stage : {Stage::Initialised, Stage::DeviceOpen, Stage::PictureBegun, Stage::Body, Stage::ImageOpen,
                        Stage::PictureEnded, Stage::FailedOpen}) {
        for (int32_t code : codes) {
            for (Params p : {Params::Zero, Params::Random, Params::HeaderOnlyAtBufferEnd, Params::RandomCutAtBufferEnd}) {
                reach(stage);
                if (HasFatalFailure()) return;
                // Twice: a second element of the same kind meets what the first left.
                for (int i = 0; i < 2; ++i) {
                    const int32_t r = sendHostile(code, p, rng);
                    EXPECT_TRUE(r == 0 || r == 300 || r == 303)
                        << "code " << code << " in " << name(stage) << " answered " << r;
                }
                // The session can still end normally.
                send(5);
                send(2);
                EXPECT_EQ(terminate(), 0);
                ASSERT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1)
                    << "code " << code << " in " << name(stage) << " with parameters " << static_cast<int>(p);
                ++runs;
            }
        }
    }
    EXPECT_GT(runs, 7 * 70 * 4 - 1);
}

TEST_F(ElementStates, ElementsAfterTerminateAreNotDispatched) {
    reach(Stage::Body);
    uint8_t element[128] = {};
    int32_t code = 1033;
    std::memcpy(element, &code, 4);
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, element), 0);
    EXPECT_EQ(lpEMData, nullptr);
}

}  // namespace
