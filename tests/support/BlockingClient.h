// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <stdexcept>
#include <string>

#include "BusClient.h"
#include "BusConnection.h"
#include "BusContract.h"
#include "support/GLibOwners.h"

/// A client of register services, bare GDBus, on a connection of its own. Each call blocks its
/// thread until the answer is there. It runs no main context and hears no changes; BusClient does.
class BlockingClient {
 public:
    BlockingClient() = default;
    ~BlockingClient() { g_dbus_connection_close_sync(bus.get(), nullptr, nullptr); }
    BlockingClient(const BlockingClient&) = delete;
    BlockingClient& operator=(const BlockingClient&) = delete;

    GDBusConnection* connection() const { return bus.get(); }

    /// Calls a method of a register service.
    ///
    /// @throws std::runtime_error the call failed
    VariantOwner call(const std::string& service, const char* method, GVariant* arguments) const {
        return call(service, BusContract::OBJECT_PATH, BusClient::INTERFACE, method, arguments);
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
        VariantOwner reply(g_dbus_connection_call_sync(
            bus.get(), service.c_str(), path, interface, method, arguments, nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error));
        if (!reply) {
            const ErrorOwner owner(error);
            throw std::runtime_error(service + ", " + method + ": " + error->message);
        }
        return reply;
    }

    ObjectOwner<GDBusConnection> bus = connectToBus();
};
