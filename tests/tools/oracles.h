// Someone else's readers of our files: GraphicsMagick and ImageMagick, run as
// programs, and a PBM reader for what they write.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "toolfixture.h"

namespace toolstest {

inline std::string shellQuote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell command quietly; its exit status.
inline int runQuiet(const std::string &command) {
    int rc = std::system((command + " >/dev/null 2>&1").c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

// The command that starts GraphicsMagick's convert, if it is installed.
inline std::optional<std::string> graphicsMagick() {
    if (runQuiet("gm version") == 0) return std::string("gm convert");
    return std::nullopt;
}

// The command that starts ImageMagick's converter, if it is installed.
inline std::optional<std::string> imageMagick() {
    if (runQuiet("magick -version 2>/dev/null | grep -q ImageMagick") == 0) return std::string("magick");
    if (runQuiet("convert -version 2>/dev/null | grep -q ImageMagick") == 0) return std::string("convert");
    return std::nullopt;
}

struct Pbm {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> bits;  // rows of (width + 7) / 8 bytes, set bit black
    bool black(uint32_t x, uint32_t y) const { return (bits[(width + 7) / 8 * y + x / 8] >> (7 - x % 8)) & 1; }
};

// Reads a binary PBM (P4), comments allowed in the header.
inline std::optional<Pbm> readPbm(const std::string &path) {
    std::vector<uint8_t> f = readBytes(path);
    size_t i = 0;
    auto skip = [&] {
        for (;;) {
            while (i < f.size() && std::isspace(f[i])) ++i;
            if (i < f.size() && f[i] == '#') {
                while (i < f.size() && f[i] != '\n') ++i;
            } else {
                return;
            }
        }
    };
    auto number = [&]() -> std::optional<uint32_t> {
        skip();
        if (i >= f.size() || !std::isdigit(f[i])) return std::nullopt;
        uint32_t v = 0;
        while (i < f.size() && std::isdigit(f[i])) v = v * 10 + (f[i++] - '0');
        return v;
    };
    if (f.size() < 2 || f[0] != 'P' || f[1] != '4') return std::nullopt;
    i = 2;
    auto w = number(), h = number();
    if (!w || !h) return std::nullopt;
    ++i;  // the single blank before the raster
    Pbm p;
    p.width = *w;
    p.height = *h;
    size_t n = static_cast<size_t>((p.width + 7) / 8) * p.height;
    if (f.size() < i + n) return std::nullopt;
    p.bits.assign(f.begin() + static_cast<std::ptrdiff_t>(i), f.begin() + static_cast<std::ptrdiff_t>(i + n));
    return p;
}

}  // namespace toolstest
