// SPDX-License-Identifier: MIT
#include "support/DriverAccess.h"

#include <gmock/gmock.h>

#include "FakeDriver.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

class DriverAccessTest : public testing::Test {
 protected:
    FakeDriver driver;
    Register reg{12, RegisterType::RELAY, 3, 32, {}};
};

TEST_F(DriverAccessTest, TheDriverIsAskedForTheTypeOfTheRegister) {
    EXPECT_NO_THROW(DriverAccess::requireValidValue(driver, reg, 1));
    EXPECT_THAT(driver.calls(), ElementsAre("isValueValid(relay, 1)"));
}

TEST_F(DriverAccessTest, ARefusedValueIsNamedWithItsAddress) {
    driver.accept = [](RegisterType, int) { return false; };
    EXPECT_THAT(
        [this] { DriverAccess::requireValidValue(driver, reg, 2); },
        ThrowsMessage<tesk::InvalidArgumentsException>("value 2 is invalid for address 12"));
}

TEST_F(DriverAccessTest, AnExceptionOfTheDriverPassesOut) {
    driver.accept = [](RegisterType, int) -> bool {
        throw tesk::UnsupportedException("only read");
    };
    EXPECT_THAT([this] { DriverAccess::requireValidValue(driver, reg, 1); },
                ThrowsMessage<tesk::UnsupportedException>("only read"));
}

}  // namespace
