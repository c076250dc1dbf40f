#include "cli_parser.h"

#include <getopt.h>

#include <algorithm>

#include "suggest.h"

namespace mivo4::host {

namespace {

constexpr int kHelp = 'h';
constexpr int kFirstLong = 256;  // option k of the table answers kFirstLong + k

// How the user wrote an option: "--name", or "-L" for a letter.
std::string written(const Option &o, bool isLong) {
    std::string text = isLong ? "--" : "-";
    text += isLong ? std::string(o.name) : std::string(1, o.letter);
    return text;
}

std::string longName(const std::string &token) {
    const size_t eq = token.find('=');
    return token.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
}

// What a misspelt option may have meant: every name a command takes.
std::vector<std::string> knownNames(const std::vector<Option> &options) {
    std::vector<std::string> names;
    for (const Option &o : options)
        if (!o.hidden) names.push_back(std::string("--") + o.name);
    names.push_back("--help");
    return names;
}

}  // namespace

std::vector<std::string> parseOptions(const std::string &command, const std::string &kind,
                                      const std::vector<Option> &options, const std::vector<std::string> &args,
                                      const std::function<void(const std::string &)> &operand,
                                      std::vector<std::string> *rest) {
    // "-": operands come back in order, as option 1; ":": a missing value is
    // told apart from an unknown option.
    std::string letters = "-:h";
    std::vector<struct option> longs;
    for (size_t k = 0; k < options.size(); ++k) {
        const Option &o = options[k];
        longs.push_back({o.name, o.value != nullptr ? required_argument : no_argument, nullptr,
                         kFirstLong + static_cast<int>(k)});
        if (o.letter != 0) letters += std::string(1, o.letter) + (o.value != nullptr ? ":" : "");
    }
    longs.push_back({"help", no_argument, nullptr, kHelp});
    longs.push_back({nullptr, 0, nullptr, 0});

    std::vector<std::string> words{"mivo4 " + command};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(words.size());

    auto unknown = [&](const std::string &typed) {
        return UsageError{"unknown " + (kind.empty() ? "" : kind + " ") + "option " + typed +
                          didYouMean(typed, knownNames(options))};
    };
    auto byCode = [&](int code) -> const Option * {
        if (code >= kFirstLong) return &options[static_cast<size_t>(code - kFirstLong)];
        for (const Option &o : options)
            if (o.letter == code) return &o;
        return nullptr;
    };

    std::vector<std::string> forwarded;
    optind = 0;  // a fresh scan: getopt keeps its place between calls
    opterr = 0;  // the messages are ours
    int lastToken = -1;
    for (;;) {
        const int at = std::max(optind, 1);  // the word being read; a cluster of letters stays one word
        const bool firstLetter = at != lastToken;
        lastToken = at;
        const int code = getopt_long(argc, argv.data(), letters.c_str(), longs.data(), nullptr);
        if (code == -1) break;
        const std::string word = at < argc ? words[static_cast<size_t>(at)] : std::string();
        const bool isLong = word.rfind("--", 0) == 0;
        if (code == 1 && rest != nullptr) {
            rest->assign(words.begin() + at, words.end());
            return forwarded;
        }
        if (code == 1) {
            operand(optarg);
            continue;
        }
        if (code == ':') {
            const Option *o = byCode(optopt);
            if (o == nullptr) throw unknown(word);
            throw UsageError{written(*o, isLong) + " needs a value"};
        }
        if (code == '?') {
            if (isLong && optopt != 0) throw UsageError{"--" + longName(word) + " takes no value"};
            if (isLong) throw unknown("--" + longName(word));
            // "-dpi": a long name written with one dash is told as typed.
            if (firstLetter && word.size() > 2) throw unknown(word);
            throw unknown(std::string{'-', static_cast<char>(optopt)});
        }
        // getopt_long takes any unique start of a name; a name must be
        // written whole, so that adding an option never changes what an
        // abbreviation meant.
        const Option *o = code == kHelp ? nullptr : byCode(code);
        if (isLong && longName(word) != (o != nullptr ? o->name : "help")) throw unknown("--" + longName(word));
        if (o == nullptr) throw HelpRequest{command};
        std::string value = o->value != nullptr ? optarg : "";
        if (o->value != nullptr && value.empty())
            throw UsageError{written(*o, isLong) + " needs a value"};
        o->apply(value);
        if (o->forward) {
            forwarded.push_back(std::string("--") + o->name);
            if (o->value != nullptr) forwarded.push_back(value);
        }
    }
    if (rest != nullptr) rest->assign(words.begin() + optind, words.end());
    else
        for (int i = optind; i < argc; ++i) operand(words[static_cast<size_t>(i)]);
    return forwarded;
}

std::string optionSynopsis(const Option &o) {
    std::string text = "    --";
    if (o.letter != 0) text[1] = o.letter, text[0] = '-', text[2] = ',';
    text += o.name;
    if (o.value != nullptr) text += std::string(" ") + o.value;
    return text;
}

std::string optionsHelp(const std::vector<Option> &options) {
    constexpr size_t kColumn = 30, kWidth = 79;
    std::string text;
    // The synopsis, then the help's words filled into lines from the column
    // on (under the synopsis when that is too long to share a line).
    auto entry = [&](const std::string &synopsis, const std::string &help) {
        std::string line = "  " + synopsis;
        if (line.size() + 2 > kColumn) text += line + "\n", line.clear();
        line.resize(kColumn, ' ');
        bool empty = true;
        for (size_t start = 0; start < help.size();) {
            const size_t end = std::min(help.find_first_of(" \n", start), help.size());
            const std::string word = help.substr(start, end - start);
            start = end + 1;
            if (word.empty()) continue;
            if (!empty && line.size() + 1 + word.size() > kWidth)
                text += line + "\n", line.assign(kColumn, ' '), empty = true;
            line += (empty ? "" : " ") + word;
            empty = false;
        }
        text += line + "\n";
    };
    for (const Option &o : options)
        if (!o.hidden) entry(optionSynopsis(o), o.help);
    entry("-h, --help", "this help");
    return text;
}

}  // namespace mivo4::host
