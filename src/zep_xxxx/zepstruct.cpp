// Structure layouts: records stored packed in a stream, read into and written
// from memory records that follow the host's natural alignment. A short text,
// the layout descriptor, tells the fields; see zepReadStruct below.
#include "zep_xxxx/zepstruct.h"

#include <cctype>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "zep_xxxx/zepio.h"

using namespace mivo4::zep;

namespace {

enum class Mode { Read, Write, Size };

// Repeat counts are kept below this while they are parsed, so that a count
// like 4294967296 neither overflows nor wraps to something small; any count
// this large makes a field far past kMaxRecordBytes and is refused there.
constexpr uint64_t kCountCap = uint64_t{1} << 40;

char Upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads an optional decimal repeat count; 1 when there is none.
uint64_t RepeatCount(const char *&p) {
    if (!IsDigit(*p)) return 1;
    uint64_t n = 0;
    while (IsDigit(*p)) {
        n = std::min<uint64_t>(n * 10 + static_cast<uint64_t>(*p - '0'), kCountCap);
        ++p;
    }
    return n;
}

int64_t AlignUp(int64_t offset, int64_t align) { return (offset + align - 1) / align * align; }

// Stream bytes per item and memory alignment of a field letter; 0 for others.
int ItemSize(char c) {
    switch (c) {
    case 'C': return 1;
    case 'S': return 2;
    case 'L':
    case 'F': return 4;
    case 'D': return 8;
    default: return 0;
    }
}

// The closing ")" of the union whose "(" is at p (only round brackets count),
// or the terminating zero when it has none.
const char *UnionEnd(const char *p) {
    int64_t depth = 0;
    for (; *p != '\0'; ++p) {
        if (*p == '(') ++depth;
        if (*p == ')' && --depth == 0) return p;
    }
    return p;
}

// Moves one field's items with the typed calls. Reads go straight into the
// caller's memory (the typed reads only copy bytes there); writes take the
// values from an aligned copy when the memory is not aligned for the type,
// since the typed writes load whole values. The stream bytes are the same.
int32_t ReadField(HZEPIO h, char c, uint8_t *at, int32_t n) {
    switch (c) {
    case 'C': return zepReadChar(h, at, n);
    case 'S': return zepReadShort(h, reinterpret_cast<int16_t *>(at), n);
    case 'L': return zepReadLong(h, reinterpret_cast<int32_t *>(at), n);
    case 'F': return zepReadFloat(h, reinterpret_cast<float *>(at), n);
    default: return zepReadDouble(h, reinterpret_cast<double *>(at), n);
    }
}

template <typename T, typename Write>
int32_t WriteAligned(HZEPIO h, const uint8_t *at, int32_t n, Write write) {
    if (reinterpret_cast<uintptr_t>(at) % alignof(T) == 0) return write(h, reinterpret_cast<const T *>(at), n);
    std::unique_ptr<T[]> copy(new (std::nothrow) T[static_cast<size_t>(n)]);
    if (copy == nullptr) return -1;
    std::memcpy(copy.get(), at, static_cast<size_t>(n) * sizeof(T));
    return write(h, copy.get(), n);
}

int32_t WriteField(HZEPIO h, char c, const uint8_t *at, int32_t n) {
    switch (c) {
    case 'C': return zepWriteChar(h, at, n);
    case 'S': return WriteAligned<int16_t>(h, at, n, zepWriteShort);
    case 'L': return WriteAligned<int32_t>(h, at, n, zepWriteLong);
    case 'F': return WriteAligned<float>(h, at, n, zepWriteFloat);
    default: return WriteAligned<double>(h, at, n, zepWriteDouble);
    }
}

struct RecordWalk {
    int64_t size = 0;       // memory bytes of the record, tail padding included
    bool error = false;     // an unknown character was met
    bool stopped = false;   // a typed read or write returned less than 1
    int32_t failed = 0;     // ... and this is what it returned
};

// Walks one record of the descriptor. memory is the record's first byte
// (null when only sizing). writeRules: the descriptor is read as
// zepWriteStruct reads it, which knows no unions and no "P".
RecordWalk WalkRecord(const char *descriptor, Mode mode, bool writeRules, HZEPIO h, uint8_t *memory) {
    RecordWalk w;
    int64_t offset = 0;
    bool outside = false;  // inside "[" ... "]": memory only, nothing read, written or zeroed
    // The gap before a field or bracket: zeroed when reading (unless asked to
    // leave it), stepped over otherwise.
    auto pad = [&](int64_t align, bool zero) {
        int64_t aligned = AlignUp(offset, align);
        if (mode == Mode::Read && zero && !outside && aligned > offset) {
            std::memset(memory + offset, 0, static_cast<size_t>(aligned - offset));
        }
        offset = aligned;
    };
    for (const char *p = descriptor; *p != '\0'; ++p) {
        uint64_t count = RepeatCount(p);
        if (*p == '\0') break;
        char c = Upper(*p);
        if (int size = ItemSize(c); size != 0) {
            int64_t start = AlignUp(offset, size);
            if (count > static_cast<uint64_t>((kMaxRecordBytes - start) / size)) {
                w.error = true;  // a field past any memory a caller could give
                continue;
            }
            // The gap before a short is stepped over, not zeroed: the record
            // layouts written for this library rely on that byte keeping what
            // the caller had there.
            pad(size, c != 'S');
            auto n = static_cast<int32_t>(count);
            if (!outside && mode != Mode::Size) {
                int32_t r = mode == Mode::Read ? ReadField(h, c, memory + offset, n)
                                               : WriteField(h, c, memory + offset, n);
                if (r < 1) {
                    w.stopped = true;
                    w.failed = r;
                    return w;
                }
            }
            offset += int64_t{n} * size;
            continue;
        }
        switch (c) {
        case '{':
            pad(GetPadWidth(p), true);
            break;
        case '(': {
            if (writeRules) {
                w.error = true;
                break;
            }
            // A union is one slot as wide as its alignment; its alternatives
            // are neither read nor stepped over in the stream.
            int32_t align = GetPadWidth(p);
            pad(align, true);
            offset += align;
            p = UnionEnd(p);
            if (*p == '\0') --p;  // no ")": the walk ends with the text
            break;
        }
        case '[': outside = true; break;
        case ']': outside = false; break;
        case '|':
        case '}': break;
        case ')':
        case 'P':
            if (writeRules) w.error = true;
            break;
        default:
            w.error = true;
            break;
        }
    }
    outside = false;  // the tail belongs to the record, whatever bracket was left open
    pad(GetPadWidth(descriptor), true);
    w.size = offset;
    return w;
}

int32_t WalkRecords(HZEPIO h, const char *descriptor, uint8_t *memory, int32_t count, Mode mode) {
    if (descriptor == nullptr || memory == nullptr) return 0;
    int32_t result = 0;
    for (int32_t i = 0; i < count; ++i) {
        RecordWalk w = WalkRecord(descriptor, mode, mode == Mode::Write, h, memory);
        if (w.stopped) return w.failed;
        // An unknown character makes the running result -1; every record
        // finished after it still adds one, so the result is no longer the
        // count of records. Hosts read it that way.
        if (w.error) result = -1;
        ++result;
        memory += w.size;
    }
    return result;
}

}  // namespace

