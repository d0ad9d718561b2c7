// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// The kinds of register. The numbers travel over D-Bus and never change.
enum class RegisterType : std::int32_t {
    RELAY = 0,
    OUTPUT_DIGITAL = 1,
    INPUT_DIGITAL = 2,
    PULLUP = 3,
    INPUT_COUNTER = 4,
    INPUT_ANALOG = 5,
    RTS = 6,
    CTS = 7,
    SENSOR_TEMP_VALUE = 8,
    SENSOR_TEMP_ADDRESS_LOWER = 9,
    SENSOR_TEMP_ADDRESS_HIGHER = 10,
    DEVICE_CURRENT = 11,
    DEVICE_VOLTAGE = 12,
    CPU_TEMP = 13,
    UPTIME = 14,
    USB_ENABLE = 15,
    COLOR_LED = 16,
    BRIGHTNESS_LED = 17,
    HW_TYPE = 18,
    FW_VERSION = 19,
    COUNT_SERIALS = 20,
    COUNT_RELAYS = 21,
    COUNT_OUTPUTS = 22,
    COUNT_INPUTS = 23,
    COUNT_ANALOG_OUTPUTS = 24,
    COUNT_ANALOG_INPUTS = 25,
    PD5_DETECTED = 26,
    ENABLE_ANALOG = 27,
    RESERVED = 28,
    VIRTUAL = 29,
    UNKNOWN = 30,
};

/// The name of a kind, as the map file and all messages spell it ("relay", "input_digital").
///
/// Callable from any thread.
///
/// @param type the kind; any number cast to the enumeration is allowed
/// @return the name, valid until the process exits; "unknown" for a number that is no kind
[[gnu::visibility("default")]] const std::string& getTypeName(RegisterType type);

/// The kind with a name. The match is exact: case counts, and so do blanks.
///
/// Callable from any thread.
///
/// @param name the name as getTypeName() gives it
/// @return the kind
/// @throws tesk::NotFoundException "IO type '%s' not found": no kind has this name
[[gnu::visibility("default")]] RegisterType getTypeFromName(const std::string& name);
