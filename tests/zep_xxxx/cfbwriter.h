// A small compound-document writer of the tests' own, so that layouts the
// common tools never make (fragmented, damaged) can be built. It depends on
// nothing but the standard library, so that benchmarks can use it too.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace cfbtest {

using Bytes = std::vector<uint8_t>;

inline constexpr uint32_t kFree = 0xFFFFFFFFu;
inline constexpr uint32_t kEnd = 0xFFFFFFFEu;
inline constexpr uint32_t kFatMark = 0xFFFFFFFDu;
inline constexpr uint32_t kDifMark = 0xFFFFFFFCu;

inline void PutLe16(Bytes &b, size_t at, uint32_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
inline void PutLe32(Bytes &b, size_t at, uint32_t v) {
    for (int k = 0; k < 4; ++k) b[at + k] = static_cast<uint8_t>(v >> (8 * k));
}
inline uint32_t GetLe32(const Bytes &b, size_t at) {
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 | uint32_t{b[at + 3]} << 24;
}
inline size_t SectorAt(uint32_t sector) { return (size_t{sector} + 1) * 512; }

struct DocStream {
    std::string name;  // ASCII
    Bytes data;
};

// A version 3 document with every stream at the root, laid out as:
// FAT sectors, DIFAT sectors, directory, mini table, mini stream, then the
// large streams, one after another or (interleave) a sector of each in turn.
struct BuiltDoc {
    Bytes bytes;
    std::vector<uint32_t> fat;
    uint32_t fatSectors = 0, difSectors = 0, dirStart = 0, miniFatStart = kEnd, miniStreamStart = kEnd;
    std::vector<uint32_t> starts;  // first (mini) sector of each stream
    size_t EntryAt(uint32_t entry) const { return SectorAt(dirStart + entry / 4) + (entry % 4) * 128; }
    size_t FatEntryAt(uint32_t sector) const { return 512 + size_t{sector} * 4; }
    void SetFat(uint32_t sector, uint32_t next) {
        fat[sector] = next;
        PutLe32(bytes, FatEntryAt(sector), next);
    }
};

inline BuiltDoc BuildDoc(const std::vector<DocStream> &streams, bool interleave = false) {
    BuiltDoc d;
    Bytes miniStream;
    std::vector<uint32_t> miniFat;
    std::vector<uint32_t> starts(streams.size(), kEnd);
    for (size_t i = 0; i < streams.size(); ++i) {
        const Bytes &data = streams[i].data;
        if (data.empty() || data.size() >= 4096) continue;
        auto first = static_cast<uint32_t>(miniFat.size());
        size_t n = (data.size() + 63) / 64;
        for (size_t k = 0; k < n; ++k) miniFat.push_back(k + 1 < n ? first + static_cast<uint32_t>(k) + 1 : kEnd);
        starts[i] = first;
        miniStream.insert(miniStream.end(), data.begin(), data.end());
        miniStream.resize(miniFat.size() * 64, 0);
    }
    const uint32_t entries = 1 + static_cast<uint32_t>(streams.size());
    const uint32_t dirSectors = (entries + 3) / 4;
    const auto miniFatSectors = static_cast<uint32_t>((miniFat.size() + 127) / 128);
    const auto miniStreamSectors = static_cast<uint32_t>((miniStream.size() + 511) / 512);
    std::vector<uint32_t> large(streams.size(), 0);
    uint32_t data = dirSectors + miniFatSectors + miniStreamSectors;
    for (size_t i = 0; i < streams.size(); ++i) {
        if (streams[i].data.size() >= 4096) large[i] = static_cast<uint32_t>((streams[i].data.size() + 511) / 512);
        data += large[i];
    }
    uint32_t nFat = 1, nDif = 0;
    for (;; ++nFat) {
        nDif = nFat > 109 ? (nFat - 109 + 126) / 127 : 0;
        if (uint64_t{nFat} * 128 >= uint64_t{data} + nFat + nDif) break;
    }
    const uint32_t total = data + nFat + nDif;
    d.fat.assign(size_t{nFat} * 128, kFree);
    d.fatSectors = nFat;
    d.difSectors = nDif;
    uint32_t next = 0;
    for (uint32_t i = 0; i < nFat; ++i) d.fat[next++] = kFatMark;
    for (uint32_t i = 0; i < nDif; ++i) d.fat[next++] = kDifMark;
    auto chain = [&](uint32_t first, uint32_t n) {
        for (uint32_t k = 0; k < n; ++k) d.fat[first + k] = k + 1 < n ? first + k + 1 : kEnd;
    };
    d.dirStart = next;
    chain(next, dirSectors);
    next += dirSectors;
    if (miniFatSectors > 0) {
        d.miniFatStart = next;
        chain(next, miniFatSectors);
        next += miniFatSectors;
    }
    if (miniStreamSectors > 0) {
        d.miniStreamStart = next;
        chain(next, miniStreamSectors);
        next += miniStreamSectors;
    }
    // Sectors of the large streams, in the order they are laid out.
    std::vector<std::vector<uint32_t>> owned(streams.size());
    if (interleave) {
        for (bool more = true; more;) {
            more = false;
            for (size_t i = 0; i < streams.size(); ++i) {
                if (owned[i].size() < large[i]) {
                    owned[i].push_back(next++);
                    more = true;
                }
            }
        }
    } else {
        for (size_t i = 0; i < streams.size(); ++i)
            for (uint32_t k = 0; k < large[i]; ++k) owned[i].push_back(next++);
    }
    for (size_t i = 0; i < streams.size(); ++i) {
        if (owned[i].empty()) continue;
        starts[i] = owned[i][0];
        for (size_t k = 0; k < owned[i].size(); ++k) d.fat[owned[i][k]] = k + 1 < owned[i].size() ? owned[i][k + 1] : kEnd;
    }

    Bytes &b = d.bytes;
    b.assign(SectorAt(total), 0);
    static const uint8_t sig[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::copy(sig, sig + 8, b.begin());
    PutLe16(b, 24, 0x3E);
    PutLe16(b, 26, 3);
    PutLe16(b, 28, 0xFFFE);
    PutLe16(b, 30, 9);
    PutLe16(b, 32, 6);
    PutLe32(b, 44, nFat);
    PutLe32(b, 48, d.dirStart);
    PutLe32(b, 56, 4096);
    PutLe32(b, 60, d.miniFatStart);
    PutLe32(b, 64, miniFatSectors);
    PutLe32(b, 68, nDif > 0 ? nFat : kEnd);
    PutLe32(b, 72, nDif);
    for (uint32_t i = 0; i < 109; ++i) PutLe32(b, 76 + 4 * i, i < nFat ? i : kFree);
    for (uint32_t s = 0; s < nDif; ++s) {
        size_t at = SectorAt(nFat + s);
        for (uint32_t k = 0; k < 127; ++k) {
            uint32_t f = 109 + s * 127 + k;
            PutLe32(b, at + 4 * k, f < nFat ? f : kFree);
        }
        PutLe32(b, at + 4 * 127, s + 1 < nDif ? nFat + s + 1 : kEnd);
    }
    for (size_t k = 0; k < d.fat.size(); ++k) PutLe32(b, 512 + 4 * k, d.fat[k]);
    for (size_t k = 0; k < miniFat.size(); ++k) PutLe32(b, SectorAt(d.miniFatStart) + 4 * k, miniFat[k]);
    std::copy(miniStream.begin(), miniStream.end(), b.begin() + static_cast<std::ptrdiff_t>(SectorAt(d.miniStreamStart == kEnd ? 0 : d.miniStreamStart)));
    for (uint32_t e = 0; e < dirSectors * 4; ++e) {
        size_t at = SectorAt(d.dirStart + e / 4) + (e % 4) * 128;
        PutLe32(b, at + 68, kFree);
        PutLe32(b, at + 72, kFree);
        PutLe32(b, at + 76, kFree);
        if (e >= entries) continue;
        std::string name = e == 0 ? "Root Entry" : streams[e - 1].name;
        for (size_t k = 0; k < name.size() && k < 31; ++k) PutLe16(b, at + 2 * k, static_cast<uint8_t>(name[k]));
        PutLe16(b, at + 64, static_cast<uint32_t>(2 * (std::min<size_t>(name.size(), 31) + 1)));
        b[at + 66] = e == 0 ? 5 : 2;
        b[at + 67] = 1;  // black
        if (e == 0) {
            if (entries > 1) PutLe32(b, at + 76, 1);
            PutLe32(b, at + 116, miniStream.empty() ? kEnd : d.miniStreamStart);
            PutLe32(b, at + 120, static_cast<uint32_t>(miniStream.size()));
        } else {
            if (e + 1 < entries) PutLe32(b, at + 72, e + 1);
            PutLe32(b, at + 116, starts[e - 1]);
            PutLe32(b, at + 120, static_cast<uint32_t>(streams[e - 1].data.size()));
        }
    }
    for (size_t i = 0; i < streams.size(); ++i) {
        const Bytes &data = streams[i].data;
        if (data.size() < 4096) continue;
        for (size_t k = 0; k < owned[i].size(); ++k) {
            size_t n = std::min<size_t>(512, data.size() - k * 512);
            std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(k * 512), n,
                        b.begin() + static_cast<std::ptrdiff_t>(SectorAt(owned[i][k])));
        }
    }
    d.starts = starts;
    return d;
}

}  // namespace cfbtest
