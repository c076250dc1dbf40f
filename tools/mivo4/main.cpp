// mivo4: command-line host of the mivo42.flt export filter.
#include "cli.h"

int main(int argc, char **argv) { return mivo4::host::runCli(argc, argv); }
