// Streams inside a compound document: positions in the inner stream are
// turned into positions in the containing file through the document's
// allocation tables, and read through the file's own buffered path. The
// record's tables, first sectors and length are filled by docOpenStream,
// which has checked every chain these routines follow.
#include <mivo4/docfile.h>

#include <climits>
#include <optional>

#include "zep_xxxx/zepio.h"

using namespace mivo4::zep;

namespace {

// The routines use the format's usual sizes whatever a header says; the
// opener refuses documents that use others.
constexpr int64_t kSector = 512;
constexpr int64_t kMiniSector = 64;
constexpr uint32_t kMiniCutoff = 4096;  // streams this long or longer live in regular sectors
constexpr uint32_t kEndOfChain = 0xFFFFFFFEu;

// A locked table of 32-bit sector numbers and how many it holds.
struct Table {
    const uint32_t *next = nullptr;
    uint32_t count = 0;

    explicit Table(ZHANDLE h) {
        next = static_cast<const uint32_t *>(GlobalLock(h));
        if (next != nullptr) count = GlobalSize(h) / sizeof(uint32_t);
    }
    // The sector after s. A sector the table does not hold ends the chain:
    // never the case in a document the opener accepted, but a record filled
    // by hand must not make us read outside the table.
    uint32_t Next(uint32_t s) const { return s < count ? next[s] : kEndOfChain; }
    uint32_t Follow(uint32_t start, uint64_t steps) const {
        uint32_t s = start;
        for (uint64_t i = 0; i < steps; ++i) {
            if (s >= count) return kEndOfChain;
            s = next[s];
        }
        return s;
    }
};

// Where the last read of a large stream ended: the sector at a place of the
// chain. The next read follows the table from there instead of from the
// stream's first sector, which makes reading a stream from start to end cost
// one table step a sector rather than a walk from the start every call. The
// sectors found are the same. Kept in a block of the stream record's own
// (hIOStruct), made on the first read and freed with the stream; when it
// cannot be had, every read starts from the first sector.
struct ChainCursor {
    ZHANDLE fat;     // the table and first sector it was found with
    uint32_t start;
    uint32_t index;  // the sector's place in the chain
    uint32_t sector;
};

ChainCursor *Cursor(ZEPIODATA &s) {
    if (s.hIOStruct == 0 || GlobalSize(s.hIOStruct) != sizeof(ChainCursor)) {
        GlobalFree(s.hIOStruct);
        s.hIOStruct = GlobalAlloc(GHND, sizeof(ChainCursor));
        auto *fresh = static_cast<ChainCursor *>(GlobalLock(s.hIOStruct));
        if (fresh == nullptr) return nullptr;
        *fresh = {0, 0, UINT32_MAX, 0};  // matches no read
        return fresh;
    }
    return static_cast<ChainCursor *>(GlobalLock(s.hIOStruct));
}

// One piece of the inner stream: seek the file there, read n bytes. Returns
// what the read returned, or nothing when the file could not be positioned
// there (then the read would take bytes from wherever the file was; the
// opener's checks make that impossible for a document it accepted).
std::optional<int32_t> ReadPiece(HZEPIO h, int64_t position, uint8_t *out, int32_t n) {
    if (position > INT32_MAX) return std::nullopt;
    auto where = static_cast<int32_t>(position);
    if (zepSeek(h, where, 0) != where) return std::nullopt;
    return zepRead(h, out, n);
}

// Reads a stream of regular sectors. Runs of consecutive sectors are read in
// one piece; where a read comes up short, the position advances as it would
// have, piece by piece, to the end of the sector in which the read stopped.
int32_t ReadLarge(HZEPIO h, ZEPIODATA &s, uint8_t *out, int64_t remaining) {
    Table fat(s.hFAT);
    const uint64_t firstIndex = static_cast<uint64_t>(s.docOffset) / kSector;
    ChainCursor *cursor = Cursor(s);
    uint32_t sector;
    uint64_t index = firstIndex;
    if (cursor != nullptr && cursor->fat == s.hFAT && cursor->start == s.Start && cursor->index <= firstIndex) {
        sector = fat.Follow(cursor->sector, firstIndex - cursor->index);
    } else {
        sector = fat.Follow(s.Start, firstIndex);
    }
    int32_t total = 0;
    while (remaining > 0) {
        int64_t within = s.docOffset % kSector;
        int64_t first = std::min(kSector - within, remaining);
        int64_t n = first;
        uint32_t last = sector;
        while (n < remaining && last < fat.count && fat.next[last] == last + 1) {
            ++last;
            n = std::min(n + kSector, remaining);
        }
        auto piece = ReadPiece(h, (int64_t{sector} + 1) * kSector + within, out, static_cast<int32_t>(n));
        if (!piece) break;
        int64_t got = *piece;
        int64_t advance = n;
        bool shortRead = got < n;
        if (shortRead) {
            // The first piece ends at `first`, every later one 512 bytes on.
            int64_t read = std::max<int64_t>(got, 0);
            advance = read < first ? first : std::min(first + ((read - first) / kSector + 1) * kSector, n);
        }
        out += advance;
        s.docOffset += static_cast<int32_t>(advance);
        total += static_cast<int32_t>(advance);
        remaining -= advance;
        index += last - sector;
        if (cursor != nullptr) *cursor = {s.hFAT, s.Start, static_cast<uint32_t>(index), last};
        if (shortRead) break;
        sector = fat.Next(last);
        ++index;
    }
    return total;
}

// Reads a stream of mini sectors, one mini sector at a time. Where each lies
// in the file is found by following the mini stream's chain from its start.
int32_t ReadSmall(HZEPIO h, ZEPIODATA &s, uint8_t *out, int64_t remaining) {
    Table mini(s.hMiniFAT);
    Table fat(s.hFAT);
    uint32_t sector = mini.Follow(s.Start, static_cast<uint64_t>(s.docOffset) / kMiniSector);
    int32_t total = 0;
    while (remaining > 0) {
        int64_t within = s.docOffset % kMiniSector;
        int64_t n = std::min(kMiniSector - within, remaining);
        int64_t place = int64_t{sector} * kMiniSector + within;  // in the mini stream
        uint32_t holder = fat.Follow(s.MiniStart, static_cast<uint64_t>(place / kSector));
        auto got = ReadPiece(h, (int64_t{holder} + 1) * kSector + place % kSector, out, static_cast<int32_t>(n));
        if (!got) break;
        out += n;
        s.docOffset += static_cast<int32_t>(n);
        total += static_cast<int32_t>(n);
        remaining -= n;
        if (*got < n) break;
        sector = mini.Next(sector);
    }
    return total;
}

}  // namespace

