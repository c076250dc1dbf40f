// Structure layouts against a C compiler: records read by zepReadStruct land
// where the compiler puts the same fields, with the values that were packed
// into the stream; and random records survive a write and a read.
#include <bit>
#include <cmath>
#include <random>

#include "zep_xxxx/structlayouts.h"
#include "zep_xxxx/zepstruct.h"
#include "zep_xxxx/zeptest.h"

namespace {

using namespace zeptest;

int ItemBytes(char t) { return t == 'C' ? 1 : t == 'S' ? 2 : t == 'D' ? 8 : 4; }

void Pack(Bytes &out, uint64_t bits, int n, bool bigEndian) {
    for (int k = 0; k < n; ++k) out.push_back(static_cast<uint8_t>(bits >> (8 * (bigEndian ? n - 1 - k : k))));
}

// A random finite value's bits for the item type, and the native bytes a
// reader must produce for it.
struct Item {
    uint64_t streamBits;
    Bytes native;
};

Item RandomItem(char t, bool fixedPoint, std::mt19937_64 &rng) {
    Item item{};
    auto nativeOf = [](const auto &value) {
        Bytes b(sizeof value);
        std::memcpy(b.data(), &value, sizeof value);
        return b;
    };
    switch (t) {
    case 'C': {
        auto v = static_cast<uint8_t>(rng());
        return {v, nativeOf(v)};
    }
    case 'S': {
        auto v = static_cast<int16_t>(rng());
        return {static_cast<uint16_t>(v), nativeOf(v)};
    }
    case 'L': {
        auto v = static_cast<int32_t>(rng());
        return {static_cast<uint32_t>(v), nativeOf(v)};
    }
    case 'F': {
        if (fixedPoint) {
            auto k = static_cast<int32_t>(rng());
            float v = static_cast<float>(k / 65536.0);
            return {static_cast<uint32_t>(k), nativeOf(v)};
        }
        float v;
        do v = std::bit_cast<float>(static_cast<uint32_t>(rng()));
        while (!std::isfinite(v));
        return {std::bit_cast<uint32_t>(v), nativeOf(v)};
    }
    default: {
        double v;
        do v = std::bit_cast<double>(rng());
        while (!std::isfinite(v));
        return {std::bit_cast<uint64_t>(v), nativeOf(v)};
    }
    }
}

HZEPIO OpenOver(const TempDir &dir, const Bytes &bytes, int16_t endian, int16_t real) {
    std::string path = dir.Path("packed.bin");
    WriteFile(path, bytes);
    HZEPIO h = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
    zepSetDataFormat(h, endian, real);
    return h;
}

TEST(StructLayoutAgainstTheCompiler, RecordsLandWhereTheCompilerPutsTheFields) {
    LeakCheck leaks;
    ASSERT_GE(layouts::All().size(), 30u);
    std::mt19937_64 rng(99);
    constexpr int kRecords = 3;
    for (const layouts::Layout &layout : layouts::All()) {
        EXPECT_EQ(mivo4::zep::LayoutRecordSize(layout.descriptor, false), static_cast<int64_t>(layout.size))
            << layout.descriptor;
        for (int16_t endian : {0, 1}) {
            for (int16_t real : {0, 1}) {
                Bytes stream;
                std::vector<std::pair<size_t, Bytes>> expected;  // memory offset, native bytes
                for (int r = 0; r < kRecords; ++r) {
                    for (const layouts::Field &f : layout.fields) {
                        for (int k = 0; k < f.count; ++k) {
                            Item item = RandomItem(f.type, real == 1, rng);
                            Pack(stream, item.streamBits, ItemBytes(f.type), endian == 1);
                            expected.push_back({r * layout.size + f.offset + size_t(k) * ItemBytes(f.type), item.native});
                        }
                    }
                }
                TempDir dir;
                HZEPIO h = OpenOver(dir, stream, endian, real);
                ASSERT_NE(h, 0u);
                // Doubles in memory want 8-byte alignment, as the compiler's records have.
                std::vector<double> block(layout.size * kRecords / 8 + 2);
                auto *memory = reinterpret_cast<uint8_t *>(block.data());
                EXPECT_EQ(zepReadStruct(h, layout.descriptor, memory, kRecords), kRecords) << layout.descriptor;
                EXPECT_EQ(zepSeek(h, 0, 1), static_cast<int32_t>(stream.size())) << layout.descriptor;
                for (const auto &[offset, native] : expected) {
                    ASSERT_EQ(Bytes(memory + offset, memory + offset + native.size()), native)
                        << layout.descriptor << " at " << offset << " endian " << endian << " real " << real;
                }
                zepClose(h);
            }
        }
    }
}

// A random descriptor of fields, nested records and memory-only stretches,
// and the stream items it packs, in order.
struct RandomDescriptor {
    std::string text;
    std::vector<char> packed;  // one type letter per stream item
};

RandomDescriptor MakeDescriptor(std::mt19937_64 &rng) {
    RandomDescriptor d;
    int depth = 0;
    bool outside = false;
    int items = 1 + static_cast<int>(rng() % 10);
    for (int i = 0; i < items; ++i) {
        switch (rng() % 8) {
        case 0:
            if (depth < 3) {
                d.text += '{';
                ++depth;
            }
            break;
        case 1:
            if (depth > 0) {
                d.text += '}';
                --depth;
            }
            break;
        case 2:
            d.text += outside ? ']' : '[';
            outside = !outside;
            break;
        default: {
            char t = "CSLFD"[rng() % 5];
            int count = 1 + static_cast<int>(rng() % 4);
            if (count > 1 || rng() % 2 == 0) d.text += std::to_string(count);
            d.text += rng() % 4 == 0 ? static_cast<char>(std::tolower(t)) : t;
            if (!outside)
                for (int k = 0; k < count; ++k) d.packed.push_back(t);
        }
        }
    }
    return d;
}

TEST(StructLayoutAgainstTheCompiler, RandomRecordsSurviveAReadAndAWriteInBothByteOrders) {
    LeakCheck leaks;
    std::mt19937_64 rng(7);
    for (int round = 0; round < 300; ++round) {
        RandomDescriptor d = MakeDescriptor(rng);
        const int16_t endian = static_cast<int16_t>(round % 2);
        const int records = 1 + static_cast<int>(rng() % 4);
        Bytes stream;
        for (int r = 0; r < records; ++r)
            for (char t : d.packed) Pack(stream, RandomItem(t, false, rng).streamBits, ItemBytes(t), endian == 1);
        const int64_t size = mivo4::zep::LayoutRecordSize(d.text.c_str(), false);
        ASSERT_EQ(size, mivo4::zep::LayoutRecordSize(d.text.c_str(), true)) << d.text;
        std::vector<double> block1(static_cast<size_t>(size * records / 8 + 2), 0.0);
        std::vector<double> block2 = block1;
        TempDir dir;
        HZEPIO in = OpenOver(dir, stream, endian, 0);
        ASSERT_EQ(zepReadStruct(in, d.text.c_str(), block1.data(), records), records) << d.text;
        zepClose(in);

        std::string path = dir.Path("again.bin");
        HZEPIO out = zepOpen(path.c_str(), nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
        zepSetDataFormat(out, endian, 0);
        int32_t wrote = zepWriteStruct(out, d.text.c_str(), block1.data(), records);
        zepClose(out);
        if (d.packed.empty()) continue;
        ASSERT_EQ(wrote, records) << d.text;
        ASSERT_EQ(ReadFile(path), stream) << d.text;

        HZEPIO again = zepOpen(path.c_str(), nullptr, ZEP_OPEN_READ);
        zepSetDataFormat(again, endian, 0);
        ASSERT_EQ(zepReadStruct(again, d.text.c_str(), block2.data(), records), records) << d.text;
        zepClose(again);
        ASSERT_EQ(std::memcmp(block1.data(), block2.data(), block1.size() * sizeof(double)), 0) << d.text;
    }
}

}  // namespace
