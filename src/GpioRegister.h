// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "DriverInterface.h"
#include "Register.h"

/// A register on a line of a GPIO chip: every read and write goes through the driver.
///
/// The change callback runs on the notifier's thread.
class GpioRegister : public Register {
 public:
    /// Has the driver request the line and, for an input, watch its edges.
    ///
    /// @param ioDriver the driver of the chip
    /// @param changeCallback called with this register at every edge; the call throws
    ///        `std::bad_function_call` if it is empty
    /// @throws tesk::UnsupportedException the driver does not serve this type
    GpioRegister(int registerAddress, RegisterType registerType, int registerIndex,
                 unsigned int size, const std::shared_ptr<DriverInterface>& ioDriver,
                 const std::function<void(Register*)>& changeCallback);
    ~GpioRegister() override;

    /// The line's logical level, 0 or 1.
    int readValue() override;

    /// Sets the line. The driver is asked first, unlike for a file register: a refused value is not
    /// stored.
    ///
    /// @throws tesk::InvalidArgumentsException "value %?u is invalid for address %d" when the
    ///         driver refuses it, or "value %?u is higher than max value %?u"
    /// @throws tesk::UnsupportedException the line is an input
    void writeValue(int newValue) override;

 private:
    std::shared_ptr<DriverInterface> driver;
};
