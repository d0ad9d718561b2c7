// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>

#include "DriverManager.h"
#include "tesk/ObjectBase.h"

class RegisterMap;
/// GIO's connection to a bus.
using GDBusConnection = struct _GDBusConnection;  // NOLINT(bugprone-reserved-identifier): GIO's

/// The service: owns the bus name, builds the register map once the bus is there, and runs the main
/// loop on which every call is handled.
///
/// A host program makes the drivers, then one Server, then calls run():
///
///     DriverManager drivers;
///     drivers.addDriver(std::make_shared<VaduDriver>());
///     Server server("/etc/io-mapping/map.json", drivers);
///     server.run();
///
/// All methods belong to one thread, the one that calls run(). The process ends with exit status 1
/// when the map cannot be loaded, when the bus cannot be reached, and when the name is lost or
/// belongs to another process. A log line at fatal or notice says why.
class [[gnu::visibility("default")]] Server : public tesk::ObjectBase {
 public:
    /// The well-known name of the service, "org.mirel.IoMapping".
    static const std::string DBUS_SERVICE_NAME;

    /// Asks for the bus name. Another process may take the name over. Nothing happens before run().
    ///
    /// @param mapFilePath the JSON map file, read when the bus has been reached
    /// @param manager the drivers; must outlive the server
    /// @throws tesk::InputOutputException "failed to request name on bus"
    Server(const std::string& mapFilePath, DriverManager& manager);

    /// Gives the name back and destroys the map, for a process that goes on.
    ///
    /// None of GDBus's callbacks comes afterwards, not even those that wait for the main loop:
    /// right before it calls back, GDBus looks whether the name is still wanted. This holds on the
    /// thread that has made the server. On another thread, a callback could be running at this
    /// moment.
    ~Server() override;

    /// The numbers N of all drivers "gpiochip-N" that the fields of a map file name, for a host
    /// that makes these drivers before its server. Passes over whatever is wrong with the file or a
    /// field: the server tells that when it loads the map. The server does not parse the file again
    /// unless the file has changed. Only for the thread of the server.
    static std::set<int> gpioChipsNamedIn(const std::string& mapFile);

    /// Serves until the process ends.
    void run();

    /// How many registers are served; 0 until the map has been loaded.
    std::size_t registerCount() const;

    /// Whether the thread that announces changes has given a sign of life since the last call. The
    /// call asks for the next one. A thread that hangs, in the file of a board or because the bus
    /// takes no signals, gives none. True while there is nothing to watch. May be called from any
    /// thread.
    static bool notifierAnswers();

    /// GDBus's callbacks for the name. `userData` is the Server; null ends the process.
    static void dbusOnBusAcquired(GDBusConnection * connection, const char* name, void* userData);
    /// @copydoc dbusOnBusAcquired
    static void dbusOnNameAcquired(GDBusConnection * connection, const char* name, void* userData);
    /// @copydoc dbusOnBusAcquired
    static void dbusOnNameLost(GDBusConnection * connection, const char* name, void* userData);

 private:
    unsigned int ownerId;
    DriverManager& driverManager;
    std::string mapPath;
    std::unique_ptr<RegisterMap> registerMap;
};
