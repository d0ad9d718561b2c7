// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include "BlockingClient.h"

/// A bare subscription to changes of registers, served by the default main context, which keeps the
/// last value.
class Subscription {
 public:
    /// Hears all changes from now on.
    /// @param client outlives the subscription
    /// @param sender whose changes, or null for anybody's
    explicit Subscription(const BlockingClient& client, const char* sender = nullptr)
        : bus(client.connection()) {
        id = g_dbus_connection_signal_subscribe(
            bus, sender, BusClient::INTERFACE, "OnValueChange", nullptr, nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE,
            [](GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/,
               const gchar* /*interface*/, const gchar* /*signal*/, GVariant* parameters,
               gpointer last) {
                gint32 address = 0;
                g_variant_get(parameters, "(ii)", &address, static_cast<gint32*>(last));
            },
            &value, nullptr);
        // The bus may be told of it only after what another connection sends next.
        client.callBus();
    }
    ~Subscription() { g_dbus_connection_signal_unsubscribe(bus, id); }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    /// Runs the main context until that value has come.
    void waitFor(int wanted) const {
        while (value != wanted) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

 private:
    GDBusConnection* bus;
    guint id;
    gint32 value{0};
};
