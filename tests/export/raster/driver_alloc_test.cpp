// Every allocation of a driver session refused in turn: whole sessions in the
// three ways of output, and single cell arrays at every depth through shrink
// and stretch. Each run must end without a fault, with only the documented
// codes, and with every block the driver made released.
#include "export/raster/driver_session.h"

#include <mivo4/stream.h>

#include <functional>
#include <set>
#include <string>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::ColorTableElement;
using mivo4::test::DriverSession;
using mivo4::test::EndImageElement;
using mivo4::test::RectElement;
using mivo4::test::VpsmElement;

enum class Way { File, Memory, Callback };

std::vector<uint8_t> *gCallbackBytes = nullptr;
size_t gCallbackAt = 0;

int32_t hostStream(intptr_t, int32_t op, intptr_t a1, intptr_t a2) {
    switch (op) {
    case ZEP_CB_OPEN:
        gCallbackAt = 0;
        return 7;
    case ZEP_CB_WRITE: {
        const size_t n = static_cast<size_t>(a2);
        if (gCallbackBytes->size() < gCallbackAt + n) gCallbackBytes->resize(gCallbackAt + n);
        std::memcpy(gCallbackBytes->data() + gCallbackAt, reinterpret_cast<const void *>(a1), n);
        gCallbackAt += n;
        return static_cast<int32_t>(a2);
    }
    case ZEP_CB_SEEK: {
        int32_t where = 0;
        std::memcpy(&where, reinterpret_cast<const void *>(a1), 4);
        if (a2 == 0) gCallbackAt = static_cast<size_t>(where);
        else if (a2 == 1) gCallbackAt = static_cast<size_t>(static_cast<int64_t>(gCallbackAt) + where);
        return static_cast<int32_t>(gCallbackAt);
    }
    default:
        return 0;
    }
}

const std::set<int32_t> kDocumented = {0, 300, 303};

class DriverAllocation : public DriverSession {
protected:
    // Sends an element when the driver runs; a driver that could not start
    // answers nothing.
    int32_t trySend(const mivo4::test::Element &e) {
        if (state() == nullptr || elbuf() == nullptr) return 0;
        return send(e);
    }
    int32_t trySend(int32_t code) {
        if (state() == nullptr || elbuf() == nullptr) return 0;
        return send(code);
    }

    void prepare(Way way) {
        way_ = way;
        setup->pIOCBProc = nullptr;
        std::strcpy(connectName, "out.gp4");
        if (way == Way::Memory) connectName[0] = '\0';
        if (way == Way::Callback) setup->pIOCBProc = &hostStream;
        init.elbufsz = 1u << 16;
        // The metric scale of the sessions below is one unit a dot at this
        // resolution, so that the pictures keep their size in pixels.
        setup->XResolution = 72;
        setup->YResolution = 72;
    }

    // One run with the n-th allocation refused; the codes each call gave.
    std::vector<int32_t> run(uint32_t n, const std::function<void(std::vector<int32_t> &)> &body) {
        std::vector<int32_t> codes;
        init.elbuf = nullptr;
        mivo4::mem::FailNth(n);
        const int32_t started = initialise();
        codes.push_back(started);
        if (started == 0) body(codes);
        codes.push_back(terminate());
        return codes;
    }

    // Refuses every allocation in turn until a run no longer reaches the
    // refused one; checks each run.
    void walk(const std::string &what, const std::function<void(std::vector<int32_t> &)> &body,
              bool expectPicture = true) {
        uint32_t n = 1;
        for (; n < 20000; ++n) {
            std::vector<uint8_t> callbackBytes;
            gCallbackBytes = &callbackBytes;
            const std::vector<int32_t> codes = run(n, body);
            const bool reached = !mivo4::mem::FailurePending();
            mivo4::mem::FailNth(0);
            gCallbackBytes = nullptr;
            for (size_t i = 0; i < codes.size(); ++i)
                EXPECT_TRUE(kDocumented.count(codes[i]) == 1) << what << ": allocation " << n << ", call " << i
                                                               << " answered " << codes[i];
            EXPECT_EQ(lpEMData, nullptr) << what << ": allocation " << n;
            const bool handedOver = options.hMF != 0;
            size_t memoryData = 0;  // the block's length up to its zero fill
            if (const auto *block = static_cast<const uint8_t *>(GlobalLock(options.hMF))) {
                memoryData = GlobalSize(options.hMF);
                while (memoryData > 0 && block[memoryData - 1] == 0) --memoryData;
                GlobalUnlock(options.hMF);
            }
            if (options.hMF != 0) {
                GlobalFree(options.hMF);
                options.hMF = 0;
            }
            EXPECT_EQ(setup->gp4_refLine, 0u) << what << ": allocation " << n << " left the coder's reference row";
            // The one block a run may leave: when the memory block cannot grow,
            // the coder's write comes up short, and the coder then keeps its
            // output buffer (its documented behaviour on a short write). The
            // host gets no block in that case.
            if (way_ == Way::Memory && !handedOver && mivo4::mem::LiveHandles() == liveAtStart + 2) {
                ++shortWrites_;
                ++liveAtStart;
            }
            ASSERT_EQ(mivo4::mem::LiveHandles(), liveAtStart + 1) << what << ": allocation " << n << " leaked";
            if (!reached) {
                // The run that met no refusal wrote a whole picture.
                const size_t written = way_ == Way::Memory ? memoryData
                                       : way_ == Way::Callback ? callbackBytes.size()
                                                               : oracle::readFile("out.gp4").size();
                if (expectPicture) {
                    EXPECT_GT(written, 2049u) << what << ": the session wrote a picture";
                }
                break;
            }
        }
        EXPECT_GT(n, 3u) << what << ": the session allocates";
        EXPECT_LT(n, 20000u) << what << ": the walk ended";
    }