namespace mivo4::zep {

int64_t LayoutRecordSize(const char *descriptor, bool writing) {
    if (descriptor == nullptr) return 0;
    return WalkRecord(descriptor, Mode::Size, writing, 0, nullptr).size;
}

}  // namespace mivo4::zep

int32_t GetPadWidth(const char *position) {
    if (position == nullptr) return 1;
    // From a bracket the scan ends with that bracket; from anywhere else it
    // runs to the end of the text.
    const bool bracket = *position == '{' || *position == '(';
    int64_t depth = 0;
    int32_t width = 1;
    for (const char *p = position; *p != '\0'; ++p) {
        switch (Upper(*p)) {
        case '{':
        case '(': ++depth; break;
        case '}':
        case ')': --depth; break;
        case 'D': return 8;
        case 'F':
        case 'L': width = std::max(width, 4); break;
        case 'S': width = std::max(width, 2); break;
        default: break;
        }
        if (bracket && depth == 0) break;
    }
    return width;
}

const char *GetUnionSize(const char *position, int32_t *sizeOut) {
    int64_t largest = 0;
    if (position == nullptr) {
        if (sizeOut != nullptr) *sizeOut = 0;
        return nullptr;
    }
    const char *p = position;
    if (*p == '(') ++p;
    int64_t total = 0;
    while (*p != '\0' && *p != ')') {
        uint64_t count = RepeatCount(p);
        if (*p == '\0' || *p == ')') break;
        char c = Upper(*p);
        if (int size = ItemSize(c); size != 0) {
            total = std::min<int64_t>(AlignUp(total, size) + static_cast<int64_t>(count) * size, kMaxRecordBytes);
        } else if (c == '{') {
            total = AlignUp(total, GetPadWidth(p));
        } else if (c == '(') {
            total = std::min<int64_t>(total + GetPadWidth(p), kMaxRecordBytes);
            p = UnionEnd(p);
            if (*p == '\0') break;
        } else if (c == '|') {
            // Only alternatives closed by "|" count: the last one before ")"
            // is left out, which is why descriptors end every alternative
            // with "|".
            largest = std::max(largest, total);
            total = 0;
        }
        ++p;
    }
    if (sizeOut != nullptr) *sizeOut = static_cast<int32_t>(largest);
    return p;
}

int32_t zepReadStruct(HZEPIO h, const char *descriptor, void *memory, int32_t count) {
    return WalkRecords(h, descriptor, static_cast<uint8_t *>(memory), count, Mode::Read);
}

int32_t zepWriteStruct(HZEPIO h, const char *descriptor, const void *memory, int32_t count) {
    // The write walk never stores into memory.
    return WalkRecords(h, descriptor, static_cast<uint8_t *>(const_cast<void *>(memory)), count, Mode::Write);
}
