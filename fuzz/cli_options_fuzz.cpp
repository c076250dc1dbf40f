// Feeds arbitrary command lines (arguments split at NUL bytes) to the option
// parser with a table of every kind of option: long and short, with and
// without a value. Whatever comes, it answers or refuses with a usage error,
// never crashes; and what it forwards for a batch's workers parses back to
// the same options with the same values.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli_parser.h"
#include "suggest.h"

using mivo4::host::HelpRequest;
using mivo4::host::Option;
using mivo4::host::UsageError;

namespace {

using Applied = std::vector<std::pair<std::string, std::string>>;

std::vector<Option> table(Applied &applied, bool onlyForwarded) {
    auto note = [&applied, onlyForwarded](const char *name, bool forward) {
        return [&applied, name, forward, onlyForwarded](const std::string &v) {
            if (forward || !onlyForwarded) applied.emplace_back(name, v);
        };
    };
    return {
        {"dpi", 0, "N", "", note("dpi", true), true},
        {"dither", 0, "WAY", "", note("dither", true), true},
        {"quiet", 'q', nullptr, "", note("quiet", true), true},
        {"output-dir", 'o', "DIR", "", note("output-dir", false)},
        {"jobs", 'j', "N", "", note("jobs", false)},
        {"progress", 0, nullptr, "", note("progress", false)},
        {"verify", 0, nullptr, "", note("verify", true), true},
        {"limit-memory", 0, "SIZE", "", note("limit-memory", true), true},
    };
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<std::string> args(1);
    for (size_t i = 0; i < size && args.size() < 64; ++i) {
        if (data[i] == 0) args.emplace_back();
        else args.back() += static_cast<char>(data[i]);
    }
    Applied applied;
    std::vector<std::string> operands, forwarded;
    try {
        forwarded = mivo4::host::parseOptions("export", "export", table(applied, true), args,
                                              [&](const std::string &o) { operands.push_back(o); });
    } catch (const UsageError &) {
        return 0;
    } catch (const HelpRequest &) {
        return 0;
    }
    Applied again;
    std::vector<std::string> none;
    try {
        mivo4::host::parseOptions("export", "export", table(again, false), forwarded,
                                  [&](const std::string &o) { none.push_back(o); });
    } catch (...) {
        std::abort();  // forwarded options must parse
    }
    if (again != applied || !none.empty()) std::abort();
    (void)mivo4::host::didYouMean(args[0], args);
    return 0;
}
