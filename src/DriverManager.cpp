// SPDX-License-Identifier: MIT
#include "DriverManager.h"

#include <algorithm>

#include "support/Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> DRIVER_EXISTS("driver '%s' already exists");
constexpr Pattern<std::string> DRIVER_ADDED("driver '%s' added to the list");
constexpr Pattern<std::string> DRIVER_NOT_FOUND("driver '%s' not found");

auto hasName(const std::string& name) {
    return [&name](const std::shared_ptr<DriverInterface>& d) { return d->getName() == name; };
}

}  // namespace

DriverManager::DriverManager() : ObjectBase("driver-manager") {}

DriverManager::~DriverManager() = default;

void DriverManager::addDriver(const std::shared_ptr<DriverInterface>& driver) {
    const std::string name = driver->getName();
    if (std::any_of(drivers.begin(), drivers.end(), hasName(name))) {
        log(logger, Poco::Message::PRIO_WARNING, DRIVER_EXISTS, name);
        throw tesk::AlreadyExistsException("driver already exists");
    }
    drivers.push_back(driver);
    log(logger, Poco::Message::PRIO_INFORMATION, DRIVER_ADDED, name);
}

const std::shared_ptr<DriverInterface>& DriverManager::getDriverByName(const std::string& name) {
    const auto found = std::find_if(drivers.begin(), drivers.end(), hasName(name));
    if (found == drivers.end()) {
        throw tesk::NotFoundException(DRIVER_NOT_FOUND(name));
    }
    return *found;
}
