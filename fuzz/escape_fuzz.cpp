// Sends option escapes with arbitrary codes, counts, payloads and retain
// flags to a real setup (with a profile), as a careless or hostile host
// would. Each escape's input is a heap block of exactly the count declared,
// so that a read past it is caught; the output area is as large as the
// largest answer.
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const std::string &profilePath() {
    static const std::string path = "/tmp/mivo4_escape_fuzz_" + std::to_string(getpid()) + ".ini";
    return path;
}

void writeProfile() {
    if (FILE *f = std::fopen(profilePath().c_str(), "wb")) {
        std::fputs("[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=GP4.1\nResolution Mode=783\nNot Defined=200\n", f);
        std::fclose(f);
    }
}

ZHANDLE makeSetup() { return CreateSetup(0, profilePath().c_str(), nullptr, nullptr); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static ZHANDLE setup = 0;
    if (setup == 0) {
        writeProfile();
        setup = makeSetup();
        if (setup == 0) return 0;
    }
    // Records: op byte, escape byte, count byte, then count payload bytes
    // (short at the end of the input: zero fill).
    size_t at = 0;
    while (at + 3 <= size) {
        const uint8_t op = data[at], code = data[at + 1];
        const auto count = static_cast<int32_t>(static_cast<int8_t>(data[at + 2])) + 8;  // -120..135
        at += 3;
        switch (op % 8) {
        case 6:
            EditSetup(setup, nullptr, 0);  // make it the current setup
            continue;
        case 7:
            // A setup destroyed and made again: the old handle is stale now.
            if (op & 0x80) {
                ZHANDLE old = setup;
                DestroySetup(setup);
                setup = makeSetup();
                int32_t v = 0;
                xEscapeSetup(old, code % 90, 4, &v, nullptr, 0);
                if (setup == 0) return 0;
            }
            continue;
        default:
            break;
        }
        const size_t n = count > 0 ? static_cast<size_t>(count) : 0;
        std::vector<uint8_t> in(n);
        for (size_t i = 0; i < n && at < size; ++i) in[i] = data[at++];
        uint8_t out[64] = {};
        int32_t escape = static_cast<int32_t>(code) - 2;  // -2..253: every handled code and more
        if (escape == ESC_OUTPUT_CALLBACK) continue;        // would keep our data as a callback
        // Retain only now and then: every kept value rewrites the profile.
        int32_t retain = (op & 0x70) == 0x70 ? 1 : 0;
        int32_t r = xEscapeSetup(setup, escape, count, n > 0 ? in.data() : nullptr,
                                 (op & 8) != 0 ? nullptr : out, retain);
        if (r < -1 || r > 1) __builtin_trap();
    }
    return 0;
}
