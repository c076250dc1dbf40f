// libtiff's Group 4 decoder: the GP4 inspection's part that needs libtiff.
#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "codecs.h"

namespace mivo4::host {

namespace {

// libtiff as a decoder of a bare T.6 stream: a small TIFF is put together in
// memory around it and opened through client procedures, so no temporary
// file is needed.
struct MemoryTiff {
    std::vector<uint8_t> bytes;
    toff_t pos = 0;
};

tmsize_t memRead(thandle_t h, void *buf, tmsize_t n) {
    auto *m = static_cast<MemoryTiff *>(h);
    if (m->pos >= m->bytes.size()) return 0;
    size_t k = std::min<size_t>(static_cast<size_t>(n), m->bytes.size() - m->pos);
    std::memcpy(buf, m->bytes.data() + m->pos, k);
    m->pos += k;
    return static_cast<tmsize_t>(k);
}
tmsize_t memWrite(thandle_t, void *, tmsize_t) { return 0; }
toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto *m = static_cast<MemoryTiff *>(h);
    toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m->pos : m->bytes.size();
    m->pos = base + off;
    return m->pos;
}
int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<MemoryTiff *>(h)->bytes.size(); }
int memMap(thandle_t, void **, toff_t *) { return 0; }
void memUnmap(thandle_t, void *, toff_t) {}

void put16(std::vector<uint8_t> &v, uint16_t x) {
    v.push_back(static_cast<uint8_t>(x));
    v.push_back(static_cast<uint8_t>(x >> 8));
}
void put32(std::vector<uint8_t> &v, uint32_t x) {
    put16(v, static_cast<uint16_t>(x));
    put16(v, static_cast<uint16_t>(x >> 16));
}

std::vector<uint8_t> wrapInTiff(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height) {
    struct Entry {
        uint16_t tag, type;
        uint32_t value;
    };
    const uint16_t SHORT = 3, LONG = 4;
    const Entry entries[] = {
        {256, LONG, width},  {257, LONG, height}, {258, SHORT, 1}, {259, SHORT, 4 /* Group 4 */},
        {262, SHORT, 0 /* white is zero */},      {273, LONG, 0 /* set below */},
        {277, SHORT, 1},     {278, LONG, height}, {279, LONG, static_cast<uint32_t>(coded.size() + 1)},
    };
    const uint16_t count = sizeof entries / sizeof entries[0];
    const uint32_t dataOffset = 8 + 2 + count * 12 + 4;
    std::vector<uint8_t> t;
    t.reserve(dataOffset + coded.size() + 1);
    t.push_back('I');
    t.push_back('I');
    put16(t, 42);
    put32(t, 8);
    put16(t, count);
    for (const Entry &e : entries) {
        put16(t, e.tag);
        put16(t, e.type);
        put32(t, 1);
        uint32_t value = e.tag == 273 ? dataOffset : e.value;
        if (e.type == SHORT) {
            put16(t, static_cast<uint16_t>(value));
            put16(t, 0);
        } else {
            put32(t, value);
        }
    }
    put32(t, 0);
    t.insert(t.end(), coded.begin(), coded.end());
    t.push_back(0);  // room for the decoder to look past the last code
    return t;
}

std::string tiffComplaint;

void collect(const char *, const char *fmt, va_list ap) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, ap);
    if (tiffComplaint.empty()) tiffComplaint = text;
}

}  // namespace

DecodeResult codec::decodeG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height) {
    DecodeResult result;
    if (width == 0 || height == 0) {
        result.problem = "the picture has no pixels";
        return result;
    }
    const size_t stride = (static_cast<size_t>(width) + 7) / 8;
    if (stride * height > (size_t{1} << 32)) {
        result.problem = "the picture is too large to decode here";
        return result;
    }
    TIFFErrorHandler oldError = TIFFSetErrorHandler(collect);
    TIFFErrorHandler oldWarning = TIFFSetWarningHandler(collect);
    tiffComplaint.clear();
    MemoryTiff mem{wrapInTiff(coded, width, height), 0};
    TIFF *t = TIFFClientOpen("gp4", "rm", &mem, memRead, memWrite, memSeek, memClose, memSize, memMap, memUnmap);
    Bilevel b;
    b.width = width;
    b.height = height;
    b.bits.assign(stride * height, 0);
    tmsize_t got = -1;
    if (t != nullptr) {
        got = TIFFReadEncodedStrip(t, 0, b.bits.data(), static_cast<tmsize_t>(b.bits.size()));
        TIFFClose(t);
    }
    TIFFSetErrorHandler(oldError);
    TIFFSetWarningHandler(oldWarning);
    if (got != static_cast<tmsize_t>(b.bits.size()) || !tiffComplaint.empty()) {
        result.problem = tiffComplaint.empty() ? "the coded data does not decode" : tiffComplaint;
        return result;
    }
    result.picture = std::move(b);
    return result;
}

struct G4State {
    MemoryTiff mem;
    TIFF *tif = nullptr;
    TIFFErrorHandler oldError = nullptr, oldWarning = nullptr;
};

G4State *codec::openG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t rows, std::string &problem) {
    auto *state = new G4State;
    state->oldError = TIFFSetErrorHandler(collect);
    state->oldWarning = TIFFSetWarningHandler(collect);
    tiffComplaint.clear();
    if (width == 0 || rows == 0) {
        problem = "the picture has no pixels";
        return state;
    }
    state->mem.bytes = wrapInTiff(coded, width, rows);
    state->tif = TIFFClientOpen("gp4", "rm", &state->mem, memRead, memWrite, memSeek, memClose, memSize, memMap,
                                memUnmap);
    if (state->tif == nullptr) problem = tiffComplaint.empty() ? "the coded data cannot be opened" : tiffComplaint;
    return state;
}

void codec::closeG4(G4State *state) {
    if (state->tif != nullptr) TIFFClose(state->tif);
    TIFFSetErrorHandler(state->oldError);
    TIFFSetWarningHandler(state->oldWarning);
    delete state;
}

bool codec::nextG4(G4State *state, uint8_t *row, uint32_t y, std::string &problem) {
    // libtiff decodes a Group 4 strip one row after another.
    if (TIFFReadScanline(state->tif, row, y, 0) < 0 || !tiffComplaint.empty()) {
        problem = tiffComplaint.empty() ? "the coded data does not decode" : tiffComplaint;
        return false;
    }
    return true;
}

}  // namespace mivo4::host
