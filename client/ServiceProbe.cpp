// SPDX-License-Identifier: MIT
#include "ServiceProbe.h"

#include <algorithm>
#include <string>

#include "BusContract.h"
#include "RegisterType.h"
#include "support/GLibOwners.h"
#include "support/TimeLimit.h"
#include "tesk/Exceptions.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORTEST(400);
constexpr milliseconds LONGEST(5000);

[[noreturn]] void fail(const std::string& what, GError* error) {
    const ErrorOwner owner(error);
    // Only the time limit cancels.
    const bool timedOut = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
    throw tesk::InputOutputException(what + (timedOut ? "Timeout was reached" : error->message));
}

ObjectOwner<GDBusConnection> connect(GCancellable* cancellable) {
    GError* error = nullptr;
    const StringOwner address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, &error));
    if (!address) {
        fail("Error initializing DBus: ", error);
    }
    ObjectOwner<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable, &error));
    if (!connection) {
        fail("Error initializing DBus: ", error);
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
        fail("Error calling method: ", error);
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
