// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <cstdlib>
#include <stdexcept>

#include "support/GLibOwners.h"

/// Connects to the bus that DBUS_SYSTEM_BUS_ADDRESS names.
///
/// @return a connection that nobody else uses; its user closes it
/// @throws std::runtime_error with GLib's words
inline ObjectOwner<GDBusConnection> connectToBus() {
    GError* error = nullptr;
    ObjectOwner<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        std::getenv("DBUS_SYSTEM_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error));
    if (!connection) {
        const ErrorOwner owner(error);
        throw std::runtime_error(error->message);
    }
    return connection;
}
