#include "signals.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace mivo4::host {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
constexpr size_t kSlots = 8;
constexpr size_t kPathBytes = 4096;

// A slot is filled while its flag is 0 and published by setting the flag;
// the handler reads only published slots. Everything here is lock-free so
// that the handler may look at it at any moment.
struct Slot {
    std::atomic<int> used{0};
    char path[kPathBytes];
};
Slot slots[kSlots];

volatile sig_atomic_t gentle = 0;
volatile sig_atomic_t requested = 0;
std::atomic<bool> installed{false};

static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onFatalSignal(int sig) {
    if (sig == SIGINT && gentle && !requested) {
        requested = 1;
        return;
    }
    const int saved = errno;
    for (Slot &s : slots)
        if (s.used.load(std::memory_order_acquire) == 1) ::unlink(s.path);
    // Die of the same signal, as if it had not been caught.
    struct sigaction dfl{};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    sigaction(sig, &dfl, nullptr);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, sig);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
    ::raise(sig);
    errno = saved;  // not reached for a fatal default action
}

}  // namespace

void installSignalCleanup() {
    if (installed.exchange(true)) return;
    for (int sig : kSignals) {
        struct sigaction action{}, previous{};
        action.sa_handler = onFatalSignal;
        sigemptyset(&action.sa_mask);
        // While one handler cleans up, the others wait.
        for (int other : kSignals) sigaddset(&action.sa_mask, other);
        sigaction(sig, &action, &previous);
        if (previous.sa_handler == SIG_IGN) sigaction(sig, &previous, nullptr);
    }
}

SignalBlock::SignalBlock() {
    static_assert(sizeof saved_ >= sizeof(sigset_t));
    sigset_t block;
    sigemptyset(&block);
    for (int sig : kSignals) sigaddset(&block, sig);
    sigprocmask(SIG_BLOCK, &block, reinterpret_cast<sigset_t *>(saved_));
}

SignalBlock::~SignalBlock() { sigprocmask(SIG_SETMASK, reinterpret_cast<sigset_t *>(saved_), nullptr); }

bool registerTempFile(const std::string &path) {
    if (path.empty() || path.size() >= kPathBytes) return false;
    for (Slot &s : slots) {
        int expected = 0;
        // 2: being filled, invisible to the handler.
        if (!s.used.compare_exchange_strong(expected, 2)) continue;
        std::memcpy(s.path, path.c_str(), path.size() + 1);
        s.used.store(1, std::memory_order_release);
        return true;
    }
    return false;
}

void unregisterTempFile(const std::string &path) {
    for (Slot &s : slots) {
        if (s.used.load(std::memory_order_acquire) == 1 && path == s.path) {
            s.used.store(0, std::memory_order_release);
            return;
        }
    }
}

void setGentleInterrupt(bool on) { gentle = on ? 1 : 0; }
bool interruptRequested() { return requested != 0; }
void clearInterruptRequest() { requested = 0; }

}  // namespace mivo4::host
