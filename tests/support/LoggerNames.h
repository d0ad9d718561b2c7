// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

/// The name of an object's own logger: a base name, a point and the object's address.
inline std::string loggerNameOf(const std::string& baseName, const void* object) {
    std::ostringstream name;
    name << baseName << '.' << std::hex << reinterpret_cast<std::uintptr_t>(object);
    return name.str();
}

/// Whether there is a logger with exactly this name at the moment.
inline bool loggerExists(const std::string& name) {
    return Poco::Logger::has(name) != nullptr;
}

/// The names of all loggers there are at the moment, sorted; that of the root, which comes into
/// being with the first of them and stays, always among them.
inline std::vector<std::string> loggerNames() {
    Poco::Logger::root();
    std::vector<std::string> names;
    Poco::Logger::names(names);
    std::sort(names.begin(), names.end());
    return names;
}
