// The mivo4 command line.
#pragma once

namespace mivo4::host {

// Runs one command; returns the process's exit code: 0 success, 1 failure,
// 2 a usage error or an option the module refused.
int runCli(int argc, char **argv);

}  // namespace mivo4::host
