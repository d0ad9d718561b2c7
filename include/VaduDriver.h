// SPDX-License-Identifier: MIT
#pragma once

#include "DriverInterface.h"

/// Driver "vadu": the values of the main board, which can only be read.
///
/// The register types:
/// - cpu_temp: what the first thermal zone reports, in thousandths of a degree Celsius
/// - uptime: seconds since boot
/// - sensor_temp_value: what the 1-Wire sensor on line `index` of the bus master's list reports, in
///   thousandths of a degree Celsius; 4096 when there is no such sensor or its conversion fails
/// - sensor_temp_address_lower, sensor_temp_address_higher: the low and high 32 bits of that
///   sensor's serial number; 0 when there is no such sensor
/// - hw_type: the number at the start of the hardware type in the factory information
/// - fw_version: (major << 8) + (minor << 4) + patch of the system image
///
/// The driver keeps no state: every call reads the sources of a value anew. All functions may be
/// called from any thread. No value can be written, and no value is watched.
class [[gnu::visibility("default")]] VaduDriver : public DriverInterface {
 public:
    /// Touches no file.
    VaduDriver();
    ~VaduDriver() override;

    /// Does nothing: no value of the main board is watched.
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// The thermal zone's file for cpu_temp; an empty text for the other register types above.
    ///
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// The value of a register type above that has no file; `value` for every other type.
    ///
    /// @throws tesk::InputOutputException "error reading uptime from the system"; "error opening
    ///         file '%s' for reading" for the factory information; "invalid format for firmware
    ///         version": the version is not major.minor.patch
    /// @throws tesk::NotFoundException "error parsing factory info": the factory information states
    ///         no hardware type; or the system image states no version
    /// @throws tesk::ParseException the factory information is not JSON
    /// @throws Poco::Exception the factory information is no JSON object, its hardware type is
    ///         null, or a sensor's serial number is not hexadecimal
    int convertValue(RegisterType type, int value, int index) const override;

    /// Never returns: nothing of the main board can be written.
    ///
    /// @throws tesk::UnsupportedException "write not supported with type '%s'" for the register
    ///         types above, "type '%s' not supported" for every other type
    bool isValueValid(RegisterType type, int value) const override;

    /// @return 1
    int getSerialPortsCount() const override;

    /// The address of a 1-Wire sensor ("28-0000075f0e11").
    ///
    /// @param index the line in the bus master's list, counted from 1
    /// @throws tesk::InputOutputException "no temperature sensor detected": there is no list; "no
    ///         valid temperature sensor addresses found": the list has no such line
    std::string readTempSensorAddress(int index) const;

 private:
    int readSensorTemperature(int index) const;
    int readSensorAddressWord(RegisterType type, int value, int index) const;
};
