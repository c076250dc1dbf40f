// mivo4 module-info and mivo4 --version: what the module is and holds.
#pragma once

#include <string>

namespace mivo4::host {

// The module's entry table and version; answers the exit code.
int moduleInfoCommand(const std::string &modulePath);

// The host's version, and the module's file version and where it was found.
int versionCommand(const std::string &modulePath);

}  // namespace mivo4::host
