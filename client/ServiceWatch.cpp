// SPDX-License-Identifier: MIT
#include "ServiceWatch.h"

#include <string>
#include <utility>

#include "BusContract.h"
#include "Failure.h"

ServiceWatch::ServiceWatch() {
    GError* error = nullptr;
    connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        const std::string text = error->message;
        g_error_free(error);
        throw Failure("cannot reach the D-Bus system bus: " + text);
    }
    // Else the loss of the bus would kill the program without a word.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    closedId = g_signal_connect(connection, "closed", G_CALLBACK(onClosed), this);
    watchId = g_bus_watch_name_on_connection(connection, BusContract::SERVICE_NAME,
                                             G_BUS_NAME_WATCHER_FLAGS_NONE, onCame, onWent, this,
                                             nullptr);
}

ServiceWatch::~ServiceWatch() {
    g_bus_unwatch_name(watchId);
    g_signal_handler_disconnect(connection, closedId);
    g_object_unref(connection);
}

std::vector<ServiceWatch::Event> ServiceWatch::takeEvents() {
    return std::exchange(events, {});
}

void ServiceWatch::onCame(GDBusConnection* /*bus*/, const gchar* /*name*/, const gchar* /*owner*/,
                          gpointer watch) {
    static_cast<ServiceWatch*>(watch)->events.push_back(Event::CAME);
}

void ServiceWatch::onWent(GDBusConnection* bus, const gchar* /*name*/, gpointer watch) {
    // Without a bus, it is the bus that has gone.
    if (bus != nullptr) {
        static_cast<ServiceWatch*>(watch)->events.push_back(Event::WENT);
    }
}

void ServiceWatch::onClosed(GDBusConnection* /*bus*/, gboolean /*remotely*/, GError* /*error*/,
                            gpointer watch) {
    static_cast<ServiceWatch*>(watch)->events.push_back(Event::BUS_LOST);
}
