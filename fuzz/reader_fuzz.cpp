// Feeds arbitrary bytes to the host's picture readers (PNG, JPEG, TIFF, PNM,
// told apart by their first bytes as the host does) under a small memory
// budget: every input is read or refused with a ReadError.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "image.h"
#include "membudget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int fd = [] {
        mivo4::host::setMemoryBudget(64u << 20);
        return memfd_create("reader_fuzz", 0);
    }();
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    std::vector<std::vector<uint8_t>> blocks;
    mivo4::host::PixelAllocator alloc = [&](size_t n) {
        blocks.emplace_back(n + 1, 0);
        return blocks.back().data();
    };
    // The last byte decides whether a cut-short JPEG is read anyway.
    mivo4::host::readOptions().allowTruncated = size > 0 && (data[size - 1] & 1) != 0;
    try {
        mivo4::host::Image image = mivo4::host::readImage(path, alloc);
        // Touch every byte the reader says it wrote.
        volatile uint8_t sink = 0;
        for (size_t i = 0; i < image.size(); ++i) sink = sink ^ image.pixels[i];
        (void)sink;
    } catch (const mivo4::host::ReadError &) {
    }
    return 0;
}
