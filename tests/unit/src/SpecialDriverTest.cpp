// SPDX-License-Identifier: MIT
#include "SpecialDriver.h"

#include <gmock/gmock.h>

#include <array>
#include <limits>
#include <map>
#include <memory>
#include <set>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "RegisterTypes.h"
#include "VaduDriver.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

const std::set<RegisterType> COUNTS{
    RegisterType::COUNT_SERIALS,        RegisterType::COUNT_RELAYS,
    RegisterType::COUNT_OUTPUTS,        RegisterType::COUNT_INPUTS,
    RegisterType::COUNT_ANALOG_OUTPUTS, RegisterType::COUNT_ANALOG_INPUTS,
};

class SpecialDriverTest : public testing::Test {
 protected:
    std::shared_ptr<FakeDriver> add(DriverInterface::Driver id, int index,
                                    const FakeDriver::Counts& counts) {
        auto driver = std::make_shared<FakeDriver>(id, index);
        driver->counts = counts;
        special.addIoCount(driver);
        return driver;
    }

    int value(RegisterType type, int index = 1) const {
        return special.convertValue(type, 0, index);
    }

    std::array<int, 4> detected() const {
        std::array<int, 4> flags{};
        for (int index = 1; index <= 4; ++index) {
            flags.at(static_cast<std::size_t>(index) - 1) =
                value(RegisterType::PD5_DETECTED, index);
        }
        return flags;
    }

    SpecialDriver special;
};

TEST_F(SpecialDriverTest, IsTheOnlyDriverOfItsName) {
    EXPECT_EQ(special.getName(), "special");
    EXPECT_EQ(special.getDriverId(), DriverInterface::SPECIAL);
    EXPECT_EQ(special.getIndex(), -1);
}

TEST_F(SpecialDriverTest, HasCountedNothingAtFirst) {
    for (const RegisterType type : COUNTS) {
        EXPECT_EQ(value(type), 0) << getTypeName(type);
    }
    EXPECT_THAT(detected(), ElementsAre(0, 0, 0, 0));
}

TEST_F(SpecialDriverTest, AddsUpTheIosOfAllDrivers) {
    add(DriverInterface::KR62, -1, {1, 2, 3, 4, 5, 6});
    add(DriverInterface::GPIOCHIP, 0, {100, 200, 300, 400, 500, 600});
    EXPECT_EQ(value(RegisterType::COUNT_SERIALS), 101);
    EXPECT_EQ(value(RegisterType::COUNT_RELAYS), 202);
    EXPECT_EQ(value(RegisterType::COUNT_OUTPUTS), 303);
    EXPECT_EQ(value(RegisterType::COUNT_INPUTS), 404);
    EXPECT_EQ(value(RegisterType::COUNT_ANALOG_OUTPUTS), 505);
    EXPECT_EQ(value(RegisterType::COUNT_ANALOG_INPUTS), 606);
}

TEST_F(SpecialDriverTest, AsksADriverForItsCountsOnceWhenItIsAdded) {
    const auto driver = add(DriverInterface::KR62, -1, {});
    EXPECT_THAT(driver->calls(), ElementsAre("getSerialPortsCount()", "getRelaysCount()",
                                             "getDigitalInputsCount()", "getDigitalOutputsCount()",
                                             "getAnalogOutputsCount()", "getAnalogInputsCount()"));
    driver->forgetCalls();
    value(RegisterType::COUNT_RELAYS);
    EXPECT_THAT(driver->calls(), testing::IsEmpty());
}

TEST_F(SpecialDriverTest, DoesNotKeepTheDriver) {
    EXPECT_EQ(add(DriverInterface::KR62, -1, {}).use_count(), 1);
}

TEST_F(SpecialDriverTest, ADriverAddedTwiceCountsTwice) {
    const auto driver = add(DriverInterface::KR62, -1, {0, 4, 0, 0, 0, 0});
    special.addIoCount(driver);
    EXPECT_EQ(value(RegisterType::COUNT_RELAYS), 8);
}

TEST_F(SpecialDriverTest, SumsUpAWholeDevice) {
    special.addIoCount(std::make_shared<VaduDriver>());
    add(DriverInterface::KR62, -1, {0, 4, 2, 8, 0, 4});
    add(DriverInterface::PD5, 1, {0, 8, 0, 0, 0, 0});
    add(DriverInterface::PD5, 3, {0, 8, 0, 0, 0, 0});
    EXPECT_EQ(value(RegisterType::COUNT_SERIALS), 1);
    EXPECT_EQ(value(RegisterType::COUNT_RELAYS), 20);
    EXPECT_EQ(value(RegisterType::COUNT_OUTPUTS), 2);
    EXPECT_EQ(value(RegisterType::COUNT_INPUTS), 8);
    EXPECT_EQ(value(RegisterType::COUNT_ANALOG_OUTPUTS), 0);
    EXPECT_EQ(value(RegisterType::COUNT_ANALOG_INPUTS), 4);
    EXPECT_THAT(detected(), ElementsAre(1, 0, 1, 0));
}

