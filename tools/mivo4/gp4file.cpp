#include "gp4file.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

#include "membudget.h"

namespace mivo4::host {

namespace {

constexpr size_t kHeaderBytes = 2048;
constexpr size_t kRecordBytes = 128;

// A decimal field; nullopt when it is not all digits, and overflow set when
// it is but does not fit in 32 bits.
std::optional<uint32_t> digits(const std::string &s, size_t from, size_t count, bool *overflow = nullptr) {
    if (from + count > s.size() || count == 0) return std::nullopt;
    uint64_t v = 0;
    for (size_t i = from; i < from + count; ++i) {
        if (s[i] < '0' || s[i] > '9') return std::nullopt;
        v = v * 10 + static_cast<uint64_t>(s[i] - '0');
        if (v > 0xFFFFFFFFu) {
            for (size_t j = i + 1; j < from + count; ++j)
                if (s[j] < '0' || s[j] > '9') return std::nullopt;
            if (overflow != nullptr) *overflow = true;
            return std::nullopt;
        }
    }
    return static_cast<uint32_t>(v);
}

// The set bits of a row, counted eight bytes at a time: without a population
// count instruction in the baseline instruction set each count is a library
// call, and a call a byte took 2 ms of the check of an A4 page.
uint64_t setBits(const std::vector<uint8_t> &row) {
    uint64_t n = 0;
    size_t i = 0;
    for (; i + 8 <= row.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, row.data() + i, 8);
        n += static_cast<uint64_t>(__builtin_popcountll(word));
    }
    for (; i < row.size(); ++i) n += static_cast<uint64_t>(__builtin_popcount(row[i]));
    return n;
}

}  // namespace

Gp4Header parseGp4Header(const std::vector<uint8_t> &file) {
    Gp4Header h;
    if (file.size() < kHeaderBytes) return h;
    h.wellFormed = true;
    for (size_t i = 0; i < kHeaderBytes; ++i)
        if (file[i] < 0x20 || file[i] > 0x7E) h.wellFormed = false;
    for (size_t r = 0; r < kHeaderBytes / kRecordBytes; ++r) {
        std::string rec(reinterpret_cast<const char *>(file.data()) + r * kRecordBytes, kRecordBytes);
        while (!rec.empty() && (rec.back() == ' ' || rec.back() == '\0')) rec.pop_back();
        h.records.push_back(rec);
    }
    // Each named record once; the four that describe the raster must be there.
    std::vector<std::pair<std::string, int>> seen;
    for (const char *name : {"rtype", "rorient", "rpelcnt", "rdensty"}) seen.emplace_back(name, 0);
    for (const std::string &rec : h.records) {
        size_t colon = rec.find(':');
        if (colon == std::string::npos || colon == 0) continue;
        std::string name = rec.substr(0, colon);
        auto it = std::find_if(seen.begin(), seen.end(), [&](const auto &p) { return p.first == name; });
        const int count = it == seen.end() ? 1 : ++it->second;
        if (it == seen.end()) seen.emplace_back(name, 1);
        if (count == 2) h.damage.push_back("the \"" + name + "\" record is given more than once");
        if (count > 1) continue;  // the first one counts
        if (name == "rpelcnt") {
            // "rpelcnt: 001728,002200"
            size_t comma = rec.find(',');
            bool overflow = false;
            if (comma != std::string::npos) {
                size_t start = rec.find_first_not_of(' ', 8);
                if (start != std::string::npos && comma > start) h.width = digits(rec, start, comma - start, &overflow);
                h.height = digits(rec, comma + 1, rec.size() - comma - 1, &overflow);
            }
            if (overflow) {
                h.width.reset();
                h.height.reset();
                h.damage.push_back("\"" + rec + "\": a pixel count that does not fit in 32 bits");
            }
        } else if (name == "rdensty") {
            size_t start = rec.find_first_not_of(' ', 8);
            bool overflow = false;
            if (start != std::string::npos) h.density = digits(rec, start, rec.size() - start, &overflow);
            if (overflow) h.damage.push_back("\"" + rec + "\": a density that does not fit in 32 bits");
        }
    }
    for (size_t i = 0; i < 4; ++i)
        if (seen[i].second == 0) h.damage.push_back("no \"" + seen[i].first + "\" record");
    return h;
}

G4Check checkG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height,
                const std::function<bool(const uint8_t *row)> &onRow) {
    G4Check c;
    if (width == 0 || height == 0) {
        c.problem = "the picture has no pixels";
        return c;
    }
    // One row more than the header says: decoding it must run out of data.
    G4RowDecoder d(coded, width, height < 0xFFFFFFFFu ? height + 1 : height);
    std::vector<uint8_t> row((static_cast<size_t>(width) + 7) / 8);
    const unsigned tail = width % 8;
    for (uint32_t y = 0; y < height; ++y) {
        if (!d.next(row.data())) {
            c.problem = "row " + std::to_string(y) + ": " + d.problem();
            return c;
        }
        if (tail != 0) row.back() &= static_cast<uint8_t>(0xFF << (8 - tail));
        c.black += setBits(row);
        if (onRow && !onRow(row.data())) {
            c.problem = "stopped";
            return c;
        }
    }
    c.decodes = true;
    c.moreRows = height < 0xFFFFFFFFu && d.next(row.data());
    return c;
}

