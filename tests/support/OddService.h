// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "BusClient.h"
#include "support/GLibOwners.h"

/// Has the name of the service, and answers every call with the same body, in a thread of GDBus.
class OddService {
 public:
    /// @param text the body in GVariant's text form, such as "('five',)"; empty to leave the bus
    ///        instead of answering
    explicit OddService(std::string text) : body(std::move(text)) {
        filter = g_dbus_connection_add_filter(client.connection(), onMessage, this, nullptr);
        const VariantOwner reply(g_dbus_connection_call_sync(
            client.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", BusClient::SERVICE, 0),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(reply);
    }
    ~OddService() { g_dbus_connection_remove_filter(client.connection(), filter); }
    OddService(const OddService&) = delete;
    OddService& operator=(const OddService&) = delete;

 private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer service) {
        if (incoming == FALSE ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        const ObjectOwner<GDBusMessage> call(message);
        const std::string& text = static_cast<OddService*>(service)->body;
        if (text.empty()) {
            g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
            return nullptr;
        }
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_reply(message));
        g_dbus_message_set_body(reply.get(), g_variant_new_parsed(text.c_str()));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
        return nullptr;
    }

    std::string body;
    const BusClient client;
    guint filter{0};
};
