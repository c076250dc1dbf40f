// What every picture's output shares, whether the GP4 driver opens it or the
// bitmap export does: a fresh band state for the coder and the output stream.
#pragma once

#include <mivo4/export.h>
#include <mivo4/setup.h>

namespace mivo4::gp4 {

// A new picture: the coder's band state as a fresh setup record has it. The
// reference row left by an earlier picture is freed.
void ClearBandState(Gp4_SetupData &s);

struct Output {
    enum class Failure { None, NoMemoryBlock, NotOpened };
    HZEPIO stream = 0;
    ZHANDLE memoryBlock = 0;  // the block of a memory-block output, else 0
    Failure failure = Failure::None;
};

// Opens the output for writing, in one of three ways: the host's stream
// callback when the setup has one (the host's own stream handle travels in
// the description's first field; a refusal is not a failure here), else the
// named file, else a memory block that grows by 4096 bytes, whose locked
// pointer the stream keeps in *memory (it is rewritten whenever the block
// grows, so it must outlive the stream). Nothing is left behind on failure.
Output OpenOutput(const Gp4_SetupData &s, const EXPORT_OPTIONS *x, const char *name, uint8_t **memory);

}  // namespace mivo4::gp4
