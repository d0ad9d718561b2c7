// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "DriverInterface.h"
#include "Register.h"
#include "support/KeptFile.h"

/// A register whose value is in a text file that its driver names. Where the driver names no file,
/// the value comes from the driver itself.
///
/// The change callback runs on the notifier's thread and is never cancelled: the register must
/// outlive the notifications.
class FileRegister : public Register {
 public:
    /// Asks the driver for the value file and arms its change notification.
    ///
    /// @param ioDriver the driver that serves this IO
    /// @param changeCallback called with this register when the driver reports a change; the call
    ///        throws `std::bad_function_call` if it is empty
    /// @param earlier the register that was made on the same file before, if any; outlives this one
    /// @throws tesk::InvalidArgumentsException the driver has no IO with this index
    /// @throws tesk::UnsupportedException the driver does not serve this type
    FileRegister(int registerAddress, RegisterType registerType, int registerIndex,
                 unsigned int size, const std::shared_ptr<DriverInterface>& ioDriver,
                 const std::function<void(Register*)>& changeCallback,
                 FileRegister* earlier = nullptr);
    ~FileRegister() override;

    /// Reads the file and lets the driver convert its number. An attribute in sysfs may stay open
    /// from one call to the next; see KeptFile.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading", and what the
    ///         driver's conversion throws
    int readValue() override;

    /// Writes the file. Where there is no file, hands the value to the driver. The value kept in
    /// memory changes even if the driver then refuses the value.
    ///
    /// @throws tesk::InvalidArgumentsException "value %?u is higher than max value %?u", or "value
    ///         %?u is invalid for address %d" when the driver refuses it
    /// @throws tesk::UnsupportedException the type cannot be written
    /// @throws tesk::InputOutputException "error opening file '%s' for writing"
    void writeValue(int newValue) override;

    /// The register that was made on the same file before; null for the first.
    FileRegister* earlierOnFile() const { return earlierRegister; }

 private:
    std::shared_ptr<DriverInterface> driver;
    std::string fileName;
    KeptFile keptFile;
    FileRegister* earlierRegister;
};
