// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>

#include "TemporaryDirectory.h"
#include "sim/Error.h"
#include "sim/SensorBus.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr const char* ONE = "28-00000a1b2c3d";
constexpr const char* OTHER = "28-031264e5a1ff";

class SensorBusTest : public testing::Test {
 protected:
    SensorBusTest() { sensors.make(); }

    std::string list() const {
        return readFile(directory.path() / "w1_bus_master1/w1_master_slaves");
    }

    TemporaryDirectory directory;
    sim::SensorBus sensors{directory.path()};
};

TEST_F(SensorBusTest, HasNoSensorAtFirst) {
    EXPECT_TRUE(sensors.isThere());
    EXPECT_THAT(sensors.addresses(), IsEmpty());
    EXPECT_EQ(list(), "");
    EXPECT_FALSE(sim::SensorBus(directory.path() / "other").isThere());
}

TEST_F(SensorBusTest, SensorsComeAndGo) {
    sensors.plug(ONE, 21500);
    sensors.plug(OTHER, -4250);
    EXPECT_EQ(list(), "28-00000a1b2c3d\n28-031264e5a1ff\n");
    EXPECT_EQ(sensors.temperature(OTHER).number(), -4250);
    sensors.unplug(ONE);
    EXPECT_THAT(sensors.addresses(), ElementsAre(OTHER));
    EXPECT_FALSE(std::filesystem::exists(directory.path() / ONE));
    sensors.plug(ONE, 0);
    EXPECT_THAT(sensors.addresses(), ElementsAre(OTHER, ONE));
    EXPECT_EQ(sensors.temperature(ONE).number(), 0);
}

TEST_F(SensorBusTest, ASensorIsPluggedOnlyOnce) {
    sensors.plug(ONE, 1);
    EXPECT_THAT([this] { sensors.plug(ONE, 2); },
                ThrowsMessage<sim::Error>("the sensor 28-00000a1b2c3d is plugged already"));
    EXPECT_THAT([this] { sensors.unplug(OTHER); },
                ThrowsMessage<sim::Error>("no sensor 28-031264e5a1ff is plugged"));
    EXPECT_EQ(sensors.temperature(ONE).number(), 1);
}

TEST_F(SensorBusTest, AnAddressIsAFamilyAndASerialNumber) {
    for (const char* text :
         {"", "28", "28-", "28-00000A1B2C3D", "28-00000a1b2c3", "28-0000-a1b2c3d",
          "2800-000a1b2c3d", "../28-00", "28-00000a1b2c3d/", "w1_bus_master1"}) {
        EXPECT_FALSE(sim::SensorBus::isAddress(text)) << text;
        EXPECT_THROW(sensors.plug(text, 0), sim::Error) << text;
    }
    EXPECT_TRUE(sim::SensorBus::isAddress("10-0123456789ef"));
}

TEST_F(SensorBusTest, WithoutABusThereAreNoSensors) {
    const sim::SensorBus none(directory.path() / "none");
    EXPECT_THAT([&none] { none.addresses(); },
                ThrowsMessage<sim::Error>(HasSubstr("no 1-Wire bus")));
    EXPECT_THROW(none.plug(ONE, 0), sim::Error);
}

TEST_F(SensorBusTest, ReadersFindTheOldListOrTheNewOne) {
    constexpr int ROUNDS = 500;
    sensors.plug(ONE, 0);
    std::atomic<bool> isOver{false};
    std::thread reader([&] {
        while (!isOver) {
            const std::string text = list();
            EXPECT_TRUE(text == std::string(ONE) + "\n" ||
                        text == std::string(ONE) + "\n" + OTHER + "\n")
                << text;
        }
    });
    for (int round = 0; round < ROUNDS; ++round) {
        sensors.plug(OTHER, 0);
        sensors.unplug(OTHER);
    }
    isOver = true;
    reader.join();
}

}  // namespace
