// mivo4 export -o DIR INPUT...: many pictures, each to DIR/NAME.cal, by
// worker processes (the module is one instance per process), with a shard
// of a shared list for many machines.
#pragma once

#include <string>
#include <vector>

namespace mivo4::host {

struct BatchJob {
    std::string outputDir;
    std::vector<std::string> inputs;         // in list order, before sharding
    std::vector<std::string> exportOptions;  // passed to every picture's export
    std::string modulePath;
    int jobs = 0;                            // worker processes; 0: the number of cores
    int shardIndex = 0, shardCount = 1;      // take inputs shardIndex, +shardCount, ...
    bool progress = false;                   // a bar that counts pictures
    bool quiet = false;                      // no summary at the end
};

// The output file of one input: DIR/NAME.cal, NAME the input's file name
// without its last extension.
std::string batchOutputName(const std::string &dir, const std::string &input);

// Reads a list of paths, one a line ("-": standard input); empty lines are
// skipped. Throws std::runtime_error.
std::vector<std::string> readFileList(const std::string &path);

// Runs the job; answers the exit code (0 all done, 1 any failed, 2 a job
// that cannot start).
int runBatch(const BatchJob &job);

}  // namespace mivo4::host
