// SPDX-License-Identifier: MIT
#include "ServiceProbe.h"

#include <algorithm>
#include <string>

#include "BusContract.h"
#include "RegisterType.h"
#include "ServiceError.h"
#include "support/ErrorCause.h"
#include "support/GLibOwners.h"
#include "support/TimeLimit.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORTEST(400);
constexpr milliseconds LONGEST(5000);

/// Whether the time limit has ended a call: nothing else cancels.
bool isTimeUp(const GError& error) {
    return g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

[[noreturn]] void fail(const std::string& what, const GError& error, ServiceError::Cause cause) {
    throw ServiceError(what + (isTimeUp(error) ? "Timeout was reached" : error.message), cause,
                       busNameOf(error));
}

[[noreturn]] void failWithoutBus(GError* error) {
    const ErrorOwner owner(error);
    fail("Error initializing DBus: ", *error, ServiceError::Cause::NO_BUS);
}

[[noreturn]] void failCall(GError* error) {
    const ErrorOwner owner(error);
    fail("Error calling method: ", *error,
         isTimeUp(*error) ? ServiceError::Cause::TIMED_OUT : causeOf(*error));
}

ObjectOwner<GDBusConnection> connect(GCancellable* cancellable) {
    GError* error = nullptr;
    const StringOwner address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, &error));
    if (!address) {
        failWithoutBus(error);
    }
    ObjectOwner<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable, &error));
    if (!connection) {
        failWithoutBus(error);
    }
    return connection;
}

/// A type without registers is answered, too. The answer comes from the service's main loop; GDBus
/// alone would answer a ping for a service that hangs.
void ask(GDBusConnection* connection, GDBusCallFlags flags, GCancellable* cancellable) {
    GError* error = nullptr;
    const VariantOwner reply(g_dbus_connection_call_sync(
        connection, BusContract::SERVICE_NAME, BusContract::OBJECT_PATH,
        BusContract::INTERFACE_NAME, "GetAddrsPerType",
        g_variant_new("(i)", static_cast<gint32>(RegisterType::UNKNOWN)), nullptr, flags, G_MAXINT,
        cancellable, &error));
    if (!reply) {
        failCall(error);
    }
}

}  // namespace

void probeService(milliseconds limit, ServiceStart start) {
    const GDBusCallFlags flags =
        start == ServiceStart::ALLOWED ? G_DBUS_CALL_FLAGS_NONE : G_DBUS_CALL_FLAGS_NO_AUTO_START;
    withinTimeLimit(limit, [flags](GCancellable* cancellable) {
        ask(connect(cancellable).get(), flags, cancellable);
    });
}

milliseconds probeLimit(std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
    return std::clamp(left, SHORTEST, LONGEST);
}
