// Feeds arbitrary bytes to the document opener as a compound document: lists
// it, opens every stream it lists and reads each one whole, with seeks.
#include <mivo4/docfile.h>
#include <mivo4/stream.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Scratch files go to memory when the system has a memory file system: the
// file system round trip is most of the cost of one input otherwise.
static std::string FuzzDir() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = FuzzDir() + "/mivo4_cfb_fuzz_" + std::to_string(getpid()) + ".ole";
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    std::vector<std::string> streams;
    docListEntries(
        path.c_str(),
        [](const char *name, int32_t type, uint32_t, void *user) -> int32_t {
            auto *list = static_cast<std::vector<std::string> *>(user);
            if (type == DOC_ENTRY_STREAM && list->size() < 64) list->push_back(name);
            return 0;
        },
        &streams);
    streams.push_back("Root Entry");  // a name that is not a stream
    static uint8_t buffer[5000];
    for (const std::string &name : streams) {
        int32_t result = 0;
        HZEPIO h = docOpenStream(path.c_str(), name.c_str(), &result);
        if (h == 0) continue;
        while (zepRead(h, buffer, sizeof buffer) > 0) {
        }
        zepSeek(h, 100, 2);
        zepRead(h, buffer, 333);
        zepSeek(h, -7, 1);
        zepRead(h, buffer, 64);
        zepClose(h);
    }
    unlink(path.c_str());
    return 0;
}
