// Typed reads and writes: 16- and 32-bit integers, single and double reals,
// in the byte order and real format chosen for the stream. Every value is
// taken apart and put together with shifts, so the stream bytes are the same
// on any host.
#include "zep_xxxx/zepio.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstring>

using namespace mivo4::zep;

namespace {

struct Format {
    bool bigEndian = false;
    bool fixedPoint = false;
};

Format StreamFormat(HZEPIO h) {
    const ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return {};
    return {s->tEndian == 1, s->tRealFormat == 1};
}

template <int N>
void PutBytes(uint8_t *out, uint64_t value, bool bigEndian) {
    for (int k = 0; k < N; ++k) {
        out[bigEndian ? N - 1 - k : k] = static_cast<uint8_t>(value >> (8 * k));
    }
}

template <int N>
uint64_t GetBytes(const uint8_t *in, bool bigEndian) {
    uint64_t value = 0;
    for (int k = 0; k < N; ++k) {
        value |= uint64_t{in[bigEndian ? N - 1 - k : k]} << (8 * k);
    }
    return value;
}

// Truncation toward zero as the conversion instructions do it: a value
// outside the 32-bit range, or NaN, gives INT32_MIN rather than undefined
// behaviour.
int32_t TruncToInt32(float x) {
    if (!(x >= -2147483648.0f && x < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(x);
}

// 16.16 fixed point as the writer has always stored it: the fraction's 16
// bits, most significant byte first, then the integer part's 16 bits, most
// significant byte first, whatever the stream's byte order. The reader takes
// the four bytes as one 32-bit integer in the stream's byte order instead, so
// the two directions do not mirror each other; files in circulation depend on
// both, so both stay.
void EncodeFixed(float value, uint8_t out[4]) {
    auto whole = static_cast<uint16_t>(TruncToInt32(value));  // integer part, kept to 16 bits
    float fraction = (value - std::trunc(value)) * 65536.0f;
    auto part = static_cast<uint16_t>(TruncToInt32(fraction));
    PutBytes<2>(out, part, true);
    PutBytes<2>(out + 2, whole, true);
}

float DecodeFixed(uint32_t bits) {
    return static_cast<float>(static_cast<int32_t>(bits) / 65536.0);
}

// Reads count items of N bytes with one read, then converts them in place.
// A short read converts nothing: the caller's array keeps the raw bytes.
template <int N, typename T, typename Decode>
int32_t ReadItems(HZEPIO h, T *buffer, int32_t count, Decode decode) {
    static_assert(sizeof(T) == N);
    if (buffer == nullptr || count < 0) return 0;
    int64_t bytes = int64_t{count} * N;
    if (bytes > INT32_MAX) return 0;
    if (zepRead(h, buffer, static_cast<int32_t>(bytes)) != bytes) return 0;
    Format format = StreamFormat(h);
    auto *raw = reinterpret_cast<uint8_t *>(buffer);
    for (int32_t i = 0; i < count; ++i) {
        T value = decode(GetBytes<N>(raw + int64_t{i} * N, format.bigEndian), format);
        std::memcpy(raw + int64_t{i} * N, &value, N);
    }
    return count;
}

// Writes count items, one write each; stops at the first write that returns
// less than 1 and returns that result.
template <int N, typename T, typename Encode>
int32_t WriteItems(HZEPIO h, const T *values, int32_t count, Encode encode) {
    if (count <= 0) return 0;
    if (values == nullptr) return -1;
    Format format = StreamFormat(h);
    for (int32_t i = 0; i < count; ++i) {
        uint8_t item[N];
        encode(values[i], format, item);
        int32_t wrote = zepWrite(h, item, N);
        if (wrote < 1) return wrote;
    }
    return count;
}

}  // namespace

int32_t zepReadChar(HZEPIO h, void *buffer, int32_t count) { return zepRead(h, buffer, count); }
int32_t zepWriteChar(HZEPIO h, const void *buffer, int32_t count) { return zepWrite(h, buffer, count); }

int32_t zepReadShort(HZEPIO h, int16_t *buffer, int32_t count) {
    return ReadItems<2>(h, buffer, count,
                        [](uint64_t bits, Format) { return static_cast<int16_t>(bits); });
}

int32_t zepReadLong(HZEPIO h, int32_t *buffer, int32_t count) {
    return ReadItems<4>(h, buffer, count,
                        [](uint64_t bits, Format) { return static_cast<int32_t>(bits); });
}

int32_t zepReadFloat(HZEPIO h, float *buffer, int32_t count) {
    return ReadItems<4>(h, buffer, count, [](uint64_t bits, Format format) {
        auto word = static_cast<uint32_t>(bits);
        return format.fixedPoint ? DecodeFixed(word) : std::bit_cast<float>(word);
    });
}

int32_t zepReadDouble(HZEPIO h, double *buffer, int32_t count) {
    return ReadItems<8>(h, buffer, count,
                        [](uint64_t bits, Format) { return std::bit_cast<double>(bits); });
}

int32_t zepWriteShort(HZEPIO h, const int16_t *values, int32_t count) {
    return WriteItems<2>(h, values, count, [](int16_t v, Format format, uint8_t *out) {
        PutBytes<2>(out, static_cast<uint16_t>(v), format.bigEndian);
    });
}

int32_t zepWriteLong(HZEPIO h, const int32_t *values, int32_t count) {
    return WriteItems<4>(h, values, count, [](int32_t v, Format format, uint8_t *out) {
        PutBytes<4>(out, static_cast<uint32_t>(v), format.bigEndian);
    });
}

int32_t zepWriteFloat(HZEPIO h, const float *values, int32_t count) {
    return WriteItems<4>(h, values, count, [](float v, Format format, uint8_t *out) {
        if (format.fixedPoint) {
            EncodeFixed(v, out);
        } else {
            PutBytes<4>(out, std::bit_cast<uint32_t>(v), format.bigEndian);
        }
    });
}

int32_t zepWriteDouble(HZEPIO h, const double *values, int32_t count) {
    return WriteItems<8>(h, values, count, [](double v, Format format, uint8_t *out) {
        PutBytes<8>(out, std::bit_cast<uint64_t>(v), format.bigEndian);
    });
}

// The setters and getters return 0, or -1 when there is no stream.
int32_t zepSetDataFormat(HZEPIO h, int16_t endian, int16_t realFormat) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    s->tEndian = endian;
    s->tRealFormat = realFormat;
    return 0;
}

int32_t zepGetDataFormat(HZEPIO h, int16_t *endianOut, int16_t *realFormatOut) {
    const ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    if (endianOut != nullptr) *endianOut = s->tEndian;
    if (realFormatOut != nullptr) *realFormatOut = s->tRealFormat;
    return 0;
}

// Positions past the 4 bytes of the value receive zeros, as if the value
// were widened without sign.
void zepNativeToLE(uint8_t *destination, uint32_t value, int32_t n) {
    if (destination == nullptr) return;
    for (int32_t k = 0; k < n; ++k) destination[k] = k < 4 ? static_cast<uint8_t>(value >> (8 * k)) : 0;
}

void zepNativeToBE(uint8_t *destination, uint32_t value, int32_t n) {
    if (destination == nullptr) return;
    for (int32_t k = 0; k < n; ++k) destination[n - 1 - k] = k < 4 ? static_cast<uint8_t>(value >> (8 * k)) : 0;
}
