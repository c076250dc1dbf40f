// What mivo4 says about itself: the short usage (mivo4 alone), the whole help
// (mivo4 --help, from which the manual page is made) and each command's own
// (mivo4 help COMMAND, mivo4 COMMAND --help).
#pragma once

#include <string>
#include <vector>

#include "cli_parser.h"

namespace mivo4::host {

// The commands, in the order the help lists them.
const std::vector<std::string> &commandNames();

// The options before the command: --module PATH, --limit-memory SIZE,
// --version.
std::vector<Option> globalOptions(std::string &modulePath, bool &version);

// info's and decode's one option.
std::vector<Option> limitMemoryOptions();

// The usage and the list of commands.
std::string shortUsage();

// Everything: the commands, the global options and export's options.
std::string fullHelp();

// One command's help; "" for a command that does not exist. The command
// "" is fullHelp().
std::string commandHelp(const std::string &command);

}  // namespace mivo4::host
