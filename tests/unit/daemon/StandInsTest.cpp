// SPDX-License-Identifier: MIT
#include "daemon/StandIns.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "FakeGpiod.h"
#include "program/UsageError.h"
#include "tesk/Exceptions.h"

namespace {

using testing::IsEmpty;
using testing::ThrowsMessage;
using Type = RegisterType;

class StandInsTest : public testing::Test {
 protected:
    const DriverInterface& driver(const std::string& name) {
        return *drivers.getDriverByName(name);
    }

    DriverManager drivers;
};

TEST_F(StandInsTest, TheMainBoardAndTheCountsAreAlwaysThere) {
    addStandIns(drivers, "");
    EXPECT_EQ(driver("vadu").getDriverId(), DriverInterface::VADU);
    EXPECT_EQ(driver("special").getDriverId(), DriverInterface::SPECIAL);
    EXPECT_THROW(driver("kr62"), tesk::NotFoundException);
}

TEST_F(StandInsTest, BoardsHaveTheTypesOfTheRealOnesAndAnyNumberOfIos) {
    addStandIns(drivers, "kr62,vadu,pd5-3,special,pd5-15");
    EXPECT_EQ(driver("kr62").getIOFileName(Type::RELAY, 5000),
              "/sys/kernel/kr62/relays/5000/value");
    EXPECT_THROW(driver("kr62").getIOFileName(Type::ENABLE_ANALOG, 1), tesk::UnsupportedException);
    EXPECT_THROW(driver("kr62").getIOFileName(Type::COLOR_LED, 3), tesk::InvalidArgumentsException);
    EXPECT_EQ(driver("pd5-15").getIOFileName(Type::INPUT_DIGITAL, 2000000000),
              "/sys/kernel/pd5-15/inputs/2000000000/value");
    EXPECT_EQ(driver("pd5-3").getIndex(), 3);
}

TEST_F(StandInsTest, AChipIsNotOpened) {
    const FakeGpiod chips;
    addStandIns(drivers, "gpiochip-7");
    EXPECT_EQ(driver("gpiochip-7").getDriverId(), DriverInterface::GPIOCHIP);
    EXPECT_EQ(driver("gpiochip-7").getIOFileName(Type::CTS, 1), "");
    EXPECT_EQ(driver("gpiochip-7").getIOFileName(Type::RTS, 1), "");
    EXPECT_THAT([&] { driver("gpiochip-7").getIOFileName(Type::RELAY, 1); },
                ThrowsMessage<tesk::UnsupportedException>("type 'relay' not supported"));
    EXPECT_THAT(chips.calls(), IsEmpty());
}

TEST_F(StandInsTest, WhatIsNoDriverIsRefused) {
    for (const std::string name : {"kr26", "pd5", "gpiochip-x", " kr62"}) {
        DriverManager none;
        EXPECT_THAT([&] { addStandIns(none, "pd5-1," + name); },
                    ThrowsMessage<UsageError>("there is no driver '" + name + "'"));
    }
    EXPECT_THAT([&] { addStandIns(drivers, "kr62,kr62"); },
                ThrowsMessage<UsageError>("the driver 'kr62' is named twice"));
}

}  // namespace
