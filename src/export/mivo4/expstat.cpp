#include "export/mivo4/expstat.h"

#include <atomic>
#include <cmath>

#include "zep_xxxx/zepio.h"

namespace mivo4::exportstatus {

namespace {

constexpr int32_t kStopped = 901;

struct Ledger {
    bool sized = false;
    double width = 0, height = 0;
    bool begun = false;
    bool refused = false;
    uint32_t rowsExpected = 0;
    uint64_t rowsCoded = 0;
    bool noMemory = false;
    bool writeFailed = false;
};

Ledger &ledger() {
    static Ledger l;
    return l;
}

// A thread that has exported learns how its own last export ended: with
// several threads exporting one after another, another thread's export
// cannot change the answer between a thread's export and its question. A
// thread that has not exported learns how the module's last export ended.
thread_local int32_t tLast = MIVO4_EXPORT_NONE;
std::atomic<int32_t> gLast{MIVO4_EXPORT_NONE};

void settle(int32_t status) {
    tLast = status;
    gLast.store(status, std::memory_order_relaxed);
}

}  // namespace

void Start() { ledger() = Ledger{}; }

void Sized(double width, double height) {
    Ledger &l = ledger();
    l.sized = true;
    l.width = width;
    l.height = height;
}

bool Begin(uint32_t width, uint32_t height) {
    Ledger &l = ledger();
    l.begun = true;
    l.rowsExpected = height;
    l.rowsCoded = 0;
    l.refused = width > kLargestSide || height > kLargestSide;
    return !l.refused;
}

bool Refused() { return ledger().refused; }

void Coded(uint32_t rows) { ledger().rowsCoded += rows; }

void NoMemory() { ledger().noMemory = true; }

void WriteFailed() { ledger().writeFailed = true; }

bool StreamInError(HZEPIO hFile) {
    const ZEPIODATA *s = zep::LockStream(hFile);
    if (s == nullptr) return false;
    bool failed = s->iErrorFlag != 0;
    GlobalUnlock(hFile);
    return failed;
}

void StreamFailed(HZEPIO hFile) {
    const ZEPIODATA *s = zep::LockStream(hFile);
    bool memory = s != nullptr && zep::IsMemory(*s) && !zep::IsCallback(*s);
    if (s != nullptr) GlobalUnlock(hFile);
    if (memory) {
        NoMemory();
    } else {
        WriteFailed();
    }
}

int32_t Finish(int32_t outputResult, bool closed) {
    const Ledger &l = ledger();
    int32_t status;
    if (l.refused) {
        status = MIVO4_EXPORT_NOTHING;
    } else if (outputResult == kStopped) {
        status = MIVO4_EXPORT_STOPPED;
    } else if (l.writeFailed || !closed) {
        status = MIVO4_EXPORT_WRITE_FAILED;
    } else if (l.noMemory) {
        status = MIVO4_EXPORT_NO_MEMORY;
    } else if (!l.begun) {
        // No picture was started: either there is none (its output has no
        // pixels) or what would have started it could not be had.
        bool empty = l.sized && (!(l.width >= 1.0) || !(l.height >= 1.0));
        status = empty ? MIVO4_EXPORT_NOTHING : MIVO4_EXPORT_NO_MEMORY;
    } else if (outputResult != 0 || l.rowsCoded != l.rowsExpected) {
        // Rows are missing and nothing else went wrong: within this module
        // that is memory running out on the way.
        status = MIVO4_EXPORT_NO_MEMORY;
    } else {
        status = MIVO4_EXPORT_COMPLETE;
    }
    settle(status);
    // The refusal belonged to this picture: a band sent to the sink later
    // (the raster driver's own pictures) is not refused for it.
    ledger().refused = false;
    return status;
}

void EndedEarly(int32_t status) {
    settle(status);
    ledger().refused = false;
}

}  // namespace mivo4::exportstatus

int32_t GetLastExportStatus(void) {
    using namespace mivo4::exportstatus;
    return tLast != MIVO4_EXPORT_NONE ? tLast : gLast.load(std::memory_order_relaxed);
}
