// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Object.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "AddressRanges.h"

/// One object of a configuration file. Each key is asked for with what it may hold; what is wrong
/// is noted with its place, and the default stands for it. So one pass finds every fault.
class ConfigSection {
 public:
    /// Reads the root of a configuration file. A document that is no JSON object is a fault.
    ///
    /// @param faults where faults are noted; outlives the section
    /// @throws Failure the file is missing or cannot be read
    static ConfigSection read(const std::string& path, std::vector<std::string>& faults);

    /// Whether the key is there.
    bool has(const std::string& key) const;

    /// A text of 1 to `most` bytes without control characters.
    std::string text(const std::string& key, const std::string& otherwise, std::size_t most = 200);

    /// A whole number.
    int whole(const std::string& key, int otherwise, int lowest, int highest);

    /// A number.
    double number(const std::string& key, double otherwise, double lowest, double highest);

    /// true or false.
    bool flag(const std::string& key, bool otherwise);

    /// A list of addresses and ranges: 12, "12" or "12-20".
    AddressRanges ranges(const std::string& key);

    /// An object within this one; an empty one when the key is missing.
    ConfigSection section(const std::string& key);

    /// The keys of this object, as the file has them.
    std::vector<std::string> keys() const;

    /// Notes a fault at a key of this object.
    void refuse(const std::string& key, const std::string& text);

    /// Notes each key that was never asked for: it is misspelt.
    void refuseOthers();

 private:
    ConfigSection(Poco::JSON::Object::Ptr content, std::string where,
                  std::vector<std::string>& noted);

    Poco::Dynamic::Var take(const std::string& key);
    void addRange(const std::string& key, const Poco::Dynamic::Var& item, AddressRanges& ranges);

    Poco::JSON::Object::Ptr object;
    std::string place;
    std::vector<std::string>& faults;
    std::set<std::string> known;
};
