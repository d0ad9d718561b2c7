// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

/// What the command line of iomappingd asks for.
struct Options {
    std::string mapFile{"/etc/io-mapping/map.json"};
    /// A priority of Poco::Message, 0 (nothing) to 8 (trace).
    int logLevel{};
    /// Check the map instead of serving it.
    bool check{false};
    /// For a check: the drivers of another device, with commas between them.
    std::optional<std::string> devices;
    /// For a check: the file of labels. Without it, that of the device is checked if there is one.
    std::optional<std::string> labels;
    /// For a check: print JSON.
    bool json{false};
};

/// Reads the command line. `--help` and `--version` print and end the process with EXIT_SUCCESS.
///
/// @throws UsageError the command line cannot be understood
Options readOptions(int argc, char** argv);
