// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <string>

namespace tesk {

/// Root of the long-lived objects: gives each a logger.
///
/// Not copyable: the logger belongs to one object.
class [[gnu::visibility("default")]] ObjectBase {
 public:
    ObjectBase(const ObjectBase&) = delete;
    ObjectBase& operator=(const ObjectBase&) = delete;

    /// Destroys the logger if this object has one of its own.
    virtual ~ObjectBase() {
        if (ownsLogger) {
            Poco::Logger::destroy(loggerName);
        }
    }

 protected:
    /// Selects the constructor with a shared logger, which outlives the object.
    struct SharedLogger {};

    /// Creates a logger of this object's own, named `name`, a point and the object's address in
    /// lower-case hexadecimal ("register-12.1c3e0a8").
    explicit ObjectBase(const std::string& name)
        : loggerName(name + "." + hexadecimal(this)),
          ownsLogger(true),
          logger(Poco::Logger::get(loggerName)) {}

    /// Uses the logger named exactly `name`, which stays when the object goes.
    ObjectBase(SharedLogger /*form*/, const std::string& name)
        : loggerName(name), ownsLogger(false), logger(Poco::Logger::get(loggerName)) {}

 private:
    /// The address of an object. A map has a thousand of them, and Poco::format is ten times
    /// slower.
    static std::string hexadecimal(const ObjectBase* object) {
        const auto address = reinterpret_cast<std::uintptr_t>(object);
        std::array<char, 2 * sizeof(address)> digits{};
        const auto result =
            std::to_chars(digits.data(), digits.data() + digits.size(), address, 16);
        return {digits.data(), result.ptr};
    }

    std::string objectName{"Object"};
    std::string loggerName;
    bool ownsLogger;

 protected:
    /// The logger for the derived class's lines; usable from any thread.
    Poco::Logger& logger;
};

}  // namespace tesk
