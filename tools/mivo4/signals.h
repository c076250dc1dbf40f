// Signals that end the host (Ctrl-C, termination, a hang-up, a closed pipe)
// take the host's temporary files with them. Temporary files are entered in a
// small fixed registry that a signal handler may read: it unlinks every
// entry, then dies of the same signal, so the parent sees 128 + the signal.
#pragma once

#include <string>

namespace mivo4::host {

// Installs the handlers for SIGINT, SIGTERM, SIGHUP and SIGPIPE, leaving a
// signal that was ignored when the host started (a background job) ignored.
// Idempotent.
void installSignalCleanup();

// Blocks the four signals for the life of the object: a temporary file is
// created and entered in the registry with no signal in between.
class SignalBlock {
public:
    SignalBlock();
    ~SignalBlock();
    SignalBlock(const SignalBlock &) = delete;
    SignalBlock &operator=(const SignalBlock &) = delete;

private:
    unsigned long long saved_[16];  // room for a sigset_t
};

// Enters path in the registry; false when the registry is full or the path
// too long (the caller then refuses to make the file).
bool registerTempFile(const std::string &path);
// Removes path from the registry (after it was renamed or unlinked).
void unregisterTempFile(const std::string &path);

// While an export runs, the first Ctrl-C only asks the module to stop at its
// next progress report (the answer of the status callback); a second one, or
// any other signal, ends the host at once.
void setGentleInterrupt(bool on);
bool interruptRequested();
void clearInterruptRequest();

}  // namespace mivo4::host
