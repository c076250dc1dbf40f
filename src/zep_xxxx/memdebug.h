// Test hooks of the handle allocator: allocation-failure injection and a
// count of live blocks, so that every out-of-memory path can be driven and
// checked for leaks. Not exported from the module.
#pragma once

#include <cstdint>

namespace mivo4::mem {

// Makes the n-th allocation from now (1 = the next one) fail, once.
// 0 cancels a pending failure.
void FailNth(uint32_t n);

// True while a failure set by FailNth has not yet been delivered.
bool FailurePending();

// Number of allocations made since the process started (failed ones included).
uint64_t AllocationCount();

// Number of live handles (blocks and wrapped pointers).
uint32_t LiveHandles();

// Whether new large blocks keep room in front of their pages (they do unless
// told otherwise), so that a test can have the same work done with and
// without views (ExtendInFront), and the number of views made so far.
void SetRoomInFront(bool keep);
uint64_t FrontViewsMade();

}  // namespace mivo4::mem
