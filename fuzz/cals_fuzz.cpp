// Feeds arbitrary bytes to what info and decode do with a GP4 file: the
// header's records (and what info flags in them), then the coded data decoded
// row by row (and written as PBM) under a small memory budget.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "gp4file.h"
#include "info.h"
#include "membudget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int fd = [] {
        mivo4::host::setMemoryBudget(16u << 20);
        return memfd_create("cals_fuzz", 0);
    }();
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    mivo4::host::Gp4File g;
    std::string error;
    const bool loaded = mivo4::host::loadGp4File("/proc/self/fd/" + std::to_string(fd), g, error);
    size_t said = mivo4::host::headerWarnings(g.header).size();
    for (const std::string &rec : g.header.records)
        if (auto words = mivo4::host::describeOrientation(rec.substr(rec.find(':') + 1))) said += words->size();
    if (said == SIZE_MAX) return 0;  // keeps the answers from being thrown away
    if (!loaded) return 0;
    if (!g.header.damage.empty()) return 0;
    // Huge claimed heights of a few bytes of data end at the first bad row;
    // a stream of white rows for ever does not exist in a small input.
    FILE *out = std::fopen("/dev/null", "wb");
    if (out == nullptr) return 0;
    auto writer = mivo4::host::pbmWriter(out, *g.header.width, *g.header.height, "fuzz");
    uint32_t rows = 0;
    mivo4::host::checkG4(g.coded, *g.header.width, *g.header.height, [&](const uint8_t *row) {
        // Large pictures are checked for their first rows only.
        return writer->row(row) && ++rows < 4096;
    });
    writer->finish();
    std::fclose(out);
    return 0;
}
