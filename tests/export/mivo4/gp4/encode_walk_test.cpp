// The coder's own walk over a row's steps (ListSteps: the lists, the mode
// decision and the bit packing in locals) against the plain step loop over the
// same lists (gForceStepLoop) and the model: the same bytes, the output buffer
// grown at the same points, and a failed growth met at the same step.
#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>

#include <cstring>
#include <vector>

#include "export/mivo4/gp4/g4find.h"
#include "g4fixture.h"
#include "g4model.h"
#include "zep_xxxx/memdebug.h"

namespace {

using g4test::Picture;
using g4test::Rng;

// Widths around multiples of 8, 32 and 64, and some wide enough for runs
// longer than 2560 pixels.
uint32_t AWidth(Rng &r) {
    switch (r.Below(4)) {
    case 0: return 8 * (1 + r.Below(40)) + r.Below(3) - 1;
    case 1: return 32 * (1 + r.Below(20)) + r.Below(5) - 2;
    case 2: return 64 * (1 + r.Below(20)) + r.Below(3) - 1;
    default: return 2500 + r.Below(6000);
    }
}

// Rows of runs of every length (short, up to 63, make-up lengths, and longer
// than 2560), noise, and rows repeated or shifted by a few pixels from the row
// above, so that every mode and run length is met.
Picture RandomRows(Rng &r, uint32_t w, uint32_t h) {
    Picture p(w, h);
    for (uint32_t y = 0; y < h; ++y) {
        uint32_t kind = r.Below(6);
        if (y > 0 && kind == 0) {
            std::memcpy(p.Row(y), p.Row(y - 1), p.stride);
        } else if (y > 0 && kind == 1) {
            int shift = static_cast<int>(r.Below(9)) - 4;
            for (uint32_t x = 0; x < w; ++x) {
                int from = static_cast<int>(x) + shift;
                p.Set(x, y, from >= 0 && from < static_cast<int>(w) ? p.White(from, y - 1) : r.Chance(50));
            }
        } else if (kind <= 3) {
            bool white = r.Chance(50);
            uint32_t scale = r.Below(4);
            for (uint32_t x = 0; x < w;) {
                uint32_t len = scale == 0   ? 1 + r.Below(8)
                               : scale == 1 ? 1 + r.Below(64)
                               : scale == 2 ? 1 + r.Below(2600)
                                            : 2400 + r.Below(6000);
                p.Span(x, x + len < w ? x + len : w, y, white);
                x += len;
                white = !white;
            }
        } else {
            uint32_t density = r.Below(101);
            for (uint32_t x = 0; x < w; ++x) p.Set(x, y, !r.Chance(density));
        }
    }
    g4test::DirtyPadding(p, r.Next());
    return p;
}

class StepWalk : public g4test::CoderTest {
protected:
    void TearDown() override {
        mivo4::g4::gForceStepLoop = false;
        mivo4::mem::FailNth(0);
        CoderTest::TearDown();
    }

    struct Outcome {
        uint32_t count;
        ZHANDLE handle;       // 0: the buffer was lost
        uint32_t size;        // the buffer's size at the end
        uint64_t allocations; // made while coding
        std::vector<uint8_t> bytes;
        bool operator==(const Outcome &o) const {
            return count == o.count && (handle == 0) == (o.handle == 0) && size == o.size &&
                   allocations == o.allocations && bytes == o.bytes;
        }
    };