uint32_t GetCurrentSect(uint32_t start, uint32_t offset, uint32_t sectorSize, ZHANDLE table) {
    if (sectorSize == 0) return start;
    return Table(table).Follow(start, offset / sectorSize);
}

int32_t docRead(HZEPIO h, void *buffer, int32_t count) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr || buffer == nullptr || count <= 0) return 0;
    // The reads below go to the containing file while the flag is down.
    s->isDocFile = 0;
    int64_t remaining = std::min<int64_t>(count, int64_t{s->Length} - s->docOffset);
    remaining = std::min<int64_t>(remaining, INT32_MAX - int64_t{s->docOffset});
    int32_t total = 0;
    if (remaining > 0 && s->docOffset >= 0) {
        auto *out = static_cast<uint8_t *>(buffer);
        total = s->Length >= kMiniCutoff ? ReadLarge(h, *s, out, remaining) : ReadSmall(h, *s, out, remaining);
    }
    s->isDocFile = 1;
    return total;
}

int32_t docSeek(HZEPIO h, int32_t offset, int32_t whence) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    int64_t target = offset;
    // From the end a positive offset counts back: docSeek(h, 10, 2) is ten
    // bytes before the end. Hosts of document streams were written so.
    if (whence == 2) {
        target = int64_t{s->Length} - offset;
        whence = 0;
    }
    if (whence == 1) {
        target += s->docOffset;
    } else if (whence != 0) {
        return -1;
    }
    // Never before the start nor past the end of the inner stream.
    target = std::clamp<int64_t>(target, 0, std::min<int64_t>(s->Length, INT32_MAX));
    s->docOffset = static_cast<int32_t>(target);
    return s->docOffset;
}
