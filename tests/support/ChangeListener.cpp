// SPDX-License-Identifier: MIT
//
// change-listener FILE: a client that hears all changes of registers and keeps the last of each in
// FILE, where others see it at once. Says "listening" when it hears.
#include <gio/gio.h>

#include <cstdlib>
#include <iostream>

#include "HeardChanges.h"
#include "support/GLibOwners.h"

namespace {

/// Runs on GDBus's own thread. Nothing waits for the signals in a main context, so none is queued.
GDBusMessage* keepChange(GDBusConnection* /*bus*/, GDBusMessage* message, gboolean incoming,
                         gpointer heard) {
    if (incoming == FALSE || g_strcmp0(g_dbus_message_get_member(message), "OnValueChange") != 0) {
        return message;
    }
    gint32 address = 0;
    gint32 value = 0;
    g_variant_get(g_dbus_message_get_body(message), "(ii)", &address, &value);
    auto* const changes = static_cast<HeardChanges*>(heard);
    // The count comes first, so that it includes every value that others can see.
    ++changes->count;
    changes->last.at(static_cast<std::size_t>(address)) = value;
    const ObjectOwner<GDBusMessage> dropped(message);
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: change-listener FILE\n";
        return 2;
    }
    const HeardChanges::Owner heard = HeardChanges::in(argv[1]);
    const ObjectOwner<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    if (!bus) {
        std::cerr << "change-listener: there is no bus\n";
        return EXIT_FAILURE;
    }
    g_dbus_connection_add_filter(bus.get(), keepChange, heard.get(), nullptr);
    const VariantOwner subscribed(g_dbus_connection_call_sync(
        bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "AddMatch", g_variant_new("(s)", "type='signal',interface='org.mirel.Register'"), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    std::cout << "listening" << std::endl;
    const MainLoopOwner loop(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loop.get());
}
