// The options of one command, parsed by getopt_long. A command is a table of
// options, one entry each: its names, what its value looks like, its help
// and what it does with the value. The help pages are made from the same
// tables, so that they cannot disagree with what a command takes.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace mivo4::host {

// A usage error: one line on standard error, then a hint; exit code 2.
struct UsageError {
    std::string message;
};

// -h or --help after a command: its help on standard output, exit code 0.
struct HelpRequest {
    std::string command;
};

struct Option {
    const char *name;   // the long name, without "--"
    char letter;        // the short name, 0 for none
    const char *value;  // what the value looks like (N, FILE, ...); nullptr: it takes none
    const char *help;   // what it does; filled into lines by optionsHelp
    std::function<void(const std::string &value)> apply;
    bool forward = false;  // passed on to a batch's workers, as --name VALUE
    bool hidden = false;   // left out of the help (taken only to be refused)
};

// Parses one command's arguments (not its name). Operands, in order and
// whatever follows "--", go to `operand`; every option's `apply` is called
// in the order given. Answers the forwarded options, normalised to
// "--name" and "VALUE" tokens whatever form they were given in. An option
// may be given as --name VALUE, --name=VALUE, -L VALUE, -LVALUE, or among
// other letters (-qj2); a value is never empty. Throws UsageError (an
// unknown option comes with a suggestion), HelpRequest for -h and --help.
// `kind` names the options in messages: "unknown export option --dpl".
// With `rest`, the first operand ends the scan (it names a command): it
// and all that follows are left in *rest.
std::vector<std::string> parseOptions(const std::string &command, const std::string &kind,
                                      const std::vector<Option> &options, const std::vector<std::string> &args,
                                      const std::function<void(const std::string &)> &operand,
                                      std::vector<std::string> *rest = nullptr);

// How a value-taking option looks in the help's first column: "-j, --jobs N".
std::string optionSynopsis(const Option &o);

// Writes a table of options as help: synopsis, then the help aligned at a
// column, continuation lines under it.
std::string optionsHelp(const std::vector<Option> &options);

}  // namespace mivo4::host
