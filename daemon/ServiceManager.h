// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include "Server.h"
#include "support/GLibOwners.h"

/// Tells the service manager how the service is, as sd_notify(3) says: how many registers are
/// served, and, if the manager has a watchdog for the service, that the main loop and the thread
/// that announces changes are alive.
///
/// Works while the default main context runs. Without a manager, or without its watchdog, there is
/// no timer.
class ServiceManager {
 public:
    /// @param server must outlive this object
    explicit ServiceManager(const Server& server);
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

 private:
    SourceOwner status;
    SourceOwner watchdog;
};
