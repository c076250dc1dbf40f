// The options of export and replay: what each takes, its help, and what it
// sets. Adding an option is one entry in exportOptions().
#pragma once

#include <string>
#include <vector>

#include "batch.h"
#include "cli_parser.h"
#include "exporter.h"

namespace mivo4::host {

struct ExportArgs {
    bool replay = false;  // replay's options: no picture is read, no batch
    ExportSettings settings;
    bool demo = false;
    BatchJob batch;                  // -o, -j, --files-from, --shard; exportOptions for every picture
    std::vector<std::string> files;  // INPUTs and OUTPUT in order; --files-from's INPUTs where it stands
};

// The table of options; every entry sets its part of a.
std::vector<Option> exportOptions(ExportArgs &a);

// Parses the arguments after "export" or "replay" into a (a.replay chosen
// beforehand). Throws UsageError, HelpRequest.
void parseExportArguments(const std::vector<std::string> &args, ExportArgs &a);

}  // namespace mivo4::host