    Way way_ = Way::File;
    int shortWrites_ = 0;  // runs that left the coder's buffer of a short write

    // Initialised, then a whole picture through an image bracket.
    void wholeSession(std::vector<int32_t> &codes) {
        codes.push_back(trySend(1));
        codes.push_back(trySend(3));
        codes.push_back(trySend(RectElement(518, 0, 0, 23, 9)));
        codes.push_back(trySend(VpsmElement(1, 25.4)));
        codes.push_back(trySend(4));
        codes.push_back(trySend(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}, VCD{128, 0, 0}})));
        codes.push_back(trySend(BeginImageElement(24, 10, 8)));
        for (uint8_t i = 0; i < 5; ++i) {
            std::vector<uint8_t> cells(48);
            for (size_t k = 0; k < cells.size(); ++k) cells[k] = static_cast<uint8_t>((k + i) % 3);
            codes.push_back(trySend(CellArrayElement(0, 1, 24, 2, 8, cells)));
        }
        codes.push_back(trySend(EndImageElement()));
        codes.push_back(trySend(5));
        codes.push_back(trySend(2));
    }
};

TEST_F(DriverAllocation, WholeSessionToAFileSurvivesEveryRefusedAllocation) {
    prepare(Way::File);
    walk("file", [this](std::vector<int32_t> &codes) { wholeSession(codes); });
}

TEST_F(DriverAllocation, WholeSessionToMemorySurvivesEveryRefusedAllocation) {
    prepare(Way::Memory);
    walk("memory", [this](std::vector<int32_t> &codes) { wholeSession(codes); });
}

TEST_F(DriverAllocation, WholeSessionToTheHostsStreamSurvivesEveryRefusedAllocation) {
    prepare(Way::Callback);
    walk("callback", [this](std::vector<int32_t> &codes) { wholeSession(codes); });
}

TEST_F(DriverAllocation, SessionLeftOpenSurvivesEveryRefusedAllocationAtTerminate) {
    prepare(Way::Memory);
    walk("left open", [this](std::vector<int32_t> &codes) {
        codes.push_back(trySend(1));
        codes.push_back(trySend(3));
        codes.push_back(trySend(RectElement(518, 0, 0, 15, 3)));
        codes.push_back(trySend(4));
        codes.push_back(trySend(BeginImageElement(16, 4, 24)));
        codes.push_back(trySend(CellArrayElement(0, 1, 16, 2, 24, std::vector<uint8_t>(96, 200))));
        // No end of image, picture or device: terminate closes it all.
    }, false);
}

// Single cell arrays outside an image, at each depth, shrunk (36 dots per
// inch: half the pixels) or stretched (144: twice).
struct SingleCase {
    int32_t precision;
    int16_t dpi;
};

TEST_F(DriverAllocation, SingleCellArraysAtEveryDepthShrunkAndStretchedSurviveEveryRefusedAllocation) {
    for (SingleCase c : {SingleCase{1, 36}, SingleCase{1, 144}, SingleCase{4, 36}, SingleCase{4, 144},
                         SingleCase{8, 36}, SingleCase{8, 144}, SingleCase{24, 36}, SingleCase{24, 144}}) {
        for (Way way : {Way::File, Way::Memory}) {
            prepare(way);
            setup->XResolution = c.dpi;
            setup->YResolution = c.dpi;
            const uint32_t w = 16, h = 8;
            const uint32_t stride = ((w * static_cast<uint32_t>(c.precision) + 7) / 8 + 3) & ~3u;
            std::vector<uint8_t> cells(static_cast<size_t>(stride) * h);
            for (size_t k = 0; k < cells.size(); ++k) cells[k] = static_cast<uint8_t>(k * 37);
            const std::string what = "depth " + std::to_string(c.precision) + " at " + std::to_string(c.dpi) +
                                     (way == Way::File ? " to a file" : " to memory");
            walk(what, [&](std::vector<int32_t> &codes) {
                codes.push_back(trySend(1));
                codes.push_back(trySend(3));
                codes.push_back(trySend(RectElement(518, 0, 0, w - 1, h - 1)));
                codes.push_back(trySend(4));
                if (c.precision < 24) {
                    std::vector<VCD> table(16);
                    for (size_t i = 0; i < table.size(); ++i)
                        table[i] = VCD{static_cast<uint8_t>(i * 17), static_cast<uint8_t>(255 - i * 17), 0};
                    codes.push_back(trySend(ColorTableElement(0, table)));
                }
                if (state() != nullptr) state()->Height = h;  // as an earlier image leaves it
                codes.push_back(trySend(CellArrayElement(0, 1, static_cast<int32_t>(w), static_cast<int32_t>(h),
                                                         c.precision, cells)));
                codes.push_back(trySend(5));
                codes.push_back(trySend(2));
            });
            if (HasFatalFailure()) return;
        }
    }
}

}  // namespace
