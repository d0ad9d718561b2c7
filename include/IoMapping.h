// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include "RegisterType.h"
#include "ServiceError.h"

/// An application's access to the registers of the device.
///
///     IoMapping io;
///     io.writeValue(1, 1);
///     io.enableNotifications(20, [](int address, int value) { ... });
///     for (;;) {
///         io.run(true);
///     }
///
/// Calls to the service may be made from any thread. Each blocks until the service has answered, at
/// most 5 seconds. Changes are delivered inside run() and nowhere else; an application that only
/// reads and writes need not call run(). The service may come and go: calls fail while it is away
/// and work again afterwards. Notifications go on, too.
///
/// What the methods throw is a tesk::InputOutputException. It is always a ServiceError, too, which
/// tells a program what has gone wrong.
///
/// After fork() the child cannot use its parent's objects, as the threads of GLib stay with the
/// parent: calls wait for ever. Call exec, or use the class in the child alone.
class [[gnu::visibility("default")]] IoMapping {
 public:
    /// Connects to the D-Bus system bus, over a connection of its own. Takes 5 seconds at most.
    /// Neither calls the service nor starts it; the service need not run yet. Any thread may
    /// construct an object.
    ///
    /// @throws ServiceError "Error initializing DBus: %s" when the bus cannot be
    ///         reached, "Error creating service proxy: %s" when it refuses or does not answer
    IoMapping();

    /// Disconnects. No other thread may be inside a method of the object.
    ~IoMapping();

    IoMapping(const IoMapping&) = delete;
    IoMapping& operator=(const IoMapping&) = delete;

    /// Whether the service is on the bus at this moment. Does not throw when it is not. A bus that
    /// does not answer within 5 seconds counts as a service that is not there.
    ///
    /// Each check that finds the service leaves about a kilobyte of memory behind for good: ask now
    /// and then, not all the time. Any call that succeeds proves the same.
    bool isAlive();

    /// Delivers pending changes: one iteration of the process's default GLib main context. The
    /// callbacks run inside this call, on this thread.
    ///
    /// The loss of the bus ends a run(true) that waits. From then on run(true) waits for 0.1 s at
    /// most, isAlive() is false, and each call throws "Error calling method: The connection is
    /// closed". The object stays without a connection: make a new one.
    ///
    /// @param mayBlock whether to wait when nothing is pending
    /// @return whether anything was dispatched
    bool run(bool mayBlock);

    /// Ends a run(true) that waits in another thread.
    void wakeup();

    /// The first half of run(), for a loop of the application's own that waits with poll():
    ///
    ///     std::vector<pollfd> descriptors{{STDIN_FILENO, POLLIN, 0}};
    ///     const int timeout = io.beginWait(descriptors);
    ///     poll(descriptors.data(), descriptors.size(), timeout);
    ///     io.endWait(descriptors);
    ///
    /// Each endWait() follows its beginWait() on the same thread. Between the two, the default main
    /// context belongs to that thread: no other thread gets into run() or beginWait().
    ///
    /// @param descriptors is added what to wait for besides the application's own descriptors
    /// @return the time-out in milliseconds: how long to wait at most; -1 for no limit
    /// @throws tesk::InvalidStateException another thread is inside run() or between the two calls
    int beginWait(std::vector<pollfd> & descriptors);

    /// The second half: delivers pending changes. The callbacks run inside this call.
    ///
    /// @param descriptors as beginWait() has left them, and poll() then
    /// @return whether anything was dispatched
    /// @throws tesk::InvalidStateException beginWait() has not been called
    bool endWait(const std::vector<pollfd>& descriptors);

    /// Reads one register.
    ///
    /// @param address the register's address
    /// @return its value; registers of 32 bits use the whole range of `int`
    /// @throws ServiceError "Error calling method: %s" with the reason: there is no
    ///         such register, its hardware cannot be read, or the service does not answer
    int readValue(int address);

    /// Reads several registers in one call.
    ///
    /// @param addresses the registers' addresses, in any order, at most 65536; repeated ones are
    ///        read repeatedly
    /// @return one value for each address, in the same order
    /// @throws ServiceError as readValue(), when one of them cannot be read; also
    ///         for more than 65536 addresses, which are not sent
    std::vector<int> readValues(const std::vector<int>& addresses);

    /// Writes one register.
    ///
    /// @param address the register's address
    /// @param value 0 to the register's maximum, compared as unsigned
    /// @throws ServiceError "Error calling method: %s" with the reason: there is no
    ///         such register, it does not take this value or any, its hardware cannot be written,
    ///         or the service does not answer
    void writeValue(int address, int value);

    /// The fixed properties of a register.
    ///
    /// @param address the register's address
    /// @return its type, its index within its field of the map (from 1), and its maximum, which is
    ///         an unsigned number (-1 stands for 4294967295)
    /// @throws ServiceError as readValue()
    std::tuple<RegisterType, int, int> getParams(int address);

    /// The registers of a type.
    ///
    /// @return their addresses in ascending order; empty when there is none
    /// @throws ServiceError "Error calling method: %s": the service does not answer
    std::vector<int> getAddrsPerType(RegisterType type);

    /// Has a function called with address and new value whenever a register changes. The function
    /// is called inside run(). It replaces the address's earlier function.
    ///
    /// Every change from now on is announced; earlier changes are not. To miss none, enable the
    /// notifications first and then read the register.
    ///
    /// A callback may call the other methods of this object, but neither run() nor the four for
    /// notifications nor watchService(): these would wait for the callback itself to end.
    ///
    /// May be called from any thread. Makes no call to the service: an address without a register
    /// is accepted, and its function is never called.
    void enableNotifications(int address, std::function<void(int, int)> callback);

    /// The same for several addresses. Each gets its own copy of the function.
    void enableNotificationsRange(const std::vector<int>& addresses,
                                  std::function<void(int, int)> callback);

    /// Ends the notifications of an address. An address without notifications is ignored. The
    /// function is not called any more once this has returned.
    void disableNotifications(int address);

    /// The same for several addresses.
    void disableNotificationsRange(const std::vector<int>& addresses);

    /// Has a function called with true whenever the service comes to the bus, and with false
    /// whenever it goes. The function is called inside run(). It replaces the earlier function; an
    /// empty one ends the calls.
    ///
    /// A service that has come again has new values: its virtual registers are 0, and changes in
    /// the meantime have not been announced. A service whose name another process takes over goes
    /// and comes. The loss of the bus counts as a service that goes.
    ///
    /// What there is now is not told. To miss nothing, call this first and then isAlive().
    ///
    /// The rules for the callbacks of notifications apply. May be called from any thread.
    void watchService(std::function<void(bool)> callback);

 private:
    struct State;
    std::unique_ptr<State> state;
};
