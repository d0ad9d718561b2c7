// SPDX-License-Identifier: MIT
#include "DriverInterface.h"

#include "support/Pattern.h"
#include "support/StartOrder.h"

namespace {

constexpr Pattern<std::string, int> INDEXED_NAME("%s-%d");
constexpr Pattern<std::string, int> LOGGER_NAME("%s-%d-driver");

}  // namespace

const std::map<DriverInterface::Driver, std::string> DriverInterface::driverToStringMap
    [[gnu::init_priority(StartOrder::CONSTANTS)]]{
        {VADU, "vadu"}, {KR62, "kr62"}, {PD5, "pd5"}, {SPECIAL, "special"}, {GPIOCHIP, "gpiochip"},
    };

DriverInterface::DriverInterface(Driver driver, int index)
    : ObjectBase(LOGGER_NAME(driverToStringMap.at(driver), index)),
      driverId(driver),
      driverName(index < 0 ? driverToStringMap.at(driver)
                           : INDEXED_NAME(driverToStringMap.at(driver), index)),
      driverIndex(index) {}

DriverInterface::~DriverInterface() = default;

void DriverInterface::specificWriteValue(RegisterType /*type*/, int /*value*/, int /*index*/) {}

int DriverInterface::getSerialPortsCount() const {
    return 0;
}

int DriverInterface::getRelaysCount() const {
    return 0;
}

int DriverInterface::getDigitalOutputsCount() const {
    return 0;
}

int DriverInterface::getDigitalInputsCount() const {
    return 0;
}

int DriverInterface::getAnalogOutputsCount() const {
    return 0;
}

int DriverInterface::getAnalogInputsCount() const {
    return 0;
}

std::string DriverInterface::getName() const {
    return driverName;
}

DriverInterface::Driver DriverInterface::getDriverId() const {
    return driverId;
}

int DriverInterface::getIndex() const {
    return driverIndex;
}
