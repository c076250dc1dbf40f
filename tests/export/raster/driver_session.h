// A host's side of a driver session: a setup block, export options with a
// recording status function, the initialisation record, and element helpers.
#pragma once

#include <gtest/gtest.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include "export/mivo4/tempdir.h"
#include "zep_xxxx/memdebug.h"

#include <array>
#include <cstring>
#include <vector>

namespace mivo4::test {

struct StatusCall {
    intptr_t hostData;
    int32_t op, item;
    intptr_t a4, a5, a6, a7;
};

// What the host's status function was asked, and what it answers.
struct StatusLog {
    std::vector<StatusCall> calls;
    int32_t answer = 0;
};
inline StatusLog &statusLog() {
    static StatusLog log;
    return log;
}
inline int32_t recordStatus(intptr_t hostData, int32_t op, int32_t item, intptr_t a4, intptr_t a5,
                            intptr_t a6, intptr_t a7) {
    statusLog().calls.push_back({hostData, op, item, a4, a5, a6, a7});
    return statusLog().answer;
}

constexpr uint32_t kUntouched = 0xA5A5A5A5u;

// Runs in a fresh current directory, where the device's file lands.
class DriverSession : public InTempDir {
protected:
    void SetUp() override {
        InTempDir::SetUp();
        ASSERT_EQ(lpEMData, nullptr) << "an earlier test left a driver running";
        ASSERT_EQ(hCommon, 0u);
        statusLog() = StatusLog{};
        liveAtStart = mivo4::mem::LiveHandles();
        hSetup = GlobalAlloc(GHND, sizeof(Gp4_SetupData));
        ASSERT_NE(hSetup, 0u);
        setup = static_cast<Gp4_SetupData *>(GlobalLock(hSetup));
        setup->nColorMode = 103;
        options.GetSet_Status = &recordStatus;
        options.hDialog = 0x5151;
        supData.fill(kUntouched);
        init.connect = connectName;
        init.elbufsz = 256;
        init.setup = hSetup;
        init.export_ = &options;
        init.InqSupData = supData.data();
    }
    void TearDown() override {
        RASTER_dd_entry32(0, DVR_FN_TERMINATE, nullptr);
        mivo4::mem::FailNth(0);
        hCommon = 0;
        lpEMData = nullptr;
        GlobalFree(hSetup);
        EXPECT_EQ(mivo4::mem::LiveHandles(), liveAtStart) << "the session leaked blocks";
        InTempDir::TearDown();
    }

    MoRastData *state() const { return static_cast<MoRastData *>(lpEMData); }
    uint8_t *elbuf() const { return static_cast<uint8_t *>(init.elbuf); }

    int32_t initialise() { return RASTER_dd_entry32(0, DVR_FN_INITIALISE, &init); }
    int32_t terminate() { return RASTER_dd_entry32(0, DVR_FN_TERMINATE, nullptr); }

    // Writes an element (header: code, length; then the parameters) at the
    // start of the element buffer, as a host does, and sends it.
    int32_t send(int32_t code, const std::vector<int32_t> &params = {}) {
        uint8_t *b = elbuf();
        if (b == nullptr) return -12345;
        int32_t length = static_cast<int32_t>(params.size() * 4);
        std::memset(b, 0, DVR_ELEMENT_HEADER);
        std::memcpy(b, &code, 4);
        std::memcpy(b + 4, &length, 4);
        if (!params.empty()) std::memcpy(b + DVR_ELEMENT_HEADER, params.data(), params.size() * 4);
        return RASTER_dd_entry32(0, DVR_FN_ELEMENT, b);
    }

    template <class T>
    T answerAt(size_t offset) const {
        T v;
        std::memcpy(&v, elbuf() + offset, sizeof v);
        return v;
    }

    uint32_t liveAtStart = 0;
    ZHANDLE hSetup = 0;
    Gp4_SetupData *setup = nullptr;
    EXPORT_OPTIONS options{};
    std::array<uint32_t, 64> supData{};
    char connectName[16] = "out.gp4";
    VInitDriver init{};
};

}  // namespace mivo4::test
