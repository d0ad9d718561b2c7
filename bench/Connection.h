// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "GLibOwners.h"
#include "RegisterMap.h"

/// A bare GDBus connection to the bus under measurement, with synchronous calls.
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

    VariantOwner call(const std::string& service, const char* method, GVariant* arguments) const {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            bus, service.c_str(), RegisterMap::DBUS_OBJECT_NAME.c_str(), "org.mirel.Register",
            method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (reply == nullptr) {
            const ErrorOwner owner(error);
            throw std::runtime_error(service + ", " + method + ": " + error->message);
        }
        return VariantOwner(reply);
    }

 private:
    GDBusConnection* bus;
};

/// Keeps this process, and those that it starts from now on, on the core where it runs.
inline void stayOnOneCore() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &core);
    if (sched_setaffinity(0, sizeof core, &core) != 0) {
        throw std::runtime_error(std::string("cannot stay on one core: ") + std::strerror(errno));
    }
}
