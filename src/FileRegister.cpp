// SPDX-License-Identifier: MIT
#include "FileRegister.h"

#include "support/DriverAccess.h"
#include "support/ValueFile.h"

FileRegister::FileRegister(int registerAddress, RegisterType registerType, int registerIndex,
                           unsigned int size, const std::shared_ptr<DriverInterface>& ioDriver,
                           const std::function<void(Register*)>& changeCallback,
                           FileRegister* earlier)
    : Register(registerAddress, registerType, registerIndex, size, {}),
      driver(ioDriver),
      fileName(driver->getIOFileName(registerType, registerIndex)),
      earlierRegister(earlier) {
    driver->configureIO(registerType, registerIndex,
                        [this, changeCallback](int /*key*/) { changeCallback(this); });
}

FileRegister::~FileRegister() = default;

int FileRegister::readValue() {
    const int raw = fileName.empty() ? 0 : ValueFile::read(fileName, keptFile);
    const int converted = driver->convertValue(getType(), raw, getIndex());
    logRead(converted);
    return converted;
}

void FileRegister::writeValue(int newValue) {
    Register::writeValue(newValue);
    DriverAccess::requireValidValue(*driver, *this, newValue);
    if (fileName.empty()) {
        driver->specificWriteValue(getType(), newValue, getIndex());
    } else {
        ValueFile::write(fileName, newValue);
    }
}
