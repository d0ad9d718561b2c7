// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <utility>

#include "BusClient.h"
#include "CallFilter.h"
#include "support/GLibOwners.h"

/// Has the name of the service on the bus, and takes its calls.
class StandInService {
 public:
    explicit StandInService(CallFilter::Handler handler)
        : filter(client.connection(), std::move(handler)) {
        const VariantOwner reply(g_dbus_connection_call_sync(
            client.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", BusClient::SERVICE, 0),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(reply);
    }

    GDBusConnection* connection() const { return client.connection(); }

 private:
    const BusClient client;
    const CallFilter filter;
};
