// SPDX-License-Identifier: MIT
#include "RegisterType.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "support/Pattern.h"
#include "support/StartOrder.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> TYPE_NOT_FOUND("IO type '%s' not found");

const std::array<std::pair<RegisterType, std::string>, 31> TYPE_NAMES
    [[gnu::init_priority(StartOrder::CONSTANTS)]]{{
        {RegisterType::RELAY, "relay"},
        {RegisterType::OUTPUT_DIGITAL, "output_digital"},
        {RegisterType::INPUT_DIGITAL, "input_digital"},
        {RegisterType::PULLUP, "pullup"},
        {RegisterType::INPUT_COUNTER, "input_counter"},
        {RegisterType::INPUT_ANALOG, "input_analog"},
        {RegisterType::RTS, "rts"},
        {RegisterType::CTS, "cts"},
        {RegisterType::SENSOR_TEMP_VALUE, "sensor_temp_value"},
        {RegisterType::SENSOR_TEMP_ADDRESS_LOWER, "sensor_temp_address_lower"},
        {RegisterType::SENSOR_TEMP_ADDRESS_HIGHER, "sensor_temp_address_higher"},
        {RegisterType::DEVICE_CURRENT, "device_current"},
        {RegisterType::DEVICE_VOLTAGE, "device_voltage"},
        {RegisterType::CPU_TEMP, "cpu_temp"},
        {RegisterType::UPTIME, "uptime"},
        {RegisterType::USB_ENABLE, "usb_enable"},
        {RegisterType::COLOR_LED, "color_led"},
        {RegisterType::BRIGHTNESS_LED, "brightness_led"},
        {RegisterType::HW_TYPE, "hw_type"},
        {RegisterType::FW_VERSION, "fw_version"},
        {RegisterType::COUNT_SERIALS, "count_serials"},
        {RegisterType::COUNT_RELAYS, "count_relays"},
        {RegisterType::COUNT_OUTPUTS, "count_outputs"},
        {RegisterType::COUNT_INPUTS, "count_inputs"},
        {RegisterType::COUNT_ANALOG_OUTPUTS, "count_analog_outputs"},
        {RegisterType::COUNT_ANALOG_INPUTS, "count_analog_inputs"},
        {RegisterType::PD5_DETECTED, "pd5_detected"},
        {RegisterType::ENABLE_ANALOG, "enable_analog"},
        {RegisterType::VIRTUAL, "virtual"},
        {RegisterType::RESERVED, "reserved"},
        {RegisterType::UNKNOWN, "unknown"},
    }};

/// The entry of a type; null for a number that is no type.
const std::pair<RegisterType, std::string>* find(RegisterType type) {
    const auto* const entry = std::find_if(TYPE_NAMES.begin(), TYPE_NAMES.end(),
                                           [type](const auto& e) { return e.first == type; });
    return entry != TYPE_NAMES.end() ? entry : nullptr;
}

std::vector<RegisterType> sortedTypes() {
    std::vector<RegisterType> types;
    types.reserve(TYPE_NAMES.size());
    std::transform(TYPE_NAMES.begin(), TYPE_NAMES.end(), std::back_inserter(types),
                   [](const auto& e) { return e.first; });
    std::sort(types.begin(), types.end());
    return types;
}

// Behind the table, which it is made from: objects of one priority are made in this order.
const std::vector<RegisterType> ALL_TYPES [[gnu::init_priority(StartOrder::CONSTANTS)]] =
    sortedTypes();

}  // namespace

const std::string& getTypeName(RegisterType type) {
    const auto* const entry = find(type);
    return (entry != nullptr ? entry : find(RegisterType::UNKNOWN))->second;
}

RegisterType getTypeFromName(const std::string& name) {
    const auto* const entry = std::find_if(TYPE_NAMES.begin(), TYPE_NAMES.end(),
                                           [&name](const auto& e) { return e.second == name; });
    if (entry == TYPE_NAMES.end()) {
        throw tesk::NotFoundException(TYPE_NOT_FOUND(name));
    }
    return entry->first;
}

const std::vector<RegisterType>& getAllTypes() {
    return ALL_TYPES;
}
