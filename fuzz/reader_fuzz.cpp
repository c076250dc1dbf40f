// Feeds arbitrary bytes to the host's picture readers (PNG, JPEG, TIFF, PNM,
// told apart by their first bytes as the host does) under a small memory
// budget: every input is read or refused with a ReadError. The last byte
// chooses how: by file name or from memory (as standard input is read),
// turned upright or as stored, and which page.
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
    const uint8_t how = size > 0 ? data[size - 1] : 0;
    mivo4::host::PictureSource source;
    if (how & 2) {
        source.name = "standard input";
        source.inMemory = true;
        source.bytes = {data, size};
    } else {
        if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
        source.name = "/proc/self/fd/" + std::to_string(fd);
    }
    source.orient = (how & 4) == 0;
    source.page = 1 + ((how >> 3) & 3);
    std::vector<std::vector<uint8_t>> blocks;
    mivo4::host::PixelAllocator alloc = [&](size_t n) {
        blocks.emplace_back(n + 1, 0);
        return blocks.back().data();
    };
    // The last byte decides whether a cut-short JPEG is read anyway.
    mivo4::host::readOptions().allowTruncated = (how & 1) != 0;
    try {
        mivo4::host::Image image = mivo4::host::readImage(source, alloc);
        // Touch every byte the reader says it wrote.
        volatile uint8_t sink = 0;
        for (size_t i = 0; i < image.size(); ++i) sink = sink ^ image.pixels[i];
        (void)sink;
    } catch (const mivo4::host::ReadError &) {
    }
    return 0;
}
