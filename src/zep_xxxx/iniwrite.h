// Test hook of the profile writer: makes one step of the next write fail, so
// that tests can show the user's profile surviving every failure.
#pragma once

namespace mivo4::ini {

enum class WriteFault {
    None,
    TempCreate,  // no file can be created beside the profile
    CopyBack,    // writing the new version beside the profile fails
    Replace,     // putting the new version in place fails
    InPlace,     // the room for an in-place rewrite cannot be reserved
    KeepOwner,   // the new version cannot be given the old owner and group
    NoMemory,    // memory runs out once the new version is composed
};

// Adds fault to those pending; None clears them all.
void InjectWriteFault(WriteFault fault);
// True once, when fault is the one injected (which is then used up).
bool FaultAt(WriteFault fault);

}  // namespace mivo4::ini
