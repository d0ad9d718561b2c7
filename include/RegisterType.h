// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The types of register. The numbers travel over D-Bus and never change.
enum class RegisterType : std::int32_t {
    RELAY = 0,              ///< Relay: 0 off, 1 on.
    OUTPUT_DIGITAL = 1,     ///< Digital output; no driver serves it.
    INPUT_DIGITAL = 2,      ///< Digital input: 0 or 1.
    PULLUP = 3,             ///< Pull-up of a digital input: 0 off, 1 on.
    INPUT_COUNTER = 4,      ///< Rising edges of a digital input.
    INPUT_ANALOG = 5,       ///< Analog input, in millivolts.
    RTS = 6,                ///< RTS line of a serial port: 1 asserted.
    CTS = 7,                ///< CTS line of a serial port: 1 asserted.
    SENSOR_TEMP_VALUE = 8,  ///< 1-Wire sensor, in thousandths of a degree Celsius; 4096 if missing.
    SENSOR_TEMP_ADDRESS_LOWER = 9,    ///< Low 32 bits of a sensor's serial number.
    SENSOR_TEMP_ADDRESS_HIGHER = 10,  ///< High 32 bits of a sensor's serial number.
    DEVICE_CURRENT = 11,              ///< Supply current, in milliamperes.
    DEVICE_VOLTAGE = 12,              ///< Supply voltage, in millivolts.
    CPU_TEMP = 13,                    ///< Processor, in thousandths of a degree Celsius.
    UPTIME = 14,                      ///< Seconds since the device started.
    USB_ENABLE = 15,                  ///< USB power: 0 off, 1 on.
    COLOR_LED = 16,                   ///< Colour of an LED, 1 to 7.
    BRIGHTNESS_LED = 17,              ///< Brightness of an LED, 0 to 15.
    HW_TYPE = 18,                     ///< Hardware type of the factory information.
    FW_VERSION = 19,                  ///< Firmware version: major * 256 + minor * 16 + patch.
    COUNT_SERIALS = 20,               ///< Number of serial ports.
    COUNT_RELAYS = 21,                ///< Number of relays of all boards.
    COUNT_OUTPUTS = 22,               ///< Number of digital outputs.
    COUNT_INPUTS = 23,                ///< Number of digital inputs.
    COUNT_ANALOG_OUTPUTS = 24,        ///< Number of analog outputs.
    COUNT_ANALOG_INPUTS = 25,         ///< Number of analog inputs.
    PD5_DETECTED = 26,                ///< Whether an expander is fitted: 0 or 1.
    ENABLE_ANALOG = 27,               ///< Whether an analog input measures: 0 or 1.
    RESERVED = 28,                    ///< An address kept free: reads 0, refuses writes.
    VIRTUAL = 29,                     ///< Keeps what is written to it.
    UNKNOWN = 30,                     ///< What getTypeName() calls every other number.
};

/// The name of a type, as the map file and all messages spell it ("relay", "input_digital").
///
/// Callable from any thread.
///
/// @param type the type; any number cast to the enumeration is allowed
/// @return the name, valid until the process exits; "unknown" for a number that is no type
[[gnu::visibility("default")]] const std::string& getTypeName(RegisterType type);

/// The type with a name. The match is exact: case counts, and so do blanks.
///
/// Callable from any thread.
///
/// @param name the name as getTypeName() gives it
/// @return the type
/// @throws tesk::NotFoundException "IO type '%s' not found": no type has this name
[[gnu::visibility("default")]] RegisterType getTypeFromName(const std::string& name);

/// Every type, UNKNOWN included, in ascending order of the numbers.
///
/// Callable from any thread.
///
/// @return the types, valid until the process exits
[[gnu::visibility("default")]] const std::vector<RegisterType>& getAllTypes();
