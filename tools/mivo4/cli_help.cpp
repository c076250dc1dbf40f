#include "cli_help.h"

#include "cli_export_options.h"
#include "cli_values.h"

namespace mivo4::host {

namespace {

struct CommandText {
    const char *name;
    const char *summary;  // one line, for the list of commands
    const char *usage;    // the synopsis, one line for each way of calling it
    const char *about;    // what it does, after the synopsis
};

const CommandText kCommands[] = {
    {"export", "export a PNG, JPEG, TIFF or PNM picture (or many) as GP4",
     "mivo4 export [options] INPUT OUTPUT\n"
     "mivo4 export [options] --demo OUTPUT\n"
     "mivo4 export [options] -o DIR INPUT...\n",
     "Exports a picture as a GP4 file (CALS Type 1: a 2048-byte header and one\n"
     "CCITT Group 4 stream) through the module. INPUT may be - for standard\n"
     "input (read once, its format told from its first bytes), OUTPUT - for\n"
     "standard output. With -o DIR, many pictures are converted, each to DIR/NAME.cal, by\n"
     "worker processes; one failure does not stop the others. -- ends the\n"
     "options: only INPUTs and OUTPUT follow.\n"},
    {"replay", "send a recorded driver session to the module again",
     "mivo4 replay [options] TRACE.ddt OUTPUT\n",
     "Sends the elements a trace recorded (export --via gdp --trace) to the\n"
     "module's raster driver again, with a setup made from the options.\n"},
    {"info", "show GP4 files' headers, flag what is unusual, check the coded pictures",
     "mivo4 info [options] FILE.cal...\n",
     "Shows each file's header records, the size, the density and the orientation in\n"
     "words; warns of record names and values outside the format and of records out of\n"
     "their usual order; decodes the coded picture row by row to check that it holds\n"
     "exactly what the header states. Exit status 1 when any file fails.\n"},
    {"decode", "decode a GP4 file to PBM or PNG to look at it",
     "mivo4 decode [options] FILE.cal OUT.pbm|OUT.png|-\n",
     "Decodes the coded picture with libtiff's decoder and writes it as PBM or\n"
     "PNG (by OUT's extension; - writes PBM to standard output).\n"},
    {"module-info", "show the module's entry table and version", "mivo4 module-info\n",
     "Loads the module as any host does and lists its entries.\n"},
    {"cfb", "list or read the streams of a compound document",
     "mivo4 cfb list FILE\n"
     "mivo4 cfb cat FILE STREAM\n",
     "list shows the storages and streams of a compound document; cat writes\n"
     "one stream (a path like Pictures/Page1) to standard output.\n"},
    {"help", "show the help of a command", "mivo4 help [COMMAND]\n",
     "Shows a command's help, or without one all of mivo4's.\n"},
};

const CommandText *find(const std::string &name) {
    for (const CommandText &c : kCommands)
        if (name == c.name) return &c;
    return nullptr;
}

// The synopsis lines as the field writes them: "Usage: " before the first,
// "  or:  " before the others (which help2man reads as more synopses).
std::string usageLines(const std::string &text) {
    std::string out;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        out += (start == 0 ? "Usage: " : "  or:  ") + text.substr(start, end - start) + "\n";
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return out;
}

std::string commandList() {
    std::string text = "Commands:\n";
    for (const CommandText &c : kCommands) {
        std::string name = std::string("  ") + c.name;
        text += name + std::string(name.size() < 15 ? 15 - name.size() : 1, ' ') + c.summary + "\n";
    }
    return text;
}

const char kSynopsis[] =
    "Usage: mivo4 [--module PATH] [--limit-memory SIZE] COMMAND [options] ...\n"
    "  or:  mivo4 --version | --help | help COMMAND\n";

const char kTail[] =
    "INPUT may be - for standard input, OUTPUT - for standard output. The exit\n"
    "status is 0 when all went well, 1 when something failed, 2 for a usage error\n"
    "or an option the module refused.\n";

}  // namespace

const std::vector<std::string> &commandNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> n;
        for (const CommandText &c : kCommands) n.push_back(c.name);
        return n;
    }();
    return names;
}

std::vector<Option> globalOptions(std::string &modulePath, bool &version) {
    return {
        {"module", 0, "PATH", "the module to load (default: $MIVO4_MODULE, else "
                              "mivo42.flt in the installed lib/mivo4, else beside mivo4)",
         [&](const std::string &v) { modulePath = v; }},
        {"limit-memory", 0, "SIZE", "the most a picture may take, e.g. 512M or 2G "
                                    "(default: half the memory, at most 4G)",
         [](const std::string &v) { setLimit(v); }},
        {"version", 0, nullptr, "the version of mivo4 and of the module, and where it is",
         [&](const std::string &) { version = true; }},
    };
}

std::vector<Option> limitMemoryOptions() {
    return {{"limit-memory", 0, "SIZE", "the most the file may take, e.g. 512M or 2G "
                                        "(default: half the memory, at most 4G)",
             [](const std::string &v) { setLimit(v); }}};
}

std::string shortUsage() {
    return std::string(kSynopsis) + "\n" + commandList() +
           "\n'mivo4 help COMMAND' shows a command's options, 'mivo4 --help' all of them.\n";
}

std::string fullHelp() {
    ExportArgs unused;
    std::string path;
    bool version = false;
    return std::string(kSynopsis) +
           "\nExports pictures as CALS Type 1 raster files (GP4: a 2048-byte header and one\n"
           "CCITT Group 4 stream) through the mivo42.flt filter module, and looks into\n"
           "them.\n\n" +
           commandList() + "\nGlobal options (before the command):\n" + optionsHelp(globalOptions(path, version)) +
           "\nExport options (mivo4 export [options] INPUT OUTPUT):\n" + optionsHelp(exportOptions(unused)) +
           "\nreplay takes the export options that do not concern a picture; info and decode\n"
           "take --limit-memory SIZE. 'mivo4 help COMMAND' shows one command's own help.\n\n" +
           kTail;
}

std::string commandHelp(const std::string &command) {
    if (command.empty()) return fullHelp();
    const CommandText *c = find(command);
    if (c == nullptr) return {};
    std::string text = usageLines(c->usage) + "\n" + c->about;
    ExportArgs args;
    args.replay = command == "replay";
    std::vector<Option> options;
    if (command == "export" || command == "replay") options = exportOptions(args);
    if (command == "info" || command == "decode") options = limitMemoryOptions();
    return text + "\nOptions:\n" + optionsHelp(options);
}

}  // namespace mivo4::host
