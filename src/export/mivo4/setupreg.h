// The setups this module made. A handle is a setup only when CreateSetup
// issued it and DestroySetup has not taken it back, and its block still holds
// a whole record: a host handing any other live block (or a stale handle)
// gets the answer of an invalid handle instead of having it written as one.
#pragma once

#include <mivo4/setup.h>

namespace mivo4::setup {

// Records a new setup; false when it cannot be recorded (no memory).
bool Register(ZHANDLE h);
void Forget(ZHANDLE h);
bool IsSetup(ZHANDLE h);
// The locked record of a setup, or null for a handle that is not one.
Gp4_SetupData *Lock(ZHANDLE h);

}  // namespace mivo4::setup
