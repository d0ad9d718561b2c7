// SPDX-License-Identifier: MIT
#include "Failure.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "ServiceError.h"

namespace {

constexpr std::string_view CALL_PREFIX = "Error calling method: ";
constexpr std::string_view BUS_PREFIX = "GDBus.Error:";
constexpr std::string_view SYSTEMD_PREFIX = "org.freedesktop.systemd1.";
constexpr std::string_view NO_BUS = "Error initializing DBus: ";
constexpr const char* BUS_GONE = "the D-Bus system bus has gone; start it and iomappingd";
constexpr std::string_view TIMEOUT = "Error calling method: Timeout was reached";

/// What to say of errors whose own words do not tell the user what to do.
struct Advice {
    std::string_view start;
    std::string_view words;
};
constexpr std::array<Advice, 6> ADVICE{{
    {"Error calling method: GDBus.Error:org.freedesktop.DBus.Error.ServiceUnknown",
     "the service is not running; start iomappingd"},
    {"Error calling method: GDBus.Error:org.freedesktop.DBus.Error.NameHasNoOwner",
     "the service is not running; start iomappingd"},
    {"Error calling method: GDBus.Error:org.freedesktop.DBus.Error.NoReply",
     "the service has ended before it answered; start iomappingd"},
    {TIMEOUT, "the service does not answer; restart iomappingd"},
    {"Error calling method: The connection is closed", BUS_GONE},
    {"Error calling method: GDBus.Error:org.freedesktop.DBus.Error.AccessDenied",
     "this user may not do that; become root or a member of the group io-mapping"},
}};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool hasCause(const std::exception& error, ServiceError::Cause cause) {
    const auto* const failure = dynamic_cast<const ServiceError*>(&error);
    return failure != nullptr && failure->getCause() == cause;
}

}  // namespace

Failure busFailure() {
    return Failure(BUS_GONE, EXIT_NO_SERVICE);
}

int exitStatusOf(const std::exception& error) {
    if (const auto* const failure = dynamic_cast<const Failure*>(&error)) {
        return failure->getStatus();
    }
    const auto* const failure = dynamic_cast<const ServiceError*>(&error);
    if (failure == nullptr) {
        return EXIT_FAILURE;
    }
    switch (failure->getCause()) {
        case ServiceError::Cause::NO_SERVICE:
        case ServiceError::Cause::NO_REPLY:
        case ServiceError::Cause::TIMED_OUT:
        case ServiceError::Cause::NO_BUS:
            return EXIT_NO_SERVICE;
        case ServiceError::Cause::ACCESS_DENIED:
            return EXIT_NO_RIGHTS;
        case ServiceError::Cause::REFUSED:
        case ServiceError::Cause::LIMITS_EXCEEDED:
        case ServiceError::Cause::OTHER:
            break;
    }
    // The bus has systemd start the service, and passes on why systemd does not.
    return startsWith(failure->getErrorName(), SYSTEMD_PREFIX) ? EXIT_NO_SERVICE : EXIT_FAILURE;
}

bool isRefusal(const std::exception& error) {
    return hasCause(error, ServiceError::Cause::REFUSED);
}

bool isTimeout(const std::exception& error) {
    return hasCause(error, ServiceError::Cause::TIMED_OUT);
}

std::string reasonOf(const std::exception& error) {
    std::string_view text = error.what();
    const auto* const advice = std::find_if(ADVICE.begin(), ADVICE.end(), [text](const Advice& a) {
        return startsWith(text, a.start);
    });
    if (advice != ADVICE.end()) {
        return std::string(advice->words);
    }
    if (startsWith(text, NO_BUS)) {
        return "cannot reach the D-Bus system bus: " + std::string(text.substr(NO_BUS.size())) +
               "; is dbus-daemon running?";
    }
    if (startsWith(text, CALL_PREFIX)) {
        text.remove_prefix(CALL_PREFIX.size());
    }
    if (startsWith(text, BUS_PREFIX)) {
        const auto nameEnd = text.find(": ");
        text.remove_prefix(nameEnd == std::string_view::npos ? BUS_PREFIX.size() : nameEnd + 2);
    }
    return std::string(text);
}
