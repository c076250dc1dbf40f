// Putting a new version of a profile in place without ever losing the old.
#pragma once

#include <sys/stat.h>

#include <string>

namespace mivo4::ini {

// Replaces the profile at path (a regular file whose state is old, or none
// when old is null) by content: a complete new version is written beside it,
// flushed, synced, given the old mode, owner and group, and renamed over it.
// Where no file can be created beside it, or the old owner cannot be kept,
// an existing profile is rewritten in place, but only once the room for the
// longer of the two versions is reserved, so that a failure can still put
// the old content back (oldContent); otherwise nothing is written. True when
// the new version is in place.
bool Commit(const std::string &path, const std::string &content, const struct stat *old,
            const std::string &oldContent);

}  // namespace mivo4::ini
