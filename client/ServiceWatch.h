// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <vector>

/// Hears of the coming and going of the service on the bus, while the default main context runs.
///
/// Asking the service every now and then would not do: it may be back before the next question.
class ServiceWatch {
 public:
    enum class Event { CAME, WENT, BUS_LOST };

    /// @throws Failure there is no bus
    ServiceWatch();
    ~ServiceWatch();
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    /// What has happened since the last call, in order. The first of all says how things stand.
    std::vector<Event> takeEvents();

 private:
    static void onCame(GDBusConnection* bus, const gchar* name, const gchar* owner, gpointer watch);
    static void onWent(GDBusConnection* bus, const gchar* name, gpointer watch);
    static void onClosed(GDBusConnection* bus, gboolean remotely, GError* error, gpointer watch);

    std::vector<Event> events;
    GDBusConnection* connection{nullptr};
    gulong closedId{0};
    guint watchId{0};
};
