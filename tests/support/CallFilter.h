// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <utility>

#include "support/GLibOwners.h"

/// Takes each method call that comes over a connection, in place of GDBus.
class CallFilter {
 public:
    /// Runs on a thread of GDBus.
    using Handler = std::function<void(GDBusConnection* connection, GDBusMessage* call)>;

    CallFilter(GDBusConnection* heard, Handler newHandler)
        : connection(G_DBUS_CONNECTION(g_object_ref(heard))),
          handler(std::move(newHandler)),
          id(g_dbus_connection_add_filter(heard, onMessage, this, nullptr)) {}
    ~CallFilter() { g_dbus_connection_remove_filter(connection.get(), id); }
    CallFilter(const CallFilter&) = delete;
    CallFilter& operator=(const CallFilter&) = delete;

 private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer filter) {
        if (incoming == FALSE ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        const ObjectOwner<GDBusMessage> call(message);
        static_cast<CallFilter*>(filter)->handler(connection, message);
        return nullptr;
    }

    ObjectOwner<GDBusConnection> connection;
    Handler handler;
    guint id;
};
