// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

/// Bounds the method calls to one object that wait for the main loop, for each sender.
///
/// The main loop carries out one call at a time. Without a bound, a sender that does not wait for
/// replies would keep all others out, and its calls would fill the memory. A call beyond a limit is
/// answered with the D-Bus error "LimitsExceeded" and does not reach the main loop. A call beyond a
/// limit whose sender expects no reply is dropped.
///
/// A call waits from its arrival until handled(), or until GDBus, which answers faulty calls
/// itself, has done with its message.
///
/// Calls are counted on GDBus's own thread, as they arrive.
class CallLimits {
 public:
    /// How many calls of one sender may wait.
    static constexpr std::size_t MOST_CALLS = 1024;

    /// Counts the calls to a path from now on.
    ///
    /// @param connection borrowed; must outlive the object
    /// @param path the object path
    CallLimits(GDBusConnection* connection, const std::string& path);

    /// Counts no further calls. GDBus's thread may finish the call it is at.
    ~CallLimits();

    CallLimits(const CallLimits&) = delete;
    CallLimits& operator=(const CallLimits&) = delete;

    /// Tells that a call waits no longer. Comes before the reply: a sender with the reply in its
    /// hands may use its limits to the full. May be called from any thread.
    static void handled(GDBusMessage* call);

    /// The words for a list of more than BusContract::MOST_ADDRESSES addresses.
    static std::string listTooLong(std::size_t count);

 private:
    GDBusConnection* busConnection;
    guint filterId;
};
