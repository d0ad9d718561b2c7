// SPDX-License-Identifier: MIT
#include "ServiceWatch.h"

#include <chrono>
#include <string>
#include <utility>

#include "BusContract.h"
#include "Failure.h"
#include "support/TimeLimit.h"

namespace {

constexpr std::chrono::milliseconds TIME_LIMIT(5000);
constexpr const char* TIMED_OUT = "Timeout was reached";

[[noreturn]] void failWithoutBus(const char* reason) {
    throw Failure(std::string("cannot reach the D-Bus system bus: ") + reason, EXIT_NO_SERVICE);
}

ObjectOwner<GDBusConnection> connect(GCancellable* cancellable) {
    GError* error = nullptr;
    ObjectOwner<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SYSTEM, cancellable, &error));
    if (bus == nullptr) {
        const ErrorOwner errorOwner(error);
        // Only the time limit cancels.
        const bool timedOut = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
        failWithoutBus(timedOut ? TIMED_OUT : error->message);
    }
    // Else the loss of the bus would kill the program without a word.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    return bus;
}

}  // namespace

ServiceWatch::ServiceWatch()
    : connection(withinTimeLimit(TIME_LIMIT, connect)),
      closedId(g_signal_connect(connection.get(), "closed", G_CALLBACK(onClosed), this)),
      watchId(g_bus_watch_name_on_connection(connection.get(), BusContract::SERVICE_NAME,
                                             G_BUS_NAME_WATCHER_FLAGS_NONE, onCame, onWent, this,
                                             nullptr)) {}

ServiceWatch::~ServiceWatch() {
    g_bus_unwatch_name(watchId);
    g_signal_handler_disconnect(connection.get(), closedId);
}

void ServiceWatch::waitForFirstEvent() {
    bool late = false;
    const SourceOwner limit(g_timeout_source_new(static_cast<guint>(TIME_LIMIT.count())));
    g_source_set_callback(
        limit.get(),
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &late, nullptr);
    g_source_attach(limit.get(), nullptr);
    while (events.empty() && !late) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_destroy(limit.get());
    if (events.empty()) {
        failWithoutBus(TIMED_OUT);
    }
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
