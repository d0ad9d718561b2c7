// SPDX-License-Identifier: MIT
#include "ServiceWatch.h"

#include <string>
#include <utility>

#include "BusContract.h"
#include "Failure.h"

ServiceWatch::ServiceWatch() {
    GError* error = nullptr;
    connection.reset(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
    if (connection == nullptr) {
        const ErrorOwner errorOwner(error);
        throw Failure(std::string("cannot reach the D-Bus system bus: ") + error->message);
    }
    // Else the loss of the bus would kill the program without a word.
    g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    closedId = g_signal_connect(connection.get(), "closed", G_CALLBACK(onClosed), this);
    watchId = g_bus_watch_name_on_connection(connection.get(), BusContract::SERVICE_NAME,
                                             G_BUS_NAME_WATCHER_FLAGS_NONE, onCame, onWent, this,
                                             nullptr);
}

ServiceWatch::~ServiceWatch() {
    g_bus_unwatch_name(watchId);
    g_signal_handler_disconnect(connection.get(), closedId);
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
