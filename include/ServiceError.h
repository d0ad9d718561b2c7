// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

#include "tesk/Exceptions.h"

/// What the class IoMapping throws: besides the text for people, what a program needs to decide
/// what to do next.
///
///     try {
///         io.writeValue(1, 1);
///     } catch (const ServiceError& e) {
///         if (e.getCause() == ServiceError::Cause::NO_SERVICE) { ... }
///     }
///
/// The text may change with the user's language, as GLib translates its part. The cause and the
/// name do not change.
class [[gnu::visibility("default")]] ServiceError : public tesk::InputOutputException {
 public:
    /// What has gone wrong.
    enum class Cause {
        REFUSED,          ///< The service has answered that it does not or cannot do this.
        NO_SERVICE,       ///< The service is not running, and the bus has not started it.
        NO_REPLY,         ///< The service has ended before it answered; it may have done the write.
        TIMED_OUT,        ///< No answer within 5 seconds; the service may still do the write.
        ACCESS_DENIED,    ///< The policy of the bus does not let this user do that.
        LIMITS_EXCEEDED,  ///< The list is too long, or this program has too many calls waiting.
        NO_BUS,           ///< The bus cannot be reached, or has gone. Make a new object.
        OTHER,            ///< Anything else; the name tells, if the error came over the bus.
    };

    /// @param text what what() returns
    /// @param why what has gone wrong
    /// @param name the error's name on D-Bus, or nothing
    ServiceError(const std::string& text, Cause why, std::string name)
        : InputOutputException(text), cause(why), errorName(std::move(name)) {}

    /// What has gone wrong.
    Cause getCause() const noexcept {
        return cause;
    }

    /// The error's name on D-Bus, such as "org.freedesktop.DBus.Error.Failed". Empty when the error
    /// did not come over the bus: the time is up, there is no connection, or the call was not sent.
    const std::string& getErrorName() const noexcept {
        return errorName;
    }

 private:
    Cause cause;
    std::string errorName;
};
