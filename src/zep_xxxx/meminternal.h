// The handle allocator's calls for the module's own use, not exported: blocks
// that end with another block's bytes (rows put in front of a picture without
// copying the picture), and pages put in place for a picture being made.
#pragma once

#include <mivo4/memory.h>

#include <cstdint>

namespace mivo4::mem {

// A block of `length` bytes whose first `front` bytes are fresh zeros and
// whose other bytes are the first length - front bytes of `block` itself (the
// same memory: what one shows, the other does). Its data pointer is `front`
// bytes before the block's, so it is only as aligned as `front` makes it.
//
// It is freed, re-allocated (copied) and looked up like any block; `block`
// may be freed first (the view then keeps its pages), and a re-allocation of
// `block` copies instead of moving its pages away from the view.
//
// Only a new large block has room in front, and only one view at a time:
// otherwise, or for sizes that do not fit the block, *noRoom is set and 0
// returned, and the caller makes a copy instead. With room, the call counts as
// one allocation and fails like one (0, *noRoom clear).
ZHANDLE ExtendInFront(ZHANDLE block, uint32_t front, uint32_t length, bool *noRoom);

// For a block that is about to be written whole (a picture being made): its
// pages are put in place by one call rather than by a fault at each first
// write, which on some virtual machines costs ten times as much. Only large
// blocks in pages of their own; it changes no byte and no answer.
void Prefault(ZHANDLE block);

// The same for bytes [from, to) of a block (clamped to its length): a block
// written front to back over a long time, such as coded data, put in place a
// stretch ahead of the writer.
void Prefault(ZHANDLE block, uint32_t from, uint32_t to);

}  // namespace mivo4::mem
