// SPDX-License-Identifier: MIT
#pragma once

#include "Register.h"

/// Fills an address that the map keeps free: reads 0 and takes no write.
class ReservedRegister : public Register {
 public:
    ReservedRegister(int registerAddress, RegisterType registerType, int registerIndex,
                     unsigned int size);
    ~ReservedRegister() override;

    /// @return 0, always
    int readValue() override;

    /// @throws tesk::InvalidStateException "this register is reserved. No writes are allowed",
    ///         whatever the value
    void writeValue(int newValue) override;
};
