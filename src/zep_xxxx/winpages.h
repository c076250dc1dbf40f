// Blocks in pages of their own, for the handle allocator's large
// re-allocated blocks: moved between addresses by moving their pages, never
// by copying their bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mivo4::mem {

// A block's pages: `capacity` bytes at `data` (the block's length and then
// zeros), optionally a `spare` range of the same length holding nothing,
// where the next move can put the pages with one call, and optionally `front`
// bytes of address space just before `data`, holding nothing, where rows can
// be put in front of the block's own (see MapFront).
struct Pages {
    uint8_t *data = nullptr;
    size_t capacity = 0;
    uint8_t *spare = nullptr;
    size_t front = 0;
};

// Whole pages for `bytes` bytes (at least one page).
size_t PageRound(size_t bytes);

// Whole page tables (2 MiB) for `bytes` bytes: pages at such a boundary, in a
// range of such a length, move between addresses as whole tables, one entry
// each, instead of one entry per page. Only address space: pages never
// written hold no memory.
size_t TableRound(size_t bytes);

// Address space for len bytes at a 2 MiB boundary, holding nothing yet; null
// when there is none. Page tables move whole between such addresses.
uint8_t *ReserveAligned(size_t len);

// Address space for len bytes at a 2 MiB boundary with `front` bytes (whole
// pages) of it just before that boundary; null when there is none.
uint8_t *ReserveAligned(size_t len, size_t front);

// Releases the pages, the spare range and the room in front.
void ReleasePages(const Pages &p);

// Gives back the room in front (before the pages move away from it).
void ReleaseFront(Pages &p);

// Puts fresh zero pages into the room in front for the last `bytes` bytes
// before `data` (whole pages); returns where those bytes begin, or null when
// the room is too small or the pages cannot be had.
uint8_t *MapFront(const Pages &p, size_t bytes);

// Empties the room in front again (address space only, holding nothing).
void UnmapFront(const Pages &p);

// Makes bytes [from, to) of the pages read zero: a partial page is cleared,
// whole pages are given back to the system.
void ClearRange(uint8_t *data, size_t from, size_t to);

// Moves the pages to the spare range with one call, keeping the capacity; the
// old range becomes the spare, holding nothing. False, with nothing changed,
// when the system cannot (no spare, or a system without such moves).
bool MoveToSpare(Pages &p);

// Moves the pages to `at` (reserved by ReserveAligned for `capacity` bytes),
// grown or cut to `capacity`; the old range and the old spare are released.
// False, with the old pages untouched, when the move fails.
bool MoveTo(Pages &p, uint8_t *at, size_t capacity);

// Puts the pages that hold [data, data + bytes) in place at once, as a first write
// would one fault at a time (where the system can; nothing otherwise).
void Populate(uint8_t *data, size_t bytes);

// Puts fresh zero pages at `at` (reserved for `capacity` bytes). False when
// they cannot be had.
bool MapFresh(uint8_t *at, size_t capacity);

}  // namespace mivo4::mem
