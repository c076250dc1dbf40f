#include "info.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace mivo4::host {

namespace {

constexpr size_t kRecordBytes = 128;

// The records of a header in their usual order.
constexpr std::array<const char *, 11> kNames = {"srcdocid", "dstdocid", "txtfilid", "figid", "srcgph", "doccls",
                                                 "rtype",    "rorient",  "rpelcnt",  "rdensty", "notes"};
// The densities the format names, in dots per inch.
constexpr std::array<uint32_t, 6> kDensities = {200, 240, 300, 400, 600, 1200};

std::string usualOrder() {
    std::string all;
    for (const char *n : kNames) all += (all.empty() ? "" : ", ") + std::string(n);
    return all;
}

std::string trim(const std::string &s) {
    const size_t a = s.find_first_not_of(' ');
    if (a == std::string::npos) return {};
    return s.substr(a, s.find_last_not_of(' ') - a + 1);
}

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// Edits (insert, delete, change, swap of neighbours) between two names.
size_t editDistance(const std::string &a, const std::string &b) {
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i)
        for (size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

// The format's name a record name stands for: itself, or the one it nearly
// is (other case, a letter or two wrong, missing or swapped); -1 for none.
int standardIndex(const std::string &name, bool &exact) {
    exact = false;
    for (size_t i = 0; i < kNames.size(); ++i)
        if (name == kNames[i]) return exact = true, static_cast<int>(i);
    const std::string low = lower(trim(name));
    int best = -1;
    size_t bestDistance = SIZE_MAX;
    for (size_t i = 0; i < kNames.size(); ++i) {
        const std::string standard = kNames[i];
        const size_t limit = standard.size() >= 6 ? 2 : 1;
        const size_t distance = editDistance(low, standard);
        if (distance <= limit && distance < bestDistance) best = static_cast<int>(i), bestDistance = distance;
    }
    return best;
}

std::string at(size_t record) { return "at byte " + std::to_string(record * kRecordBytes); }

const char *direction(uint32_t degrees) {
    switch (degrees % 360) {
    case 0: return "left to right";
    case 90: return "bottom to top";
    case 180: return "right to left";
    default: return "top to bottom";
    }
}

// "ppp,lll" as two numbers.
bool angles(const std::string &value, uint32_t &pel, uint32_t &line) {
    const std::string v = trim(value);
    const size_t comma = v.find(',');
    if (comma == std::string::npos || comma == 0 || comma + 1 >= v.size()) return false;
    auto number = [](const std::string &s, uint32_t &out) {
        if (s.empty() || s.size() > 3) return false;
        out = 0;
        for (char c : s) {
            if (c < '0' || c > '9') return false;
            out = out * 10 + static_cast<uint32_t>(c - '0');
        }
        return true;
    };
    return number(trim(v.substr(0, comma)), pel) && number(trim(v.substr(comma + 1)), line);
}

void valueWarnings(const std::string &name, const std::string &record, const Gp4Header &h,
                   std::vector<std::string> &out) {
    const std::string value = trim(record.substr(record.find(':') + 1));
    if (name == "rtype" && value != "1") {
        out.push_back("\"" + record + "\": raster type " + (value.empty() ? "missing" : value) +
                      "; files of this format are of type 1");
    } else if (name == "rorient") {
        uint32_t pel = 0, line = 0;
        if (!angles(value, pel, line))
            out.push_back("\"" + record + "\": not two angles (pel path, line progression) such as 000,270");
        else if ((pel != 0 && pel != 90 && pel != 180 && pel != 270) || (line != 90 && line != 270))
            out.push_back("\"" + record + "\": outside the format (the pel path is 000, 090, 180 or 270, the line "
                          "progression 090 or 270)");
    } else if (name == "rdensty") {
        if (!h.density) {
            out.push_back("\"" + record + "\": the density is not a number");
        } else if (std::find(kDensities.begin(), kDensities.end(), *h.density) == kDensities.end()) {
            std::string list;
            for (uint32_t d : kDensities) list += (list.empty() ? "" : ", ") + std::to_string(d);
            out.push_back("\"" + record + "\": " + std::to_string(*h.density) +
                          " dpi is not one of the format's densities (" + list + "); readers may refuse it or "
                          "take another");
        }
    } else if (name == "rpelcnt") {
        if ((h.width && *h.width == 0) || (h.height && *h.height == 0))
            out.push_back("\"" + record + "\": a pixel count of 0; the picture has no pixels");
    }
}

void printReport(const std::string &path, const Gp4File &g, bool &ok) {
    const Gp4Header &h = g.header;
    std::printf("file: %s (%llu bytes)\n", path.c_str(), static_cast<unsigned long long>(g.size));
    std::printf("header:%s\n", h.wellFormed ? "" : " (has bytes that are not printable ASCII)");
    for (size_t i = 0; i < h.records.size(); ++i)
        if (!h.records[i].empty()) std::printf("  %4zu  %s\n", i * kRecordBytes, h.records[i].c_str());
    std::printf("width: %u pixels\nheight: %u pixels\n", *h.width, *h.height);
    if (h.density && *h.density > 0)
        std::printf("density: %u dpi (%.3f x %.3f inches)\n", *h.density, *h.width / double(*h.density),
                    *h.height / double(*h.density));
    else
        std::printf("density: none\n");
    for (const std::string &rec : h.records)
        if (rec.rfind("rorient:", 0) == 0) {
            if (auto words = describeOrientation(rec.substr(8))) std::printf("orientation: %s\n", words->c_str());
            break;
        }
    const double pixels = double(*h.width) * *h.height;
    std::printf("coded data: %zu bytes (%.4f bits per pixel)\n", g.coded.size(),
                pixels > 0 ? g.coded.size() * 8.0 / pixels : 0.0);
    for (const std::string &w : headerWarnings(h)) std::printf("warning: %s\n", w.c_str());
    if (!h.damage.empty()) {
        std::string all;
        for (const std::string &d : h.damage) all += (all.empty() ? "" : "; ") + d;
        std::printf("check: FAILED: the header is damaged: %s\n", all.c_str());
        ok = false;
        return;
    }
    // Row by row: the picture is never held whole, and decoding stops at the
    // height the header states.
    G4Check c = checkG4(g.coded, *h.width, *h.height);
    if (!c.decodes) {
        std::printf("check: FAILED: the coded data does not decode to %u x %u pixels: %s\n", *h.width, *h.height,
                    c.problem.c_str());
        ok = false;
        return;
    }
    if (c.moreRows) {
        std::printf("check: FAILED: the coded data holds more than %u rows\n", *h.height);
        ok = false;
        return;
    }
    std::printf("check: ok, decodes to exactly %u x %u pixels (%.2f%% black)\n", *h.width, *h.height,
                pixels > 0 ? 100.0 * double(c.black) / pixels : 0.0);
}

}  // namespace

std::vector<std::string> headerWarnings(const Gp4Header &h) {
    std::vector<std::string> out;
    int latest = -1;        // the furthest record of the usual order seen so far
    size_t latestAt = 0;
    std::vector<bool> valued(kNames.size(), false);
    for (size_t i = 0; i < h.records.size(); ++i) {
        const std::string &rec = h.records[i];
        if (trim(rec).empty()) continue;
        const size_t colon = rec.find(':');
        if (colon == std::string::npos || colon == 0) {
            out.push_back("the record " + at(i) + " has no name (\"" + rec.substr(0, 40) + "\")");
            continue;
        }
        const std::string name = rec.substr(0, colon);
        bool exact = false;
        const int k = standardIndex(name, exact);
        if (k < 0) {
            out.push_back("\"" + name + ":\" " + at(i) + " is not a record name of the format");
            continue;
        }
        if (!exact)
            out.push_back("\"" + name + ":\" " + at(i) + " is not a record name of the format; \"" +
                          kNames[static_cast<size_t>(k)] + ":\" was probably meant");
        if (k < latest)
            out.push_back("\"" + name + ":\" " + at(i) + " comes after \"" + kNames[static_cast<size_t>(latest)] +
                          ":\" " + at(latestAt) + "; the usual order is " + usualOrder());
        else
            latest = k, latestAt = i;
        // The values of the first record of each standard name, as read.
        if (exact && !valued[static_cast<size_t>(k)]) {
            valued[static_cast<size_t>(k)] = true;
            valueWarnings(name, rec, h, out);
        }
    }
    return out;
}

std::optional<std::string> describeOrientation(const std::string &value) {
    uint32_t pel = 0, line = 0;
    if (!angles(value, pel, line)) return std::nullopt;
    char text[64];
    std::snprintf(text, sizeof text, "%03u,%03u", pel, line);
    std::string words = std::string(text) + ": pel path " + std::to_string(pel) + " degrees";
    const bool pelKnown = pel == 0 || pel == 90 || pel == 180 || pel == 270;
    const bool lineKnown = line == 90 || line == 270;
    // Angles count anticlockwise; the line progression counts from the pel
    // path, which is why it can only be a quarter turn either way.
    if (pelKnown) words += std::string(" (each row runs ") + direction(pel) + ")";
    words += ", line progression " + std::to_string(line) + " degrees from it";
    if (pelKnown && lineKnown) words += std::string(" (rows follow ") + direction(pel + line) + ")";
    if (pel == 0 && line == 270) words += "; the usual";
    else if (!pelKnown || !lineKnown) words += "; not an orientation of the format";
    else words += "; readers that ignore the orientation show the picture turned or mirrored";
    return words;
}

int infoCommand(const std::vector<std::string> &files) {
    bool allOk = true;
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string &path = files[i];
        if (files.size() > 1) {
            if (i > 0) std::printf("\n");
            std::printf("==> %s <==\n", path.c_str());
        }
        Gp4File g;
        std::string error;
        if (!loadGp4File(path, g, error)) {
            // The message goes where every error of the host goes; what was
            // seen of the header may say why.
            std::fflush(stdout);
            std::fprintf(stderr, "mivo4: %s\n", error.c_str());
            for (const std::string &w : headerWarnings(g.header)) std::printf("warning: %s\n", w.c_str());
            allOk = false;
            continue;
        }
        bool ok = true;
        printReport(path, g, ok);
        allOk = allOk && ok;
    }
    std::fflush(stdout);
    return allOk ? 0 : 1;
}

}  // namespace mivo4::host
