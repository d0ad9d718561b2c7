// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "RegisterType.h"
#include "tesk/ObjectBase.h"

/// Base of the drivers: what one piece of hardware knows of its IOs.
///
/// Registers call it from the thread that serves D-Bus; the callbacks given to configureIO() run
/// on the notifier's thread. Drivers are filled in before the service starts and take no locks.
class [[gnu::visibility("default")]] DriverInterface : protected tesk::ObjectBase {
 public:
    /// The kinds of driver.
    enum Driver : std::int32_t {
        VADU = 0,      ///< The main board.
        KR62 = 1,      ///< The IO extension board.
        PD5 = 2,       ///< An IO expander; one of several.
        SPECIAL = 3,   ///< The numbers of IOs of the whole device.
        GPIOCHIP = 4,  ///< A GPIO chip; one of several.
    };

    /// The name of each kind, from which the lookup names are made.
    static const std::map<Driver, std::string> driverToStringMap;

    ~DriverInterface() override;

    /// Prepares an IO and, where it can change by itself, arranges that `callback` is called (with
    /// a number of the notifier's, of no meaning to the receiver) at every change.
    ///
    /// @throws tesk::InvalidArgumentsException there is no IO with this index
    /// @throws tesk::UnsupportedException the driver does not serve this kind
    virtual void configureIO(RegisterType type, int index, std::function<void(int)> callback) = 0;

    /// The path of the file that holds an IO's value; empty when the value comes from
    /// convertValue() alone and writes go to specificWriteValue().
    ///
    /// @throws tesk::InvalidArgumentsException there is no IO with this index
    /// @throws tesk::UnsupportedException "type '%s' not supported": the driver does not serve this
    ///         kind
    virtual std::string getIOFileName(RegisterType type, int index) const = 0;

    /// Turns the number read from the value file into the register's value.
    ///
    /// @param type the kind of IO
    /// @param value the number in the file, 0 where there is no file
    /// @param index the IO's number
    /// @return the value of the register; `value` itself for kinds without a conversion
    /// @throws tesk::InputOutputException a further source of the value cannot be read
    virtual int convertValue(RegisterType type, int value, int index) const = 0;

    /// Whether a value may be written; compared as unsigned. Logs the reason when it may not.
    ///
    /// @throws tesk::UnsupportedException this kind cannot be written
    virtual bool isValueValid(RegisterType type, int value) const = 0;

    /// Writes an IO that has no value file. Does nothing unless a driver overrides it.
    virtual void specificWriteValue(RegisterType type, int value, int index);

    /// How many IOs of each kind the hardware has; 0 unless a driver overrides it.
    virtual int getSerialPortsCount() const;
    virtual int getRelaysCount() const;          ///< @copydoc getSerialPortsCount
    virtual int getDigitalOutputsCount() const;  ///< @copydoc getSerialPortsCount
    virtual int getDigitalInputsCount() const;   ///< @copydoc getSerialPortsCount
    virtual int getAnalogOutputsCount() const;   ///< @copydoc getSerialPortsCount
    virtual int getAnalogInputsCount() const;    ///< @copydoc getSerialPortsCount

    /// The name under which the map file asks for this driver: "vadu", or "pd5-0" with an index.
    std::string getName() const;
    /// The kind of driver.
    Driver getDriverId() const;
    /// The number among several of one kind; -1 where there is only one.
    int getIndex() const;

 protected:
    /// @param driver the kind
    /// @param index the number among several of one kind, or -1
    /// @throws std::out_of_range `driver` is none of the kinds
    DriverInterface(Driver driver, int index);

 private:
    Driver driverId;
    std::string driverName;
    int driverIndex;
};
