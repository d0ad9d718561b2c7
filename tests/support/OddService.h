// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>
#include <utility>

#include "StandInService.h"
#include "support/GLibOwners.h"

/// Has the name of the service, and answers every call with the same body, in a thread of GDBus.
class OddService {
 public:
    /// @param text the body in GVariant's text form, such as "('five',)"; empty to leave the bus
    ///        instead of answering
    explicit OddService(std::string text) : body(std::move(text)) {}

 private:
    void answer(GDBusConnection* connection, GDBusMessage* call) const {
        if (body.empty()) {
            g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
            return;
        }
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
        g_dbus_message_set_body(reply.get(), g_variant_new_parsed(body.c_str()));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }

    std::string body;
    const StandInService service{
        [this](GDBusConnection* connection, GDBusMessage* call) { answer(connection, call); }};
};
