// SPDX-License-Identifier: MIT
#include "RegisterType.h"

#include <gtest/gtest.h>

#include <array>

#include "tesk/Exceptions.h"

namespace {

/// The names by number, as clients on the bus know them.
constexpr std::array<const char*, 31> NAMES{
    "relay",
    "output_digital",
    "input_digital",
    "pullup",
    "input_counter",
    "input_analog",
    "rts",
    "cts",
    "sensor_temp_value",
    "sensor_temp_address_lower",
    "sensor_temp_address_higher",
    "device_current",
    "device_voltage",
    "cpu_temp",
    "uptime",
    "usb_enable",
    "color_led",
    "brightness_led",
    "hw_type",
    "fw_version",
    "count_serials",
    "count_relays",
    "count_outputs",
    "count_inputs",
    "count_analog_outputs",
    "count_analog_inputs",
    "pd5_detected",
    "enable_analog",
    "reserved",
    "virtual",
    "unknown",
};

TEST(RegisterTypeTest, EveryNumberHasItsName) {
    for (std::size_t number = 0; number < NAMES.size(); ++number) {
        EXPECT_EQ(getTypeName(static_cast<RegisterType>(number)), NAMES.at(number));
    }
}

TEST(RegisterTypeTest, EveryNameLeadsBackToItsNumber) {
    for (std::size_t number = 0; number < NAMES.size(); ++number) {
        EXPECT_EQ(static_cast<std::size_t>(getTypeFromName(NAMES.at(number))), number);
    }
}

TEST(RegisterTypeTest, ANumberThatIsNoKindIsNamedUnknown) {
    for (const int number : {31, 99, -1, -2147483647}) {
        EXPECT_EQ(getTypeName(static_cast<RegisterType>(number)), "unknown");
    }
}

TEST(RegisterTypeTest, ANameThatFitsNotExactlyIsNotFound) {
    for (const std::string name : {"Relay", "relay ", " relay", "rela", "relays", "", "RELAY"}) {
        try {
            getTypeFromName(name);
            ADD_FAILURE() << "'" << name << "' was found";
        } catch (const tesk::NotFoundException& e) {
            EXPECT_EQ(e.what(), "IO type '" + name + "' not found");
        }
    }
}

TEST(RegisterTypeTest, TheSameNameIsTheSameObjectEveryTime) {
    EXPECT_EQ(&getTypeName(RegisterType::RELAY), &getTypeName(RegisterType::RELAY));
}

}  // namespace
