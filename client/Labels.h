// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Label.h"

/// The labels of a device: names, units and scales of registers, from a file that whoever installs
/// the device writes.
class Labels {
 public:
    /// Where the labels of a device are.
    static constexpr const char* DEFAULT_FILE = "/etc/io-mapping/labels.json";

    /// The environment variable that names another file.
    static constexpr const char* FILE_VARIABLE = "IO_MAPPING_LABELS";

    /// The file that the environment names, or else DEFAULT_FILE.
    static std::string file();

    /// No label at all.
    Labels() = default;

    /// Reads a file of labels. A file that is missing holds no label.
    ///
    /// @throws Failure the file cannot be read or has faults; the message names the file, the first
    ///         fault and its place
    static Labels read(const std::string& path = file());

    /// Looks for all faults of a file of labels.
    ///
    /// @return one line for each fault, without the path: "register 12: scale must not be 0"; empty
    ///         if the file is good
    /// @throws Failure the file cannot be read
    static std::vector<std::string> faultsOf(const std::string& path);

    /// The label of a register; null when it has none. Valid as long as this object.
    const Label* find(int address) const;

    /// The register with a name.
    std::optional<int> addressOf(const std::string& name) const;

    /// All labels, by address.
    const std::map<int, Label>& all() const;

 private:
    std::map<int, Label> labels;
    std::map<std::string, int> addresses;
};
