#include "trace.h"

#include <mivo4/raster.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "elements.h"

namespace mivo4::host {

namespace {

uint32_t readLe32(const uint8_t *p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

int32_t int32At(const uint8_t *p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

TraceWriter::~TraceWriter() {
    if (file_ != nullptr) std::fclose(file_);
}

void TraceWriter::open(const std::string &path) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) throw TraceError(path + ": cannot create the trace: " + std::strerror(errno));
    if (std::fwrite(kTraceMagic, 1, sizeof kTraceMagic, file_) != sizeof kTraceMagic)
        throw TraceError(path + ": cannot write the trace: " + std::strerror(errno));
}

void TraceWriter::record(const uint8_t *bytes, size_t size) {
    if (file_ == nullptr) return;
    if (size > UINT32_MAX) throw TraceError(path_ + ": an element too large for a trace record");
    const uint8_t count[4] = {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8),
                              static_cast<uint8_t>(size >> 16), static_cast<uint8_t>(size >> 24)};
    if (std::fwrite(count, 1, 4, file_) != 4 || (size != 0 && std::fwrite(bytes, 1, size, file_) != size))
        throw TraceError(path_ + ": cannot write the trace: " + std::strerror(errno));
}

void TraceWriter::close() {
    if (file_ == nullptr) return;
    FILE *f = file_;
    file_ = nullptr;
    const bool flushed = std::fflush(f) == 0;
    if (std::fclose(f) != 0 || !flushed) throw TraceError(path_ + ": cannot write the trace: " + std::strerror(errno));
}

bool hasPointerCells(const uint8_t *element, size_t size) {
    if (size < DVR_CA_PRECISION + 4) return false;
    return int32At(element) == kCellArray && int32At(element + DVR_CA_PRECISION) < 0;
}

uint64_t declaredCellBytes(const uint8_t *element, size_t size) {
    if (!hasPointerCells(element, size)) return 0;
    const int64_t x = int32At(element + DVR_CA_SIZE_X), y = int32At(element + DVR_CA_SIZE_Y);
    const int32_t precision = int32At(element + DVR_CA_PRECISION);
    const int64_t bits = precision == DVR_PRECISION_ONE_BIT ? 1 : -int64_t{precision};
    if (x <= 0 || y <= 0 || bits > 32) return 0;
    const uint64_t row = ((static_cast<uint64_t>(x) * static_cast<uint64_t>(bits) + 7) / 8 + 3) & ~uint64_t{3};
    return row * static_cast<uint64_t>(y);
}

std::vector<TraceElement> parseTrace(const uint8_t *data, size_t size) {
    if (size < sizeof kTraceMagic || std::memcmp(data, kTraceMagic, sizeof kTraceMagic) != 0)
        throw TraceError("not a driver trace (it does not start with MIVO4DT1)");
    std::vector<TraceElement> elements;
    size_t at = sizeof kTraceMagic;
    size_t record = 0;
    bool cellsNext = false;
    while (at < size) {
        ++record;
        if (size - at < 4) throw TraceError("the trace ends inside a record's byte count at byte " + std::to_string(at));
        const uint32_t n = readLe32(data + at);
        at += 4;
        if (n > size - at)
            throw TraceError("record " + std::to_string(record) + " at byte " + std::to_string(at - 4) +
                             " claims " + std::to_string(n) + " bytes, more than the " + std::to_string(size - at) +
                             " left in the file");
        const uint8_t *bytes = data + at;
        at += n;
        if (cellsNext) {
            // The driver reads as many cells as the cell array declares, at
            // the address replay gives it: the record must hold them all.
            const TraceElement &cellArray = elements.back();
            const uint64_t declared = declaredCellBytes(cellArray.bytes.data(), cellArray.bytes.size());
            if (n < declared)
                throw TraceError("record " + std::to_string(record) + " at byte " + std::to_string(at - n - 4) +
                                 " holds " + std::to_string(n) + " cell bytes, fewer than the " + std::to_string(declared) +
                                 " its cell array declares");
            elements.back().cells.assign(bytes, bytes + n);
            cellsNext = false;
            continue;
        }
        TraceElement e;
        e.bytes.assign(bytes, bytes + n);
        e.pointerCells = hasPointerCells(bytes, n);
        cellsNext = e.pointerCells;
        elements.push_back(std::move(e));
    }
    // A cell array at the very end whose cells are elsewhere has no cells
    // record: it points at none.
    return elements;
}

std::vector<TraceElement> readTrace(const std::string &path) {
    // A device or a pipe may never end: only files are read.
    struct stat st{};
    if (stat(path.c_str(), &st) != 0) throw TraceError(path + ": cannot open: " + std::strerror(errno));
    if (!S_ISREG(st.st_mode)) throw TraceError(path + ": not a regular file");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw TraceError(path + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw TraceError(path + ": cannot read: " + std::strerror(errno));
    try {
        return parseTrace(bytes.data(), bytes.size());
    } catch (const TraceError &e) {
        throw TraceError(path + ": " + e.what());
    }
}

}  // namespace mivo4::host
