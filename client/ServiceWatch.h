// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <vector>

#include "support/GLibOwners.h"

/// Hears when the service comes to the bus and goes from it, while the default main context runs.
/// For the thread that runs the context.
///
/// Asking the service every now and then would not do: the service may be back before the next
/// question.
class ServiceWatch {
 public:
    /// The service has come to the bus, or has gone from it; or the bus itself has gone.
    enum class Event { CAME, WENT, BUS_LOST };

    /// Takes 5 seconds at most.
    ///
    /// @throws Failure there is no bus, or it does not answer
    ServiceWatch();
    ~ServiceWatch();
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    /// Runs the default main context until something has happened, 5 seconds at most.
    ///
    /// @throws Failure the bus does not say in time whether the service is there
    void waitForFirstEvent();

    /// What has happened since the last call, in order. The very first event says whether the
    /// service is there.
    std::vector<Event> takeEvents();

 private:
    static void onCame(GDBusConnection* bus, const gchar* name, const gchar* owner, gpointer watch);
    static void onWent(GDBusConnection* bus, const gchar* name, gpointer watch);
    static void onClosed(GDBusConnection* bus, gboolean remotely, GError* error, gpointer watch);

    std::vector<Event> events;
    ObjectOwner<GDBusConnection> connection;
    gulong closedId{0};
    guint watchId{0};
};
