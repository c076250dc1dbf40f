#include "suggest.h"

#include <algorithm>

namespace mivo4::host {

size_t editDistance(const std::string &a, const std::string &b) {
    // Rows i-2, i-1 and i of the usual table, the swap looking two rows back.
    std::vector<size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

namespace {

// An option's name without its dashes: "--dpi" and "-dpi" are both near "dpi".
std::string bare(const std::string &name) { return name.substr(std::min(name.find_first_not_of('-'), name.size())); }

}  // namespace

std::vector<std::string> nearestNames(const std::string &typedName, const std::vector<std::string> &known) {
    const std::string typed = bare(typedName);
    if (typed.empty()) return {};
    std::vector<std::string> starts;
    for (const std::string &name : typed.size() >= 2 ? known : std::vector<std::string>{}) {
        const std::string b = bare(name);
        if (b.size() > typed.size() && b.compare(0, typed.size(), typed) == 0) starts.push_back(name);
    }
    if (starts.size() == 1) return starts;
    size_t best = std::min<size_t>(2, typed.size() - 1);
    std::vector<std::string> nearest;
    for (const std::string &name : known) {
        const size_t d = editDistance(typed, bare(name));
        if (d > best || name == typedName) continue;
        if (d < best) nearest.clear(), best = d;
        if (std::find(nearest.begin(), nearest.end(), name) == nearest.end()) nearest.push_back(name);
    }
    return nearest;
}

std::string didYouMean(const std::string &typed, const std::vector<std::string> &known) {
    std::vector<std::string> names = nearestNames(typed, known);
    if (names.empty() || names.size() > 3) return {};
    std::string text = " (did you mean ";
    for (size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text + "?)";
}

}  // namespace mivo4::host
