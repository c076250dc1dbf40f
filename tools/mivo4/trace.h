// Recordings of driver sessions (.ddt): "MIVO4DT1", then one record per
// element sent, each a 32-bit little-endian byte count and the element's
// bytes exactly as the host placed them in the element buffer. A cell array
// whose cells are elsewhere (negative precision) is recorded with its 8
// address bytes zero, and the record after it holds the cells.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace mivo4::host {

inline constexpr char kTraceMagic[8] = {'M', 'I', 'V', 'O', '4', 'D', 'T', '1'};

struct TraceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class TraceWriter {
public:
    TraceWriter() = default;
    TraceWriter(const TraceWriter &) = delete;
    TraceWriter &operator=(const TraceWriter &) = delete;
    ~TraceWriter();
    // Creates the file; throws TraceError.
    void open(const std::string &path);
    // Appends one record; throws TraceError when it cannot be written.
    void record(const uint8_t *bytes, size_t size);
    // Flushes and closes; throws TraceError.
    void close();

private:
    std::string path_;
    FILE *file_ = nullptr;
};

// One element of a trace; for a cell array with its cells elsewhere, the
// cells from the record after it.
struct TraceElement {
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> cells;
    bool pointerCells = false;
};

// Reads a whole trace from bytes; throws TraceError naming the problem.
std::vector<TraceElement> parseTrace(const uint8_t *data, size_t size);
// Reads a trace file; throws TraceError.
std::vector<TraceElement> readTrace(const std::string &path);

// Whether an element is a cell array whose cells are elsewhere.
bool hasPointerCells(const uint8_t *element, size_t size);

// The most cell bytes the driver can read for a cell array whose cells are
// elsewhere: its rows at the padded length of all its cells (0 for one the
// driver ignores).
uint64_t declaredCellBytes(const uint8_t *element, size_t size);

}  // namespace mivo4::host
