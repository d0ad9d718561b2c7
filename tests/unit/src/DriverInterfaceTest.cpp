// SPDX-License-Identifier: MIT
#include "DriverInterface.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "LoggerNames.h"

namespace {

/// A driver with no more than it must have.
class PlainDriver : public DriverInterface {
 public:
    PlainDriver(Driver driver, int index) : DriverInterface(driver, index) {}

    void configureIO(RegisterType /*type*/, int /*index*/,
                     std::function<void(int)> /*callback*/) override {}
    std::string getIOFileName(RegisterType /*type*/, int /*index*/) const override { return {}; }
    int convertValue(RegisterType /*type*/, int value, int /*index*/) const override {
        return value;
    }
    bool isValueValid(RegisterType /*type*/, int /*value*/) const override { return true; }

    Poco::Logger& usedLogger() const { return logger; }
};

TEST(DriverInterfaceTest, TheDriversHaveTheirNumbersAndNames) {
    std::map<int, std::string> names;
    for (const auto& [id, name] : DriverInterface::driverToStringMap) {
        names[id] = name;
    }
    EXPECT_EQ(names, (std::map<int, std::string>{
                         {0, "vadu"}, {1, "kr62"}, {2, "pd5"}, {3, "special"}, {4, "gpiochip"}}));
    EXPECT_EQ(DriverInterface::VADU, 0);
    EXPECT_EQ(DriverInterface::KR62, 1);
    EXPECT_EQ(DriverInterface::PD5, 2);
    EXPECT_EQ(DriverInterface::SPECIAL, 3);
    EXPECT_EQ(DriverInterface::GPIOCHIP, 4);
}

TEST(DriverInterfaceTest, KeepsDriverAndIndex) {
    for (const auto& [id, name] : DriverInterface::driverToStringMap) {
        for (const int index : {-1, 0, 7}) {
            const PlainDriver driver(id, index);
            EXPECT_EQ(driver.getDriverId(), id);
            EXPECT_EQ(driver.getIndex(), index);
        }
    }
}

TEST(DriverInterfaceTest, TheNameHasTheIndexUnlessItIsNegative) {
    EXPECT_EQ(PlainDriver(DriverInterface::VADU, -1).getName(), "vadu");
    EXPECT_EQ(PlainDriver(DriverInterface::KR62, -1).getName(), "kr62");
    EXPECT_EQ(PlainDriver(DriverInterface::SPECIAL, -1).getName(), "special");
    EXPECT_EQ(PlainDriver(DriverInterface::PD5, 0).getName(), "pd5-0");
    EXPECT_EQ(PlainDriver(DriverInterface::PD5, 12).getName(), "pd5-12");
    EXPECT_EQ(PlainDriver(DriverInterface::GPIOCHIP, 2).getName(), "gpiochip-2");
    EXPECT_EQ(PlainDriver(DriverInterface::PD5, -2).getName(), "pd5");
}

TEST(DriverInterfaceTest, TheLoggersNameAlwaysHasTheIndex) {
    const PlainDriver single(DriverInterface::KR62, -1);
    EXPECT_EQ(single.usedLogger().name(), loggerNameOf("kr62--1-driver", &single));
    const PlainDriver numbered(DriverInterface::PD5, 3);
    EXPECT_EQ(numbered.usedLogger().name(), loggerNameOf("pd5-3-driver", &numbered));
}

TEST(DriverInterfaceTest, EveryDriverHasALoggerOfItsOwnAsLongAsItLives) {
    std::optional<PlainDriver> first(std::in_place, DriverInterface::PD5, 1);
    std::optional<PlainDriver> second(std::in_place, DriverInterface::PD5, 1);
    const std::string firstName = first->usedLogger().name();
    const std::string secondName = second->usedLogger().name();
    EXPECT_NE(firstName, secondName);
    EXPECT_TRUE(loggerExists(firstName));
    first.reset();
    EXPECT_FALSE(loggerExists(firstName));
    EXPECT_TRUE(loggerExists(secondName));
    second.reset();
    EXPECT_FALSE(loggerExists(secondName));
}

TEST(DriverInterfaceTest, ADriverThatDoesNotExistIsOutOfRange) {
    const auto loggers = loggerNames();
    const int nextFree = DriverInterface::driverToStringMap.rbegin()->first + 1;
    for (const int id : {nextFree, -1, 1000}) {
        EXPECT_THAT([id] { PlainDriver(static_cast<DriverInterface::Driver>(id), -1); },
                    testing::ThrowsMessage<std::out_of_range>("map::at"));
    }
    EXPECT_EQ(loggerNames(), loggers);
}

TEST(DriverInterfaceTest, HasNoIosUnlessADriverSaysSo) {
    const PlainDriver driver(DriverInterface::KR62, -1);
    EXPECT_EQ(driver.getSerialPortsCount(), 0);
    EXPECT_EQ(driver.getRelaysCount(), 0);
    EXPECT_EQ(driver.getDigitalOutputsCount(), 0);
    EXPECT_EQ(driver.getDigitalInputsCount(), 0);
    EXPECT_EQ(driver.getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver.getAnalogInputsCount(), 0);
}

TEST(DriverInterfaceTest, WritingWithoutAFileDoesNothingUnlessADriverDoes) {
    const CapturedLog log;
    PlainDriver driver(DriverInterface::KR62, -1);
    EXPECT_NO_THROW(driver.specificWriteValue(RegisterType::RELAY, 1, 99));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(DriverInterfaceTest, ADriverIsNoLongLivedObjectToTheOutside) {
    EXPECT_TRUE((std::is_base_of_v<tesk::ObjectBase, DriverInterface>));
    EXPECT_FALSE((std::is_convertible_v<DriverInterface*, tesk::ObjectBase*>));
    EXPECT_TRUE(std::has_virtual_destructor_v<DriverInterface>);
    EXPECT_TRUE(std::is_abstract_v<DriverInterface>);
}

}  // namespace
