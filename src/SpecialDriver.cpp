// SPDX-License-Identifier: MIT
#include "SpecialDriver.h"

#include "support/DriverRefusal.h"
#include "support/Pattern.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<int> INVALID_PD5_INDEX("invalid PD5 index %d");

void requirePd5Index(int index) {
    if (index < 0 || index > 4) {
        throw tesk::InvalidArgumentsException(INVALID_PD5_INDEX(index));
    }
}

}  // namespace

SpecialDriver::SpecialDriver() : DriverInterface(SPECIAL, -1) {}

SpecialDriver::~SpecialDriver() = default;

void SpecialDriver::addIoCount(const std::shared_ptr<DriverInterface>& driver) {
    serialPorts += driver->getSerialPortsCount();
    relays += driver->getRelaysCount();
    digitalInputs += driver->getDigitalInputsCount();
    digitalOutputs += driver->getDigitalOutputsCount();
    analogOutputs += driver->getAnalogOutputsCount();
    analogInputs += driver->getAnalogInputsCount();
    const int index = driver->getIndex();
    if (driver->getDriverId() == PD5 && index >= 1 && index <= 4) {
        pd5Detected.at(static_cast<std::size_t>(index) - 1) = true;
    }
}

void SpecialDriver::configureIO(RegisterType /*type*/, int /*index*/,
                                std::function<void(int)> /*callback*/) {}

std::string SpecialDriver::getIOFileName(RegisterType type, int index) const {
    // What has no value is refused here too.
    SpecialDriver::convertValue(type, 0, index);
    return {};
}

int SpecialDriver::convertValue(RegisterType type, int /*value*/, int index) const {
    switch (type) {
        case RegisterType::COUNT_SERIALS:
            return serialPorts;
        case RegisterType::COUNT_RELAYS:
            return relays;
        case RegisterType::COUNT_OUTPUTS:
            return digitalOutputs;
        case RegisterType::COUNT_INPUTS:
            return digitalInputs;
        case RegisterType::COUNT_ANALOG_OUTPUTS:
            return analogOutputs;
        case RegisterType::COUNT_ANALOG_INPUTS:
            return analogInputs;
        case RegisterType::PD5_DETECTED:
            requirePd5Index(index);
            return index > 0 && pd5Detected.at(static_cast<std::size_t>(index) - 1) ? 1 : 0;
        default:
            DriverRefusal::unsupportedType(type);
    }
}

bool SpecialDriver::isValueValid(RegisterType type, int /*value*/) const {
    DriverRefusal::unsupportedWrite(type);
}
