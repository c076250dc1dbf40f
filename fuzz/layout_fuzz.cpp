// Feeds arbitrary descriptors and stream bytes to zepReadStruct and
// zepWriteStruct. The memory given to them is exactly what the descriptor
// declares (the walk's own size times the record count), in a block of its
// own, so that any access past it is caught.
#include <mivo4/stream.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "zep_xxxx/zepstruct.h"

// Scratch files go to memory when the system has a memory file system: the
// file system round trip is most of the cost of one input otherwise.
static std::string FuzzDir() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

namespace {

// Input: descriptor text up to the first zero byte, then one byte of record
// count and format, then the stream's bytes.
struct Parts {
    std::string descriptor;
    int32_t count = 1;
    int16_t endian = 0, real = 0;
    const uint8_t *stream = nullptr;
    size_t streamSize = 0;
};

Parts Split(const uint8_t *data, size_t size) {
    Parts p;
    const auto *zero = static_cast<const uint8_t *>(std::memchr(data, 0, size));
    size_t textEnd = zero != nullptr ? static_cast<size_t>(zero - data) : size;
    p.descriptor.assign(reinterpret_cast<const char *>(data), textEnd);
    size_t at = textEnd + 1;
    if (at < size) {
        p.count = 1 + (data[at] & 7);
        p.endian = (data[at] >> 3) & 1;
        p.real = (data[at] >> 4) & 1;
        ++at;
    }
    if (at < size) {
        p.stream = data + at;
        p.streamSize = size - at;
    }
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Parts p = Split(data, size);
    static const std::string path = FuzzDir() + "/mivo4_layout_fuzz_" + std::to_string(getpid()) + ".bin";
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        if (p.streamSize > 0) std::fwrite(p.stream, 1, p.streamSize, f);
        std::fclose(f);
    }
    const char *d = p.descriptor.c_str();
    int32_t unionSize = 0;
    GetUnionSize(d, &unionSize);
    GetPadWidth(d);

    for (bool writing : {false, true}) {
        int64_t record = mivo4::zep::LayoutRecordSize(d, writing);
        int64_t bytes = record * p.count;
        // Records the size of a small file only: the point is the walk, not
        // the allocator.
        if (bytes > (int64_t{1} << 20)) continue;
        std::unique_ptr<uint8_t[]> memory(new uint8_t[static_cast<size_t>(bytes)]);
        std::memset(memory.get(), 0x5A, static_cast<size_t>(bytes));
        uint8_t *base = memory.get();
        if (!writing) {
            HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
            zepSetDataFormat(h, p.endian, p.real);
            zepReadStruct(h, d, base, p.count);
            zepClose(h);
        } else {
            HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
            zepSetDataFormat(h, p.endian, p.real);
            zepWriteStruct(h, d, base, p.count);
            zepClose(h);
        }
    }
    unlink(path.c_str());
    return 0;
}
