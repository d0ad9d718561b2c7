// SPDX-License-Identifier: MIT
#include "RegisterType.h"

#include <gmock/gmock.h>

#include <array>
#include <set>
#include <vector>

#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAreArray;

/// The names by number, as clients on the bus know them.
constexpr std::array NAMES{
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

/// Whether the enumeration has a number. The compiler refuses a switch that misses one of its
/// types.
bool isEnumerated(int number) {
    switch (static_cast<RegisterType>(number)) {
        case RegisterType::RELAY:
        case RegisterType::OUTPUT_DIGITAL:
        case RegisterType::INPUT_DIGITAL:
        case RegisterType::PULLUP:
        case RegisterType::INPUT_COUNTER:
        case RegisterType::INPUT_ANALOG:
        case RegisterType::RTS:
        case RegisterType::CTS:
        case RegisterType::SENSOR_TEMP_VALUE:
        case RegisterType::SENSOR_TEMP_ADDRESS_LOWER:
        case RegisterType::SENSOR_TEMP_ADDRESS_HIGHER:
        case RegisterType::DEVICE_CURRENT:
        case RegisterType::DEVICE_VOLTAGE:
        case RegisterType::CPU_TEMP:
        case RegisterType::UPTIME:
        case RegisterType::USB_ENABLE:
        case RegisterType::COLOR_LED:
        case RegisterType::BRIGHTNESS_LED:
        case RegisterType::HW_TYPE:
        case RegisterType::FW_VERSION:
        case RegisterType::COUNT_SERIALS:
        case RegisterType::COUNT_RELAYS:
        case RegisterType::COUNT_OUTPUTS:
        case RegisterType::COUNT_INPUTS:
        case RegisterType::COUNT_ANALOG_OUTPUTS:
        case RegisterType::COUNT_ANALOG_INPUTS:
        case RegisterType::PD5_DETECTED:
        case RegisterType::ENABLE_ANALOG:
        case RegisterType::RESERVED:
        case RegisterType::VIRTUAL:
        case RegisterType::UNKNOWN:
            return true;
    }
    return false;
}

TEST(RegisterTypeTest, AllTypesAreThoseOfTheEnumerationInAscendingOrder) {
    std::vector<RegisterType> expected;
    for (int number = -1000; number <= 1000; ++number) {
        if (isEnumerated(number)) {
            expected.push_back(static_cast<RegisterType>(number));
        }
    }
    EXPECT_THAT(getAllTypes(), ElementsAreArray(expected));
    EXPECT_EQ(getAllTypes().size(), NAMES.size());
}

TEST(RegisterTypeTest, EveryTypeHasANameOfItsOwn) {
    std::set<std::string> names;
    for (const RegisterType type : getAllTypes()) {
        EXPECT_TRUE(names.insert(getTypeName(type)).second) << getTypeName(type);
    }
}

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

TEST(RegisterTypeTest, ANumberThatIsNoTypeIsNamedUnknown) {
    const int nextFree = static_cast<int>(NAMES.size());
    for (const int number : {nextFree, 1000, -1, -2147483647}) {
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
