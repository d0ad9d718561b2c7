// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "RegisterType.h"
#include "tesk/ObjectBase.h"

/// Base of the drivers. Each driver serves the IOs of one piece of hardware.
///
/// Registers call a driver from the thread that serves D-Bus, and read it from the notifier's
/// thread, too. The callbacks given to configureIO() run on the notifier's thread. Drivers are set
/// up before the service starts and take no locks.
class [[gnu::visibility("default")]] DriverInterface : protected tesk::ObjectBase {
 public:
    /// The drivers.
    enum Driver : std::int32_t {
        VADU = 0,      ///< The main board.
        KR62 = 1,      ///< The IO extension board.
        PD5 = 2,       ///< An IO expander; one of several.
        SPECIAL = 3,   ///< The numbers of IOs of the whole device.
        GPIOCHIP = 4,  ///< A GPIO chip; one of several.
    };

    /// The name of each driver, without the number of one among several.
    static const std::map<Driver, std::string> driverToStringMap;

    ~DriverInterface() override;

    /// Prepares an IO. Where its value can change by itself, `callback` is called at every change,
    /// with a number that means nothing to the receiver.
    ///
    /// @throws tesk::InvalidArgumentsException there is no IO with this index
    /// @throws tesk::UnsupportedException the driver does not serve this type
    virtual void configureIO(RegisterType type, int index, std::function<void(int)> callback) = 0;

    /// The path of the file that holds an IO's value. Empty for an IO without a file: its value
    /// comes from convertValue() alone, and specificWriteValue() writes it.
    ///
    /// @throws tesk::InvalidArgumentsException there is no IO with this index
    /// @throws tesk::UnsupportedException "type '%s' not supported": the driver does not serve this
    ///         type
    virtual std::string getIOFileName(RegisterType type, int index) const = 0;

    /// Turns the number read from the value file into the register's value.
    ///
    /// @param type the type of the register
    /// @param value the number in the file, 0 where there is no file
    /// @param index the IO's number
    /// @return the value of the register; `value` itself for types without a conversion
    /// @throws tesk::InputOutputException another file that the value depends on cannot be read
    virtual int convertValue(RegisterType type, int value, int index) const = 0;

    /// Whether a value, taken as unsigned, may be written. Logs the reason when it may not.
    ///
    /// @throws tesk::UnsupportedException this type cannot be written
    virtual bool isValueValid(RegisterType type, int value) const = 0;

    /// Writes an IO that has no value file. Does nothing unless a driver overrides it.
    virtual void specificWriteValue(RegisterType type, int value, int index);

    /// How many IOs of this sort the hardware has; 0 unless a driver overrides it.
    virtual int getSerialPortsCount() const;
    virtual int getRelaysCount() const;          ///< @copydoc getSerialPortsCount
    virtual int getDigitalOutputsCount() const;  ///< @copydoc getSerialPortsCount
    virtual int getDigitalInputsCount() const;   ///< @copydoc getSerialPortsCount
    virtual int getAnalogOutputsCount() const;   ///< @copydoc getSerialPortsCount
    virtual int getAnalogInputsCount() const;    ///< @copydoc getSerialPortsCount

    /// The name that the map file uses: "vadu", or "pd5-0" for one of several.
    std::string getName() const;
    /// Which driver this is.
    Driver getDriverId() const;
    /// The number of this one among several; -1 where there is only one.
    int getIndex() const;

 protected:
    /// @param driver which driver this is
    /// @param index the number of this one among several, or -1
    /// @throws std::out_of_range `driver` is not in the enumeration
    DriverInterface(Driver driver, int index);

 private:
    Driver driverId;
    std::string driverName;
    int driverIndex;
};
