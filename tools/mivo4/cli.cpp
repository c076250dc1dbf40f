#include "cli.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "cfb.h"
#include "cli_export_options.h"
#include "cli_help.h"
#include "cli_parser.h"
#include "decode.h"
#include "export.h"
#include "info.h"
#include "module.h"
#include "module_info.h"
#include "progress.h"
#include "replay.h"
#include "suggest.h"

namespace mivo4::host {

namespace {

const char kHint[] = "(mivo4 --help lists the commands and options)\n";

// ---------------------------------------------------------------- commands

// The operands of a command whose only options are `options`.
std::vector<std::string> operandsOf(const std::string &command, const std::vector<Option> &options,
                                    const std::vector<std::string> &args) {
    std::vector<std::string> operands;
    parseOptions(command, command, options, args, [&](const std::string &o) { operands.push_back(o); });
    return operands;
}

int helpCommand(const std::vector<std::string> &args) {
    std::vector<std::string> topics = operandsOf("help", {}, args);
    if (topics.size() > 1) throw UsageError{"help takes one COMMAND"};
    const std::string topic = topics.empty() ? std::string() : topics[0];
    const std::string text = commandHelp(topic);
    if (text.empty()) throw UsageError{"unknown command " + topic + didYouMean(topic, commandNames())};
    std::fputs(text.c_str(), stdout);
    return 0;
}

int runCommand(const std::string &modulePath, const std::string &command, const std::vector<std::string> &args) {
    if (command == "export") return exportCommand(modulePath, args);
    if (command == "replay") {
        ExportArgs a;
        a.replay = true;
        parseExportArguments(args, a);
        if (a.files.size() != 2) throw UsageError{"replay takes export options, a TRACE.ddt and an OUTPUT"};
        return replayCommand(modulePath, a.settings, a.files[0], a.files[1]);
    }
    if (command == "info") {
        std::vector<std::string> files = operandsOf(command, limitMemoryOptions(), args);
        if (files.empty()) throw UsageError{"info takes one or more GP4 files"};
        return infoCommand(files);
    }
    if (command == "decode") {
        std::vector<std::string> files = operandsOf(command, limitMemoryOptions(), args);
        if (files.size() != 2) throw UsageError{"decode takes a GP4 file and an output .pbm or .png"};
        return decodeCommand(files[0], files[1]);
    }
    if (command == "module-info") {
        if (!operandsOf(command, {}, args).empty()) throw UsageError{"module-info takes no arguments"};
        return moduleInfoCommand(modulePath);
    }
    if (command == "cfb") return cfbCommand(modulePath, operandsOf(command, {}, args));
    if (command == "help") return helpCommand(args);
    throw UsageError{"unknown command " + command + didYouMean(command, commandNames())};
}

}  // namespace

int runCli(int argc, char **argv) {
    std::string modulePath = defaultModulePath(argc > 0 ? argv[0] : nullptr);
    const std::vector<std::string> args(argv + std::min(argc, 1), argv + argc);
    if (args.empty()) {
        // No command: what there is to ask for.
        std::fputs(shortUsage().c_str(), stdout);
        return 2;
    }
    try {
        bool version = false;
        std::vector<std::string> rest;
        parseOptions("", "", globalOptions(modulePath, version), args, nullptr, &rest);
        if (version) return versionCommand(modulePath);
        if (rest.empty()) throw UsageError{"a COMMAND is needed"};
        return runCommand(modulePath, rest[0], std::vector<std::string>(rest.begin() + 1, rest.end()));
    } catch (const HelpRequest &h) {
        std::fputs(commandHelp(h.command).c_str(), stdout);
        return 0;
    } catch (const UsageError &e) {
        std::fprintf(stderr, "mivo4: %s\n%s", e.message.c_str(), kHint);
        return 2;
    } catch (const std::bad_alloc &) {
        // Whatever ran out, the output was not kept: its temporary file went
        // with the object that owned it.
        return fail("out of memory (a smaller picture, or --limit-memory below what the machine can give)");
    }
}

}  // namespace mivo4::host
