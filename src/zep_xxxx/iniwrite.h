// Test hook of the profile writer: makes one step of the next write fail, so
// that tests can show the user's profile surviving every failure.
#pragma once

namespace mivo4::ini {

enum class WriteFault {
    None,
    TempCreate,  // the temporary file cannot be created
    CopyBack,    // copying the new content next to the profile fails
    Replace,     // putting the new content in place fails
};

void InjectWriteFault(WriteFault fault);

}  // namespace mivo4::ini