bool codesMoreRows(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height) {
    return decodeG4(coded, width, height + 1).picture.has_value();
}

bool readWritten(const std::string &path, bool withCoded, WrittenFile &w, std::string &error) {
    w = WrittenFile{};
    std::unique_ptr<FILE, int (*)(FILE *)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!f) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    auto readFailed = [&] {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    };
    struct stat st;
    if (fstat(fileno(f.get()), &st) != 0) return readFailed();
    w.head.resize(kHeaderBytes);
    w.head.resize(std::fread(w.head.data(), 1, kHeaderBytes, f.get()));
    if (std::ferror(f.get())) return readFailed();
    w.size = w.head.size();
    if (S_ISREG(st.st_mode) && static_cast<uint64_t>(st.st_size) > w.size) w.size = static_cast<uint64_t>(st.st_size);
    if (!withCoded || w.head.size() < kHeaderBytes) return true;
    // Read straight into place: one copy of the coded data, sized once.
    w.coded.resize(static_cast<size_t>(w.size - kHeaderBytes));
    w.coded.resize(std::fread(w.coded.data(), 1, w.coded.size(), f.get()));
    for (uint8_t chunk[65536]; !std::ferror(f.get());) {
        const size_t n = std::fread(chunk, 1, sizeof chunk, f.get());
        if (n == 0) break;
        w.coded.insert(w.coded.end(), chunk, chunk + n);
    }
    if (std::ferror(f.get())) return readFailed();
    w.size = kHeaderBytes + w.coded.size();
    return true;
}

bool writePbm(const Bilevel &b, FILE *f, const std::string &name, std::string &error) {
    std::fprintf(f, "P4\n%u %u\n", b.width, b.height);
    bool ok = std::fwrite(b.bits.data(), 1, b.bits.size(), f) == b.bits.size();
    ok = std::fflush(f) == 0 && ok;
    if (!ok) error = name + ": cannot write: " + std::strerror(errno);
    return ok;
}

namespace {

class PbmRows : public BilevelWriter {
public:
    PbmRows(FILE *f, uint32_t width, uint32_t height, const std::string &name)
        : f_(f), bytes_((static_cast<size_t>(width) + 7) / 8), name_(name) {
        ok_ = std::fprintf(f, "P4\n%u %u\n", width, height) > 0;
    }
    bool row(const uint8_t *bits) override {
        ok_ = ok_ && std::fwrite(bits, 1, bytes_, f_) == bytes_;
        if (!ok_) error_ = name_ + ": cannot write: " + std::strerror(errno);
        return ok_;
    }
    bool finish() override {
        ok_ = ok_ && std::fflush(f_) == 0;
        if (!ok_ && error_.empty()) error_ = name_ + ": cannot write: " + std::strerror(errno);
        return ok_;
    }

private:
    FILE *f_;
    size_t bytes_;
    std::string name_;
    bool ok_ = true;
};

}  // namespace

std::unique_ptr<BilevelWriter> pbmWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name) {
    return std::make_unique<PbmRows>(f, width, height, name);
}

bool loadGp4File(const std::string &path, Gp4File &g, std::string &error) {
    std::unique_ptr<FILE, int (*)(FILE *)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!f) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    struct stat st;
    const bool regular = fstat(fileno(f.get()), &st) == 0 && S_ISREG(st.st_mode);
    if (regular && st.st_size >= 0) g.size = static_cast<uint64_t>(st.st_size);
    std::vector<uint8_t> head(kHeaderBytes);
    size_t got = std::fread(head.data(), 1, head.size(), f.get());
    if (std::ferror(f.get())) {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    }
    if (got < kHeaderBytes) {
        error = path + ": not a GP4 file (" + std::to_string(got) + " bytes, less than its 2048-byte header)";
        return false;
    }
    g.header = parseGp4Header(head);
    if (!g.header.width || !g.header.height) {
        error = path + ": not a GP4 file (no \"rpelcnt:\" record with width and height)";
        for (const std::string &d : g.header.damage)
            if (d.find("rpelcnt") != std::string::npos && d.find("32 bits") != std::string::npos)
                error = path + ": damaged header: " + d;
        return false;
    }
    // Decoding holds the coded data and one row.
    const uint64_t budget = memoryBudget();
    const uint64_t rowBytes = (uint64_t{*g.header.width} + 7) / 8;
    if (rowBytes * 4 > budget) {
        error = path + ": rows of " + std::to_string(*g.header.width) + " pixels are over the memory limit of " +
                describeBytes(budget) + " (--limit-memory)";
        return false;
    }
    if (regular && g.size - kHeaderBytes > budget) {
        error = path + ": " + describeBytes(g.size - kHeaderBytes) + " of coded data, more than the memory limit of " +
                describeBytes(budget) + " (--limit-memory)";
        return false;
    }
    if (regular) g.coded.reserve(static_cast<size_t>(g.size - kHeaderBytes));
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0) {
        if (g.coded.size() + n > budget) {
            error = path + ": more coded data than the memory limit of " + describeBytes(budget) + " (--limit-memory)";
            return false;
        }
        g.coded.insert(g.coded.end(), chunk, chunk + n);
    }
    if (std::ferror(f.get())) {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    }
    if (!regular) g.size = kHeaderBytes + g.coded.size();
    return true;
}

}  // namespace mivo4::host
