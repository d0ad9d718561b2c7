// SPDX-License-Identifier: MIT
#include "ReservedRegister.h"

#include "tesk/Exceptions.h"

ReservedRegister::ReservedRegister(int registerAddress, RegisterType registerType,
                                   int registerIndex, unsigned int size)
    : Register(registerAddress, registerType, registerIndex, size, {}) {}

ReservedRegister::~ReservedRegister() = default;

int ReservedRegister::readValue() {
    return 0;
}

void ReservedRegister::writeValue(int /*newValue*/) {
    throw tesk::InvalidStateException("this register is reserved. No writes are allowed");
}