    // Codes p as one band into a buffer of `startSize` bytes, the `failAt`-th
    // allocation failing (0: none), with the walk or the plain steps.
    Outcome Code(const Picture &p, uint32_t startSize, uint32_t failAt, bool plain) {
        mivo4::g4::gForceStepLoop = plain;
        NewPicture();
        ZHANDLE h = GlobalAlloc(GHND, startSize);
        EXPECT_NE(h, 0u);
        uint64_t before = mivo4::mem::AllocationCount();
        mivo4::mem::FailNth(failAt);
        uint32_t n = Group4(p.Row(0), &h, p.width, p.height, p.stride);
        mivo4::mem::FailNth(0);
        Outcome o{n, h, 0, mivo4::mem::AllocationCount() - before, {}};
        if (h != 0) {
            o.size = GlobalSize(h);
            auto *q = static_cast<uint8_t *>(GlobalLock(h));
            o.bytes.assign(q, q + n);
            GlobalFree(h);
        }
        return o;
    }
};

TEST_F(StepWalk, GivesThePlainStepsBytesOnRandomRows) {
    Rng r(16);
    for (int i = 0; i < 300; ++i) {
        Picture p = RandomRows(r, AWidth(r), 1 + r.Below(20));
        std::vector<uint8_t> walked = Group4Picture(p);
        mivo4::g4::gForceStepLoop = true;
        std::vector<uint8_t> plain = Group4Picture(p);
        mivo4::g4::gForceStepLoop = false;
        ASSERT_EQ(walked, plain) << "picture " << i << " " << p.width << "x" << p.height;
        ASSERT_EQ(walked, g4model::Code(p).Bytes()) << "picture " << i;
    }
}

TEST_F(StepWalk, GrowsTheBufferAtTheSamePointsFromSmallBuffers) {
    Rng r(17);
    for (int i = 0; i < 150; ++i) {
        Picture p = RandomRows(r, AWidth(r), 1 + r.Below(12));
        uint32_t start = r.Below(40);
        Outcome walked = Code(p, start, 0, false);
        Outcome plain = Code(p, start, 0, true);
        ASSERT_TRUE(walked == plain) << "picture " << i << " " << p.width << "x" << p.height << " from " << start
                                     << ": " << walked.allocations << " against " << plain.allocations
                                     << " allocations";
        ASSERT_EQ(walked.bytes, g4model::Code(p).Bytes()) << "picture " << i;
    }
}

TEST_F(StepWalk, AFailedGrowthIsMetAtTheSameStep) {
    Rng r(18);
    for (int i = 0; i < 60; ++i) {
        Picture p = RandomRows(r, AWidth(r), 1 + r.Below(12));
        uint32_t start = r.Below(40);
        Outcome full = Code(p, start, 0, true);
        // The first allocation is the reference row; every later one a growth.
        for (uint32_t failAt = 1; failAt <= full.allocations + 1; failAt += 1 + r.Below(4)) {
            Outcome walked = Code(p, start, failAt, false);
            Outcome plain = Code(p, start, failAt, true);
            ASSERT_TRUE(walked == plain) << "picture " << i << " allocation " << failAt << " fails: count "
                                         << walked.count << " against " << plain.count;
        }
    }
}

// The lists are made 64 pixels at a time in pixel order; every element must
// be the next change NextChange finds one by one, with the closing widths
// after the last, whatever the padding bits hold.
TEST(ChangeLists, EveryElementIsTheNextChangeOnRandomRows) {
    Rng r(19);
    for (int i = 0; i < 400; ++i) {
        uint32_t w = AWidth(r);
        Picture p = RandomRows(r, w, 1);
        const uint32_t size = mivo4::g4::RowBytes(w);
        std::vector<uint32_t> lists(mivo4::g4::ListSearch::Entries(w));
        mivo4::g4::ListSearch search(w, size, lists.data());
        search.BeginRow(p.Row(0));
        const uint32_t *list = search.CodingList();
        uint32_t k = 0;
        bool white = true;  // the colour before the element
        for (uint32_t a = 0; a < w; ++k) {
            uint32_t next = mivo4::g4::NextChange(p.Row(0), size, k == 0 ? 0 : a, white, w);
            ASSERT_EQ(list[k], next) << "row " << i << " width " << w << " element " << k;
            a = next;
            white = !white;
        }
        ASSERT_EQ(list[k], w) << "row " << i;
        ASSERT_EQ(list[k + 1], w) << "row " << i;
    }
}

}  // namespace
