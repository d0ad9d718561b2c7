// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What the command line of iomappingd asks for.
struct Options {
    std::string mapFile{"/etc/io-mapping/map.json"};
    /// A priority of Poco::Message, 0 (nothing) to 8 (trace).
    int logLevel{};
};

/// Reads the command line. `--help` and `--version` print and end the process with EXIT_SUCCESS.
///
/// @throws UsageError the command line cannot be understood
Options readOptions(int argc, char** argv);
