// A host's side of a driver session: a setup block, export options with a
// recording status function, the initialisation record, and element helpers.
#pragma once

#include <gtest/gtest.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include "export/mivo4/tempdir.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
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

// Elements as a host lays them out (little-endian, 16-byte header).
class Element {
public:
    explicit Element(int32_t code, size_t size = DVR_ELEMENT_HEADER) : bytes_(size, 0) {
        put<int32_t>(0, code);
        put<int32_t>(4, static_cast<int32_t>(size - DVR_ELEMENT_HEADER));
    }
    template <class T>
    Element &put(size_t offset, T v) {
        if (bytes_.size() < offset + sizeof v) bytes_.resize(offset + sizeof v, 0);
// g++ 12 misjudges the copy after the resize as overflowing a vector of 0-2 bytes.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstringop-overflow"
#endif
        std::memcpy(bytes_.data() + offset, &v, sizeof v);
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
        return *this;
    }
    Element &append(const std::vector<uint8_t> &b, size_t offset) {
        if (bytes_.size() < offset + b.size()) bytes_.resize(offset + b.size(), 0);
        if (!b.empty()) std::memcpy(bytes_.data() + offset, b.data(), b.size());
        return *this;
    }
    Element &length(int32_t n) { return put<int32_t>(4, n); }
    const std::vector<uint8_t> &bytes() const { return bytes_; }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<uint8_t> bytes_;
};

// 518 (window), 520 (viewport): two corners of x, y, z.
inline Element RectElement(int32_t code, double x1, double y1, double x2, double y2, double z1 = 0, double z2 = 0) {
    Element e(code, DVR_WINDOW + 48);
    const double v[6] = {x1, y1, z1, x2, y2, z2};
    for (int i = 0; i < 6; ++i) e.put<double>(DVR_WINDOW + 8 * static_cast<size_t>(i), v[i]);
    return e;
}

// 521: viewport mode and metric factor.
inline Element VpsmElement(int16_t mode, double factor) {
    Element e(521, 32);
    e.put<int16_t>(DVR_VPSM_MODE, mode).put<double>(DVR_VPSM_FACTOR, factor);
    return e;
}

// 1314: entries from a start index; the length field is 3n + 2.
inline Element ColorTableElement(int32_t start, const std::vector<VCD> &entries) {
    Element e(1314, DVR_CT_ENTRIES + entries.size() * 3);
    e.put<int32_t>(DVR_CT_START, start).length(static_cast<int32_t>(entries.size() * 3 + 2));
    for (size_t i = 0; i < entries.size(); ++i) e.put<VCD>(DVR_CT_ENTRIES + 3 * i, entries[i]);
    return e;
}

// 1033: a cell array from P (y = py) to Q (y = qy), cells in the element.
inline Element CellArrayElement(double py, double qy, int32_t sizeX, int32_t sizeY, int32_t precision,
                                const std::vector<uint8_t> &cells) {
    Element e(1033, DVR_CA_CELLS + cells.size());
    e.put<double>(DVR_CA_P + 8, py).put<double>(DVR_CA_Q + 8, qy);
    e.put<int32_t>(DVR_CA_SIZE_X, sizeX).put<int32_t>(DVR_CA_SIZE_Y, sizeY);
    e.put<int32_t>(DVR_CA_PRECISION, precision);
    e.append(cells, DVR_CA_CELLS);
    return e;
}

// 1033 with a negative precision: the cells stay in the host's memory.
inline Element PointerCellArrayElement(double py, double qy, int32_t sizeX, int32_t sizeY, int32_t precision,
                                       const uint8_t *cells) {
    Element e = CellArrayElement(py, qy, sizeX, sizeY, precision, {});
    e.put<const uint8_t *>(DVR_CA_CELLS, cells);
    return e;
}

// 1034, begin image: NumPts points, then the data length and the record.
inline Element BeginImageElement(int32_t nx, int32_t ny, int32_t precision, int32_t numPts = 0,
                                 int32_t colrMode = 0) {
    const size_t record = DVR_GDP_POINTS + DVR_GDP_POINT_SIZE * static_cast<size_t>(numPts) + 4;
    Element e(1034, record + sizeof(Vgdp_BeginCellArrayData));
    e.put<int32_t>(DVR_GDP_FUNCTION, DVR_GDP_BEGIN_IMAGE).put<int32_t>(DVR_GDP_NUMPTS, numPts);
    e.put<int32_t>(record - 4, static_cast<int32_t>(sizeof(Vgdp_BeginCellArrayData)));
    Vgdp_BeginCellArrayData b{nx, ny, precision, colrMode, 0, 0, 0};
    e.put(record, b);
    return e;
}

inline Element EndImageElement() {
    Element e(1034, 28);
    e.put<int32_t>(DVR_GDP_FUNCTION, DVR_GDP_END_IMAGE);
    return e;
}

// Rows of `bytesPerRow` bytes each, padded to 4; `bit(x, row)` sets 1-bit cells.
inline std::vector<uint8_t> OneBitCells(uint32_t width, uint32_t rows, bool (*set)(uint32_t x, uint32_t row)) {
    const uint32_t stride = ((width + 7) / 8 + 3) & ~3u;
    std::vector<uint8_t> cells(static_cast<size_t>(stride) * rows, 0);
    for (uint32_t r = 0; r < rows; ++r)
        for (uint32_t x = 0; x < width; ++x)
            if (set(x, r)) cells[r * stride + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    return cells;
}

// The picture of a GP4 file decoded by libtiff at the size its header states.
struct DecodedGp4 {
    uint32_t width = 0, height = 0;
    std::string header;
    std::optional<oracle::Bilevel> picture;
};

inline DecodedGp4 DecodeGp4File(const std::vector<uint8_t> &file) {
    DecodedGp4 d;
    oracle::Gp4File f = oracle::splitGp4(file);
    d.header = f.header;
    if (f.header.size() < 2048) return d;
    unsigned w = 0, h = 0;
    if (std::sscanf(oracle::headerRecord(f.header, 8).c_str(), "rpelcnt: %6u,%6u", &w, &h) != 2) return d;
    d.width = w;
    d.height = h;
    if (w == 0 || h == 0) return d;
    d.picture = oracle::decodeG4(f.data, w, h);
    return d;
}

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

    // Copies an element to the start of the element buffer and sends it.
    int32_t send(const Element &e) {
        uint8_t *b = elbuf();
        if (b == nullptr || e.size() > state()->DvrBufSz) {
            ADD_FAILURE() << "element of " << e.size() << " bytes does not fit the element buffer";
            return -12345;
        }
        std::memcpy(b, e.bytes().data(), e.size());
        return RASTER_dd_entry32(0, DVR_FN_ELEMENT, b);
    }

    // Initialises with a large element buffer, opens the device, begins a
    // picture, sends the settings that are taken only before the body
    // (window, viewport, background, viewport mode) and begins the body.
    void startPicture(uint32_t elbufsz = 1u << 16, std::initializer_list<Element> settings = {}) {
        init.elbufsz = elbufsz;
        ASSERT_EQ(initialise(), 0);
        ASSERT_EQ(send(1), 0);
        ASSERT_EQ(send(3), 0);
        for (const Element &e : settings) ASSERT_EQ(send(e), 0);
        ASSERT_EQ(send(4), 0);
    }

    // Ends the picture, closes the device and terminates.
    void finish() {
        send(5);
        send(2);
        terminate();
    }

    std::vector<uint8_t> outputFile() const { return oracle::readFile(connectName); }

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
