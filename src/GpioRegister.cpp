// SPDX-License-Identifier: MIT
#include "GpioRegister.h"

#include "support/DriverAccess.h"

GpioRegister::GpioRegister(int registerAddress, RegisterType registerType, int registerIndex,
                           unsigned int size, const std::shared_ptr<DriverInterface>& ioDriver,
                           const std::function<void(Register*)>& changeCallback)
    : Register(registerAddress, registerType, registerIndex, size, {}), driver(ioDriver) {
    driver->configureIO(registerType, registerIndex,
                        [this, changeCallback](int /*key*/) { changeCallback(this); });
}

GpioRegister::~GpioRegister() = default;

int GpioRegister::readValue() {
    const int level = driver->convertValue(getType(), 0, getIndex());
    logRead(level);
    return level;
}

void GpioRegister::writeValue(int newValue) {
    DriverAccess::requireValidValue(*driver, *this, newValue);
    Register::writeValue(newValue);
    driver->specificWriteValue(getType(), newValue, getIndex());
}
