// Reading and checking a compound document's header, allocation table,
// directory and mini table.
#include <cstring>

#include "zep_xxxx/cfbdoc.h"

namespace mivo4::zep::cfb {

namespace {

constexpr uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

uint16_t Le16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t Le32(const uint8_t *p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

DOCDIRENTRY ParseEntry(const uint8_t *p) {
    DOCDIRENTRY e{};
    for (int i = 0; i < 32; ++i) e.szName[i] = Le16(p + 2 * i);
    e.ByteCount = Le16(p + 64);
    e.EntryFlags = p[66];
    e.BFlags = p[67];
    e.LeftSib = Le32(p + 68);
    e.RightSib = Le32(p + 72);
    e.Child = Le32(p + 76);
    std::memcpy(e.ClassId, p + 80, 16);
    e.UserFlags = Le32(p + 96);
    std::memcpy(e.CreateTime, p + 100, 8);
    std::memcpy(e.ModifyTime, p + 108, 8);
    e.StartSect = Le32(p + 116);
    e.StreamSize = Le32(p + 120);  // the high half (124) is not used by version 3 documents
    e.PropType = Le16(p + 124);
    std::memcpy(e.Padding, p + 126, 2);
    return e;
}

}  // namespace

Document::~Document() {
    if (h != 0) zepClose(h);
}

bool Document::ReadSector(uint32_t sector, uint8_t *out) const {
    if (sector >= sectors) return false;
    auto position = static_cast<int32_t>((int64_t{sector} + 1) * kSectorSize);
    if (zepSeek(h, position, 0) != position) return false;
    return zepRead(h, out, kSectorSize) == static_cast<int32_t>(kSectorSize);
}

int32_t Document::Load(const char *file) {
    // zepOpen takes "stdin" and "stdout" for the standard streams; a document
    // is always a named file, so those names mean files in the current
    // directory here (and closing the stream never closes standard output).
    std::string name = file;
    if (name == "stdin" || name == "stdout") name = "./" + name;
    h = zepOpen(name.c_str(), nullptr, ZEP_OPEN_READ);
    if (h == 0) return DOC_E_OPEN;
    ZEPIODATA *s = LockStream(h);
    int32_t length = 0;
    if (s == nullptr || s->hFileHandle == nullptr || !FileLength(s->hFileHandle, length)) return DOC_E_OPEN;
    // A trailing part of a sector is not addressable: every sector a chain
    // names must lie wholly in the file.
    sectors = length >= static_cast<int32_t>(kSectorSize) ? static_cast<uint32_t>(length) / kSectorSize - 1 : 0;
    if (int32_t r = LoadHeader(); r != DOC_OK) return r;
    if (int32_t r = LoadFat(); r != DOC_OK) return r;
    if (int32_t r = LoadDirectory(); r != DOC_OK) return r;
    return WalkTree();
}

int32_t Document::LoadHeader() {
    uint8_t raw[kSectorSize];
    if (zepSeek(h, 0, 0) != 0 || zepRead(h, raw, kSectorSize) != static_cast<int32_t>(kSectorSize)) {
        return DOC_E_NOTDOC;
    }
    if (std::memcmp(raw, kSignature, 8) != 0) return DOC_E_NOTDOC;
    DOCHEADER &d = header;
    std::memcpy(d.Signature, raw, 8);
    std::memcpy(d.Reserved, raw + 8, 16);
    d.MinorVers = Le16(raw + 24);
    d.MajorVers = Le16(raw + 26);
    d.ByteOrder = Le16(raw + 28);
    d.SectShift = Le16(raw + 30);
    d.MiniSectShift = Le16(raw + 32);
    std::memcpy(d.Reserved0, raw + 34, 2);
    std::memcpy(d.Reserved1, raw + 36, 4);
    std::memcpy(d.Reserved2, raw + 40, 4);
    d.FatLength = Le32(raw + 44);
    d.DirStart = Le32(raw + 48);
    d.DfSig = Le32(raw + 52);
    d.MiniFatCutoff = Le32(raw + 56);
    d.MiniFatStart = Le32(raw + 60);
    d.MiniFatLen = Le32(raw + 64);
    d.DifStart = Le32(raw + 68);
    d.DifLength = Le32(raw + 72);
    if (d.ByteOrder != 0xFFFE) return DOC_E_NOTDOC;
    // The stream routines work with 512-byte sectors, 64-byte mini sectors
    // and the 4096-byte cutoff; a document laid out otherwise (version 4,
    // with its 4096-byte sectors) would be misread, so it is refused.
    if (d.MajorVers == 4) return DOC_E_VERSION;
    if (d.MajorVers != 3) return DOC_E_NOTDOC;
    if (d.SectShift != 9 || d.MiniSectShift != 6 || d.MiniFatCutoff != kMiniCutoff) return DOC_E_VERSION;
    // The first 109 sector numbers of the FAT live in the header.
    fatCount = 0;
    std::memcpy(headerFat_, raw + 76, sizeof headerFat_);
    return DOC_OK;
}

int32_t Document::LoadFat() {
    const DOCHEADER &d = header;
    // Every FAT sector is a sector of the file, so a longer FAT cannot be.
    if (d.FatLength == 0 || d.FatLength > sectors) return DOC_E_FAT;
    tableSectors.assign(sectors, 0);
    std::vector<uint32_t> fatSectors;
    fatSectors.reserve(d.FatLength);
    auto take = [&](uint32_t sector) {
        if (sector >= sectors || tableSectors[sector] != 0) return false;
        tableSectors[sector] = 1;
        fatSectors.push_back(sector);
        return true;
    };
    for (uint32_t i = 0; i < kHeaderFatEntries && fatSectors.size() < d.FatLength; ++i) {
        if (!take(Le32(headerFat_ + 4 * i))) return DOC_E_FAT;
    }
    // Beyond 109 FAT sectors the index goes on in DIFAT sectors of 127
    // numbers each, the 128th naming the next DIFAT sector.
    uint32_t dif = d.DifStart;
    uint8_t raw[kSectorSize];
    while (fatSectors.size() < d.FatLength) {
        if (dif >= sectors || tableSectors[dif] != 0 || !ReadSector(dif, raw)) return DOC_E_FAT;
        tableSectors[dif] = 1;
        for (uint32_t i = 0; i < kEntriesPerSector - 1 && fatSectors.size() < d.FatLength; ++i) {
            if (!take(Le32(raw + 4 * i))) return DOC_E_FAT;
        }
        dif = Le32(raw + 4 * (kEntriesPerSector - 1));
    }
    fat = OwnedHandle(GlobalAlloc(GHND, d.FatLength * kSectorSize));
    auto *table = static_cast<uint32_t *>(GlobalLock(fat.get()));
    if (table == nullptr) return DOC_E_NOMEM;
    for (uint32_t i = 0; i < d.FatLength; ++i) {
        if (!ReadSector(fatSectors[i], raw)) return DOC_E_FAT;
        for (uint32_t k = 0; k < kEntriesPerSector; ++k) table[i * kEntriesPerSector + k] = Le32(raw + 4 * k);
    }
    fatCount = d.FatLength * kEntriesPerSector;
    return DOC_OK;
}

// A chain of unknown length (the directory's, the mini table's): sectors in
// the file, none twice, none holding the FAT, ended by the end marker.
// Returns false when it is damaged or longer than `limit` sectors.
static bool OpenChain(const Document &doc, uint32_t start, uint32_t limit, std::vector<uint32_t> &out) {
    const auto *table = static_cast<const uint32_t *>(GlobalLock(doc.fat.get()));
    std::vector<uint8_t> seen(doc.sectors, 0);
    out.clear();
    for (uint32_t s = start; s != kEndOfChain;) {
        if (s >= doc.sectors || s >= doc.fatCount || seen[s] != 0 || doc.tableSectors[s] != 0) return false;
        if (out.size() >= limit) return false;
        seen[s] = 1;
        out.push_back(s);
        s = table[s];
    }
    return true;
}

int32_t Document::LoadDirectory() {
    std::vector<uint32_t> chain;
    if (!OpenChain(*this, header.DirStart, sectors, chain) || chain.empty()) return DOC_E_DIRECTORY;
    entries.clear();
    entries.reserve(chain.size() * (kSectorSize / sizeof(DOCDIRENTRY)));
    uint8_t raw[kSectorSize];
    for (uint32_t sector : chain) {
        if (!ReadSector(sector, raw)) return DOC_E_DIRECTORY;
        for (uint32_t k = 0; k < kSectorSize / sizeof(DOCDIRENTRY); ++k) {
            entries.push_back(ParseEntry(raw + k * sizeof(DOCDIRENTRY)));
        }
    }
    if (entries[0].EntryFlags != kTypeRoot) return DOC_E_DIRECTORY;
    return DOC_OK;
}

int32_t Document::LoadMini() {
    const DOCHEADER &d = header;
    const DOCDIRENTRY &root = entries[0];
    if (d.MiniFatLen == 0) {
        if (d.MiniFatStart != kEndOfChain && d.MiniFatStart != kFreeSect) return DOC_E_MINI;
    } else {
        std::vector<uint32_t> chain;
        if (d.MiniFatLen > sectors || !OpenChain(*this, d.MiniFatStart, d.MiniFatLen, chain) ||
            chain.size() != d.MiniFatLen) {
            return DOC_E_MINI;
        }
        miniFat = OwnedHandle(GlobalAlloc(GHND, d.MiniFatLen * kSectorSize));
        auto *table = static_cast<uint32_t *>(GlobalLock(miniFat.get()));
        if (table == nullptr) return DOC_E_NOMEM;
        uint8_t raw[kSectorSize];
        for (uint32_t i = 0; i < d.MiniFatLen; ++i) {
            if (!ReadSector(chain[i], raw)) return DOC_E_MINI;
            for (uint32_t k = 0; k < kEntriesPerSector; ++k) table[i * kEntriesPerSector + k] = Le32(raw + 4 * k);
        }
        miniFatCount = d.MiniFatLen * kEntriesPerSector;
    }
    // The mini stream is the root entry's stream, in regular sectors.
    if (root.StreamSize > INT32_MAX) return DOC_E_MINI;
    if (root.StreamSize > 0 && !ChainCovers(root.StartSect, root.StreamSize)) return DOC_E_MINI;
    return DOC_OK;
}

bool Document::ChainCovers(uint32_t start, uint32_t size) const {
    const auto *table = static_cast<const uint32_t *>(GlobalLock(fat.get()));
    uint64_t needed = (uint64_t{size} + kSectorSize - 1) / kSectorSize;
    if (needed > sectors) return false;
    std::vector<uint8_t> seen(sectors, 0);
    uint32_t s = start;
    for (uint64_t i = 0; i < needed; ++i) {
        if (s >= sectors || s >= fatCount || seen[s] != 0 || tableSectors[s] != 0) return false;
        seen[s] = 1;
        s = table[s];
    }
    // What follows the covering sectors is never read; a longer chain is
    // accepted, but a free marker means the chain was never finished.
    return needed == 0 || s != kFreeSect;
}

bool Document::MiniChainCovers(uint32_t start, uint32_t size) const {
    const auto *table = static_cast<const uint32_t *>(GlobalLock(miniFat.get()));
    uint64_t needed = (uint64_t{size} + kMiniSectorSize - 1) / kMiniSectorSize;
    // Mini sectors that the mini stream's checked chain holds.
    uint64_t inStream = (uint64_t{entries[0].StreamSize} + kMiniSectorSize - 1) / kMiniSectorSize;
    uint64_t usable = std::min<uint64_t>(inStream, miniFatCount);
    if (needed > usable) return false;
    std::vector<uint8_t> seen(usable, 0);
    uint32_t s = start;
    for (uint64_t i = 0; i < needed; ++i) {
        if (s >= usable || seen[s] != 0) return false;
        seen[s] = 1;
        s = table[s];
    }
    return needed == 0 || s != kFreeSect;
}

}  // namespace mivo4::zep::cfb
