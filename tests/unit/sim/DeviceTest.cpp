// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <string>

#include "TemporaryDirectory.h"
#include "sim/Device.h"
#include "sim/Error.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr const char* SENSOR = "28-00000a1b2c3d";

class DeviceTest : public testing::Test {
 protected:
    DeviceTest() { device.make(); }

    /// A file of the device.
    std::string file(const std::string& path) const {
        return sim::Attribute(directory.path() / path).text();
    }

    TemporaryDirectory directory;
    sim::Device device{directory.path()};
};

TEST_F(DeviceTest, HasAMainBoardAtFirst) {
    EXPECT_EQ(file("sys/class/thermal/thermal_zone0/temp"), "48312");
    EXPECT_EQ(file("sys/bus/w1/devices/w1_bus_master1/w1_master_slaves"), "");
    EXPECT_EQ(file("tmp/factory_info_partition/factory_info_json"),
              R"({ "HW_DEVICE": { "Legacy_HW_Type": "12" } })");
    EXPECT_THAT(device.boards(), IsEmpty());
}

TEST_F(DeviceTest, MakingItAgainLeavesWhatIsThere) {
    device.cpuTemperature().set(50000);
    device.sensors().plug(SENSOR, 1);
    device.setHardwareType(7);
    device.make();
    EXPECT_EQ(device.cpuTemperature().number(), 50000);
    EXPECT_THAT(device.sensors().addresses(), ElementsAre(SENSOR));
    EXPECT_THAT(file("tmp/factory_info_partition/factory_info_json"), HasSubstr("\"7\""));
}

TEST_F(DeviceTest, HasTheBoardsThatAreMadeWhereTheDriversLookForThem) {
    device.makeBoard("pd5-12");
    device.makeBoard("kr62");
    device.makeBoard("pd5-0");
    EXPECT_THAT(device.boards(), ElementsAre("kr62", "pd5-0", "pd5-12"));
    EXPECT_EQ(file("sys/kernel/kr62/supply_voltage"), "3724");
    EXPECT_EQ(file("sys/kernel/pd5-12/analogs/4/enable"), "0");
    EXPECT_EQ(device.board("kr62").counts().relays, sim::Device::IO_BOARD.relays);
    EXPECT_EQ(device.board("pd5-0").counts().relays, sim::Device::EXPANDER.relays);
    device.board("pd5-0").pull();
    EXPECT_THAT(device.boards(), ElementsAre("kr62", "pd5-12"));
}

TEST_F(DeviceTest, OtherNamesAreNoBoards) {
    for (const char* name : {"", "KR62", "kr62-1", "pd5", "pd5-", "pd5--1", "pd5-01", ".."}) {
        EXPECT_THAT([&] { device.board(name); },
                    ThrowsMessage<sim::Error>("no board is called '" + std::string(name) +
                                              "'; kr62 is the IO board, pd5-1 an expander"));
    }
}

TEST_F(DeviceTest, ValuesHaveShortNames) {
    device.makeBoard("kr62");
    device.sensors().plug(SENSOR, 1);
    device.set("cpu", "-1");
    device.set(SENSOR, "21500");
    device.set("kr62/relays/4", "1");
    device.set("kr62/pullups/8/value", "1");
    device.set("kr62/leds/3/color", "5");
    device.set("kr62/inputs/1/counter_edge", "both");
    EXPECT_EQ(file("sys/class/thermal/thermal_zone0/temp"), "-1");
    EXPECT_EQ(file("sys/bus/w1/devices/28-00000a1b2c3d/temperature"), "21500");
    EXPECT_EQ(file("sys/kernel/kr62/relays/4/value"), "1");
    EXPECT_EQ(file("sys/kernel/kr62/pullups/8/value"), "1");
    EXPECT_EQ(file("sys/kernel/kr62/leds/3/color"), "5");
    EXPECT_EQ(device.value("kr62/inputs/1/counter_edge").text(), "both");
}

TEST_F(DeviceTest, AnInputThatIsSetIsCounted) {
    device.makeBoard("pd5-1");
    device.set("pd5-1/inputs/8/counter_edge", "rising");
    device.set("pd5-1/inputs/8", "1");
    device.set("pd5-1/inputs/8/value", "0");
    device.set("pd5-1/inputs/8/value", "1");
    EXPECT_EQ(device.value("pd5-1/inputs/8/counter").number(), 2);
    EXPECT_THROW(device.set("pd5-1/inputs/8", "2"), sim::Error);
}

TEST_F(DeviceTest, WhatIsNoValueIsRefused) {
    device.makeBoard("kr62");
    EXPECT_THAT([this] { device.set("kr62/relays/1", "on"); },
                ThrowsMessage<sim::Error>("kr62/relays/1 is a number of 32 bits, not 'on'"));
    EXPECT_THROW(device.set("cpu", "2147483648"), sim::Error);
    EXPECT_THAT(
        [this] { device.set("kr62/inputs/1/edge", "1"); },
        ThrowsMessage<sim::Error>("kr62/inputs/1/edge is none, rising, falling or both, not '1'"));
    for (const char* name : {"kr62", "kr62/../../../x", "kr62/./relays/1", "kr62//relays/1"}) {
        EXPECT_THAT([&] { device.value(name); }, ThrowsMessage<sim::Error>(HasSubstr("no value")));
    }
    for (const char* name : {"/etc/passwd", "", "relays/1"}) {
        EXPECT_THAT([&] { device.value(name); }, ThrowsMessage<sim::Error>(HasSubstr("no board")));
    }
}

TEST_F(DeviceTest, WhatIsNotThereCannotBeSet) {
    device.makeBoard("kr62");
    for (const char* name :
         {"kr62/relays/5", "kr62/relays/0", "kr62/inputs/9", "pd5-1/relays/1", "28-ffffffffffff"}) {
        EXPECT_THAT([&] { device.set(name, "1"); },
                    ThrowsMessage<sim::Error>(HasSubstr("there is no ")));
    }
}

}  // namespace
