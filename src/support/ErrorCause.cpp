// SPDX-License-Identifier: MIT
#include "ErrorCause.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "GLibOwners.h"

namespace {

using Cause = ServiceError::Cause;

constexpr std::string_view ERRORS_OF_THE_BUS = "org.freedesktop.DBus.Error.";
/// How the bus begins the names of its reasons why it cannot start a service.
constexpr std::string_view SPAWN = "Spawn.";

struct NamedCause {
    std::string_view name;
    Cause cause;
};
constexpr std::array<NamedCause, 7> NAMED_CAUSES{{
    {"Failed", Cause::REFUSED},
    {"ServiceUnknown", Cause::NO_SERVICE},
    {"NameHasNoOwner", Cause::NO_SERVICE},
    // The bus has waited for the start of the service.
    {"TimedOut", Cause::NO_SERVICE},
    {"NoReply", Cause::NO_REPLY},
    {"AccessDenied", Cause::ACCESS_DENIED},
    {"LimitsExceeded", Cause::LIMITS_EXCEEDED},
}};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

Cause causeOfName(std::string_view name) {
    if (!startsWith(name, ERRORS_OF_THE_BUS)) {
        return Cause::OTHER;
    }
    name.remove_prefix(ERRORS_OF_THE_BUS.size());
    if (startsWith(name, SPAWN)) {
        return Cause::NO_SERVICE;
    }
    const auto* const found =
        std::find_if(NAMED_CAUSES.begin(), NAMED_CAUSES.end(),
                     [name](const NamedCause& named) { return named.name == name; });
    return found == NAMED_CAUSES.end() ? Cause::OTHER : found->cause;
}

}  // namespace

std::string busNameOf(const GError& error) {
    const StringOwner name(g_dbus_error_get_remote_error(&error));
    return name ? name.get() : "";
}

Cause causeOf(const GError& error) {
    if (g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE) {
        return Cause::TIMED_OUT;
    }
    if (g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_CLOSED) != FALSE) {
        return Cause::NO_BUS;
    }
    return causeOfName(busNameOf(error));
}
