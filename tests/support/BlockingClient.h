// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "RegisterMap.h"
#include "support/GLibOwners.h"

/// A bare GDBus connection to the bus, with synchronous calls. Unlike BusClient it hears no
/// changes.
class Connection {
 public:
    Connection() {
        GError* error = nullptr;
        bus = g_dbus_connection_new_for_address_sync(
            std::getenv("DBUS_SYSTEM_BUS_ADDRESS"),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        if (bus == nullptr) {
            const ErrorOwner owner(error);
            throw std::runtime_error(error->message);
        }
    }
    ~Connection() {
        g_dbus_connection_close_sync(bus, nullptr, nullptr);
        g_object_unref(bus);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    GDBusConnection* get() const { return bus; }

    /// Calls a method of a register service.
    VariantOwner call(const std::string& service, const char* method, GVariant* arguments) const {
        return call(service, RegisterMap::DBUS_OBJECT_NAME.c_str(), "org.mirel.Register", method,
                    arguments);
    }

    /// Calls the bus itself and waits for its answer, which comes after all that was sent before.
    void callBus() const {
        call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
             nullptr);
    }

 private:
    VariantOwner call(const std::string& service, const char* path, const char* interface,
                      const char* method, GVariant* arguments) const {
        GError* error = nullptr;
        GVariant* reply =
            g_dbus_connection_call_sync(bus, service.c_str(), path, interface, method, arguments,
                                        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (reply == nullptr) {
            const ErrorOwner owner(error);
            throw std::runtime_error(service + ", " + method + ": " + error->message);
        }
        return VariantOwner(reply);
    }

    GDBusConnection* bus;
};
