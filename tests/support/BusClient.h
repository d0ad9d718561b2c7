// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/GLibOwners.h"

/// A client of the register service, bare GDBus, on a connection of its own or a given one.
class BusClient {
 public:
    /// What the service is called on the bus, and where its registers are.
    static constexpr const char* SERVICE = "org.mirel.IoMapping";
    static constexpr const char* PATH = "/org/mirel/register";
    static constexpr const char* INTERFACE = "org.mirel.Register";

    /// The address and the value that a signal carries.
    using Change = std::pair<int, int>;

    /// The outcome of a call: either the reply's tuple, or the error's D-Bus name and text.
    struct Answer {
        std::shared_ptr<GVariant> reply;
        std::string errorName;
        std::string errorText;

        /// The reply as text ("(5,)"), or "name: text" of the error.
        std::string text() const;
    };

    /// Connects to the bus that DBUS_SYSTEM_BUS_ADDRESS names.
    BusClient();
    /// Uses a connection to the service itself, without a bus.
    explicit BusClient(GDBusConnection* peer);
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    GDBusConnection* connection() const { return bus.get(); }

    /// Calls a method of the register interface while the default main context runs.
    ///
    /// @param method the name
    /// @param parameters the arguments in GVariant's text form, such as "(12, 1)"
    Answer call(const std::string& method, const std::string& parameters) const;

    /// The same with any path and interface.
    Answer call(const std::string& path, const std::string& interface, const std::string& method,
                const std::string& parameters) const;

    /// Waits until the service owns its name.
    void waitForService() const;

    /// The values from "OnValueChange" until now, in order of arrival.
    const std::vector<Change>& changes() const { return received; }

    /// Runs the main context until this many changes have come in; false when they do not.
    bool waitForChanges(std::size_t count) const;

 private:
    void subscribe();

    ObjectOwner<GDBusConnection> bus;
    const char* destination;
    guint subscription{0};
    std::vector<Change> received;
};
