// SPDX-License-Identifier: MIT
#include "Server.h"

#include <gio/gio.h>
#include <malloc.h>

#include <cassert>
#include <cstdlib>

#include "BusContract.h"
#include "DriverInterface.h"
#include "EndProcess.h"
#include "FileNotify.h"
#include "MapFile.h"
#include "RegisterMap.h"
#include "support/ExceptionText.h"
#include "support/Log.h"
#include "support/StartOrder.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<> NAME_REQUEST_FAILED("failed to request name on bus");
constexpr Pattern<> BUS_ACQUIRED("DBus was acquired with success");
constexpr Pattern<std::string> NAME_ACQUIRED("%s was acquired on DBus");
constexpr Pattern<std::string> NAME_LOST("%s was lost on DBus");
constexpr Pattern<std::string> MAP_NOT_LOADED("%s");

constexpr Pattern<> BUS_UNREACHABLE(
    "the system bus cannot be reached: start dbus-daemon, or set DBUS_SYSTEM_BUS_ADDRESS");
constexpr Pattern<> BUS_CLOSED("the system bus has closed the connection");
constexpr Pattern<std::string> NAME_REFUSED(
    "%s belongs to another process, or the bus policy does not let this user own it");

}  // namespace

const std::string Server::DBUS_SERVICE_NAME [[gnu::init_priority(StartOrder::CONSTANTS)]] =
    BusContract::SERVICE_NAME;

Server::Server(const std::string& mapFilePath, DriverManager& manager)
    : ObjectBase(SharedLogger{}, "server"),
      ownerId(g_bus_own_name(G_BUS_TYPE_SYSTEM, BusContract::SERVICE_NAME,
                             G_BUS_NAME_OWNER_FLAGS_ALLOW_REPLACEMENT, dbusOnBusAcquired,
                             dbusOnNameAcquired, dbusOnNameLost, this, nullptr)),
      driverManager(manager),
      mapPath(mapFilePath) {
    if (ownerId == 0) {
        log(logger, Poco::Message::PRIO_ERROR, NAME_REQUEST_FAILED);
        throw tesk::InputOutputException(NAME_REQUEST_FAILED());
    }
}

Server::~Server() {
    g_bus_unown_name(ownerId);
}

std::set<int> Server::gpioChipsNamedIn(const std::string& mapFile) {
    return MapFile::driverNumbersIn(
        mapFile, DriverInterface::driverToStringMap.at(DriverInterface::GPIOCHIP) + "-");
}

void Server::run() {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_main_loop_run(loop);
}

std::size_t Server::registerCount() const {
    return registerMap ? registerMap->allRegisters().size() : 0;
}

bool Server::notifierAnswers() {
    return FileNotify::workerAnswers();
}

void Server::dbusOnBusAcquired(GDBusConnection* connection, const char* /*name*/, void* userData) {
    auto* const obj = static_cast<Server*>(userData);
    assert(obj != nullptr);
    // Else GDBus would raise SIGTERM when the bus goes, and the exit status would not be 1.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    log(obj->logger, Poco::Message::PRIO_INFORMATION, BUS_ACQUIRED);
    try {
        obj->registerMap =
            std::make_unique<RegisterMap>(connection, obj->mapPath, obj->driverManager);
        obj->registerMap->parse();
        // The document of a large map takes more memory than its registers.
        ::malloc_trim(0);
    } catch (const std::exception& e) {
        log(obj->logger, Poco::Message::PRIO_FATAL, MAP_NOT_LOADED, exceptionText(e));
        endProcess(EXIT_FAILURE);
    }
}

void Server::dbusOnNameAcquired(GDBusConnection* /*connection*/, const char* name, void* userData) {
    auto* const obj = static_cast<Server*>(userData);
    assert(obj != nullptr);
    log(obj->logger, Poco::Message::PRIO_INFORMATION, NAME_ACQUIRED, name);
}

void Server::dbusOnNameLost(GDBusConnection* connection, const char* name, void* userData) {
    auto* const obj = static_cast<Server*>(userData);
    assert(obj != nullptr);
    log(obj->logger, Poco::Message::PRIO_INFORMATION, NAME_LOST, name);
    if (connection != nullptr) {
        log(obj->logger, Poco::Message::PRIO_NOTICE, NAME_REFUSED, name);
    } else {
        log(obj->logger, Poco::Message::PRIO_NOTICE,
            obj->registerMap ? BUS_CLOSED : BUS_UNREACHABLE);
    }
    endProcess(EXIT_FAILURE);
}