TEST_F(SpecialDriverTest, NotesExpandersOneToFour) {
    for (int index = 1; index <= 4; ++index) {
        EXPECT_EQ(value(RegisterType::PD5_DETECTED, index), 0);
        add(DriverInterface::PD5, index, {});
        EXPECT_EQ(value(RegisterType::PD5_DETECTED, index), 1);
    }
}

TEST_F(SpecialDriverTest, AnExpanderWithAnotherNumberCountsButIsNotNoted) {
    for (const int index : {0, 5, 6, -1, MAX, MIN}) {
        add(DriverInterface::PD5, index, {0, 8, 0, 0, 0, 0});
    }
    EXPECT_THAT(detected(), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(value(RegisterType::PD5_DETECTED, 0), 0);
    EXPECT_EQ(value(RegisterType::COUNT_RELAYS), 48);
}

TEST_F(SpecialDriverTest, OnlyExpandersAreNoted) {
    add(DriverInterface::GPIOCHIP, 1, {});
    add(DriverInterface::KR62, 2, {});
    add(DriverInterface::VADU, 3, {});
    add(DriverInterface::SPECIAL, 4, {});
    EXPECT_THAT(detected(), ElementsAre(0, 0, 0, 0));
}

TEST_F(SpecialDriverTest, ExpanderZeroIsNeverThere) {
    for (int index = 0; index <= 4; ++index) {
        add(DriverInterface::PD5, index, {});
    }
    EXPECT_EQ(value(RegisterType::PD5_DETECTED, 0), 0);
    EXPECT_THAT(detected(), ElementsAre(1, 1, 1, 1));
}

TEST_F(SpecialDriverTest, AnExpanderNumberAboveFourOrBelowZeroIsInvalid) {
    for (const int index : {5, 6, -1, MIN, MAX}) {
        const std::string text = "invalid PD5 index " + std::to_string(index);
        EXPECT_THAT([&] { value(RegisterType::PD5_DETECTED, index); },
                    ThrowsMessage<tesk::InvalidArgumentsException>(text));
        EXPECT_THAT([&] { return special.getIOFileName(RegisterType::PD5_DETECTED, index); },
                    ThrowsMessage<tesk::InvalidArgumentsException>(text));
    }
}

TEST_F(SpecialDriverTest, HasNoFiles) {
    for (const RegisterType type : COUNTS) {
        for (const int index : {1, 0, -1, 99}) {
            EXPECT_EQ(special.getIOFileName(type, index), "") << getTypeName(type);
        }
    }
    for (int index = 0; index <= 4; ++index) {
        EXPECT_EQ(special.getIOFileName(RegisterType::PD5_DETECTED, index), "");
    }
}

TEST_F(SpecialDriverTest, AReadIgnoresTheValueAndForCountsTheIndex) {
    add(DriverInterface::PD5, 2, {0, 8, 0, 0, 0, 0});
    EXPECT_EQ(special.convertValue(RegisterType::COUNT_RELAYS, 77, -1), 8);
    EXPECT_EQ(special.convertValue(RegisterType::COUNT_RELAYS, -5, 99), 8);
    EXPECT_EQ(special.convertValue(RegisterType::PD5_DETECTED, 77, 2), 1);
    EXPECT_EQ(special.convertValue(RegisterType::PD5_DETECTED, 77, 3), 0);
}

TEST_F(SpecialDriverTest, ServesNoOtherType) {
    for (const RegisterType type : allTypes()) {
        if (COUNTS.count(type) != 0 || type == RegisterType::PD5_DETECTED) {
            continue;
        }
        const std::string text = "type '" + getTypeName(type) + "' not supported";
        EXPECT_THAT([&] { return special.getIOFileName(type, 1); },
                    ThrowsMessage<tesk::UnsupportedException>(text));
        EXPECT_THAT([&] { value(type); }, ThrowsMessage<tesk::UnsupportedException>(text));
    }
}

TEST_F(SpecialDriverTest, NothingCanBeWritten) {
    for (const RegisterType type : allTypes()) {
        EXPECT_THAT([&] { special.isValueValid(type, 0); },
                    ThrowsMessage<tesk::UnsupportedException>("write not supported for IO type " +
                                                              getTypeName(type)));
    }
}

TEST_F(SpecialDriverTest, ConfiguringDoesNothing) {
    const CapturedLog log;
    for (const RegisterType type : allTypes()) {
        special.configureIO(type, -1, [](int) { ADD_FAILURE() << "was notified"; });
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(SpecialDriverTest, HasNoIosOfItsOwn) {
    add(DriverInterface::KR62, -1, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(special.getSerialPortsCount(), 0);
    EXPECT_EQ(special.getRelaysCount(), 0);
    EXPECT_EQ(special.getDigitalOutputsCount(), 0);
    EXPECT_EQ(special.getDigitalInputsCount(), 0);
    EXPECT_EQ(special.getAnalogOutputsCount(), 0);
    EXPECT_EQ(special.getAnalogInputsCount(), 0);
}

}  // namespace
