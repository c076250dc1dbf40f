// Reading a compound document's structure: header, allocation tables,
// directory. Everything that docRead and docSeek will follow is checked here
// first, since they follow chains without looking.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zep_xxxx/zepio.h"

// One directory entry of the format, as stored (128 bytes, little-endian).
struct DOCDIRENTRY {
    uint16_t szName[32];  // UTF-16 name, zero-terminated
    uint16_t ByteCount;   // bytes of the name, terminator included
    uint8_t EntryFlags;   // 0 unused, 1 storage, 2 stream, 5 root
    uint8_t BFlags;       // red-black colour
    uint32_t LeftSib;
    uint32_t RightSib;
    uint32_t Child;
    uint8_t ClassId[16];
    uint32_t UserFlags;
    uint8_t CreateTime[8];
    uint8_t ModifyTime[8];
    uint32_t StartSect;
    uint32_t StreamSize;
    uint16_t PropType;
    uint8_t Padding[2];
};
static_assert(sizeof(DOCDIRENTRY) == 128, "a directory entry is 128 packed bytes");

namespace mivo4::zep::cfb {

inline constexpr uint32_t kSectorSize = 512;
inline constexpr uint32_t kMiniSectorSize = 64;
inline constexpr uint32_t kMiniCutoff = 4096;
inline constexpr uint32_t kEntriesPerSector = kSectorSize / 4;
inline constexpr uint32_t kHeaderFatEntries = 109;
inline constexpr uint32_t kLastRegular = 0xFFFFFFFAu;  // sector numbers above this are markers
inline constexpr uint32_t kEndOfChain = 0xFFFFFFFEu;
inline constexpr uint32_t kFreeSect = 0xFFFFFFFFu;
inline constexpr uint32_t kNoStream = 0xFFFFFFFFu;

inline constexpr uint8_t kTypeStorage = 1;
inline constexpr uint8_t kTypeStream = 2;
inline constexpr uint8_t kTypeRoot = 5;

// A memory handle freed at the end of its scope unless released.
class OwnedHandle {
public:
    OwnedHandle() = default;
    explicit OwnedHandle(ZHANDLE h) : h_(h) {}
    OwnedHandle(const OwnedHandle &) = delete;
    OwnedHandle &operator=(const OwnedHandle &) = delete;
    OwnedHandle(OwnedHandle &&other) noexcept : h_(other.release()) {}
    OwnedHandle &operator=(OwnedHandle &&other) noexcept {
        if (this != &other) {
            GlobalFree(h_);
            h_ = other.release();
        }
        return *this;
    }
    ~OwnedHandle() { GlobalFree(h_); }
    ZHANDLE get() const { return h_; }
    ZHANDLE release() {
        ZHANDLE h = h_;
        h_ = 0;
        return h;
    }

private:
    ZHANDLE h_ = 0;
};

// A storage's or stream's place in the directory tree, found by walking it.
struct Node {
    uint32_t index;                 // entry number
    std::vector<uint32_t> children; // storages and streams directly inside, in the tree's order
};

// A document being read. The file is read through an ordinary stream.
struct Document {
    HZEPIO h = 0;                 // the file, as a read-only stream
    DOCHEADER header{};
    uint32_t sectors = 0;         // whole sectors after the header
    OwnedHandle fat;              // 32-bit entries, host byte order
    uint32_t fatCount = 0;
    std::vector<uint8_t> tableSectors;  // 1 for sectors that hold the FAT or its index
    std::vector<DOCDIRENTRY> entries;   // the whole directory, host byte order
    std::vector<Node> nodes;            // entry number -> node (index kNoStream when not in the tree)
    OwnedHandle miniFat;
    uint32_t miniFatCount = 0;

    Document() = default;
    Document(const Document &) = delete;
    Document &operator=(const Document &) = delete;
    ~Document();

    // Opens the file and reads everything but the mini table. Returns DOC_OK
    // or the reason the document is refused.
    int32_t Load(const char *file);
    // Reads and checks the mini table and the mini stream's own chain.
    int32_t LoadMini();
    // Checks the chain of a stream of `size` bytes from `start`: every
    // sector inside the file (or the mini stream), no sector twice, no
    // marker before the stream is covered, no free marker right after it.
    bool ChainCovers(uint32_t start, uint32_t size) const;
    bool MiniChainCovers(uint32_t start, uint32_t size) const;

    // The entry at the end of a path of names separated by "/", or a
    // DOC_E_ result (negative).
    int64_t Find(const char *path) const;
    // Releases the file stream to the caller.
    HZEPIO ReleaseStream() {
        HZEPIO out = h;
        h = 0;
        return out;
    }

private:
    uint8_t headerFat_[kHeaderFatEntries * 4] = {};  // the header's part of the FAT's index
    bool ReadSector(uint32_t sector, uint8_t *out) const;
    int32_t LoadHeader();
    int32_t LoadFat();
    int32_t LoadDirectory();
    int32_t WalkTree();
};

// Names as the format compares them: same length, and equal code units after
// both are upper-cased.
bool SameName(const DOCDIRENTRY &entry, const std::u16string &name);
// UTF-8 to UTF-16 and back; malformed bytes become U+FFFD.
std::u16string FromUtf8(const std::string &text);
std::string ToUtf8(const uint16_t *units, size_t count);
// The entry's name (without its terminator), empty when malformed.
size_t NameLength(const DOCDIRENTRY &entry);

}  // namespace mivo4::zep::cfb
