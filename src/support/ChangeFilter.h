// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>

/// Drops incoming change signals that no callback waits for.
///
/// GDBus queues every signal of a subscription until the application runs its main context. An
/// application that only reads and writes never runs it, and the queue would grow without end.
///
/// The filter runs on GDBus's own thread. Its lock is never held while an application's callback
/// runs. Such a callback may therefore wait for a reply, which the same thread has to receive.
class ChangeFilter {
 public:
    /// @param interface the interface of the signal
    /// @param signal the signal's name; its arguments are address and value
    ChangeFilter(std::string interface, std::string signal);

    /// Filters a connection's incoming messages from now on, until the connection ends.
    static void attach(const std::shared_ptr<ChangeFilter>& filter, GDBusConnection* connection);

    /// Lets the changes of an address through from now on.
    void admit(int address);
    /// Drops the changes of an address from now on.
    void dismiss(int address);

 private:
    bool drops(GDBusMessage* message);

    std::string interfaceName;
    std::string signalName;
    std::mutex lock;
    std::set<int> admitted;
};
