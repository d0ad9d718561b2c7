// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
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

    /// One thing that is wrong with a file of labels, and where.
    struct Fault {
        /// Without the path: "register 12: scale must be a number".
        std::string message;
        /// The key of the label, such as "12"; empty if the fault is in no label.
        std::string label;
        /// The key within the label, such as "scale"; empty if the fault is in no such key.
        std::string key;
        /// Where the text stops being JSON, in bytes counted from 0; nothing for all other faults.
        std::optional<std::size_t> byte;
    };

    /// The text of a file of labels; nothing if the file is missing.
    ///
    /// @throws Failure the file cannot be read
    static std::optional<std::string> textOf(const std::string& path);

    /// Looks for all faults of the text of a file of labels.
    ///
    /// @return the faults; empty exactly if read() takes the text
    static std::vector<Fault> faultsIn(const std::string& text);

    /// The keys that a label may have.
    static std::vector<std::string> keys();

    /// The address that a key of "labels" stands for; nothing if it is no address.
    static std::optional<int> parseAddress(std::string_view key);

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
