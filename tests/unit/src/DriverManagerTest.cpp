// SPDX-License-Identifier: MIT
#include "DriverManager.h"

#include <gmock/gmock.h>

#include <memory>
#include <optional>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "LoggerNames.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

class DriverManagerTest : public testing::Test {
 protected:
    std::shared_ptr<FakeDriver> add(DriverInterface::Driver id, int index) {
        auto driver = std::make_shared<FakeDriver>(id, index);
        manager->addDriver(driver);
        return driver;
    }

    CapturedLog log;
    std::optional<DriverManager> manager{std::in_place};
};

TEST_F(DriverManagerTest, FindsNothingAtFirst) {
    EXPECT_THAT([this] { manager->getDriverByName("vadu"); },
                ThrowsMessage<tesk::NotFoundException>("driver 'vadu' not found"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DriverManagerTest, FindsEveryDriverByItsName) {
    const auto vadu = add(DriverInterface::VADU, -1);
    const auto first = add(DriverInterface::PD5, 0);
    const auto second = add(DriverInterface::PD5, 1);
    const auto chip = add(DriverInterface::GPIOCHIP, 0);
    EXPECT_EQ(manager->getDriverByName("vadu"), vadu);
    EXPECT_EQ(manager->getDriverByName("pd5-0"), first);
    EXPECT_EQ(manager->getDriverByName("pd5-1"), second);
    EXPECT_EQ(manager->getDriverByName("gpiochip-0"), chip);
}

TEST_F(DriverManagerTest, HandsOutTheStoredPointerItself) {
    const auto vadu = add(DriverInterface::VADU, -1);
    EXPECT_EQ(&manager->getDriverByName("vadu"), &manager->getDriverByName("vadu"));
    EXPECT_NE(static_cast<const void*>(&manager->getDriverByName("vadu")), &vadu);
}

TEST_F(DriverManagerTest, ANameMustFitExactly) {
    add(DriverInterface::PD5, 0);
    add(DriverInterface::VADU, -1);
    for (const std::string name :
         {"pd5", "pd5-", "pd5-00", "pd5-0 ", " vadu", "Vadu", "VADU", "vad", "vadu--1", ""}) {
        EXPECT_THAT([&] { manager->getDriverByName(name); },
                    ThrowsMessage<tesk::NotFoundException>("driver '" + name + "' not found"));
    }
}

TEST_F(DriverManagerTest, ALookupLogsNothing) {
    add(DriverInterface::VADU, -1);
    log.clear();
    manager->getDriverByName("vadu");
    EXPECT_THROW(manager->getDriverByName("kr62"), tesk::NotFoundException);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DriverManagerTest, LogsAnAddedDriverAtInformation) {
    add(DriverInterface::PD5, 1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "driver 'pd5-1' added to the list");
    EXPECT_EQ(log.lines()[0].priority, Poco::Message::PRIO_INFORMATION);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("driver-manager", &*manager));
}

TEST_F(DriverManagerTest, RefusesASecondDriverOfTheSameNameAndKeepsTheFirst) {
    const auto first = add(DriverInterface::KR62, -1);
    log.clear();
    const auto second = std::make_shared<FakeDriver>(DriverInterface::KR62, -1);
    EXPECT_THAT([&] { manager->addDriver(second); },
                ThrowsMessage<tesk::AlreadyExistsException>("driver already exists"));
    EXPECT_EQ(manager->getDriverByName("kr62"), first);
    EXPECT_EQ(second.use_count(), 1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "driver 'kr62' already exists");
    EXPECT_EQ(log.lines()[0].priority, Poco::Message::PRIO_WARNING);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("driver-manager", &*manager));
}

TEST_F(DriverManagerTest, RefusesTheSameDriverASecondTime) {
    add(DriverInterface::VADU, -1);
    const auto driver = add(DriverInterface::PD5, 4);
    EXPECT_THROW(manager->addDriver(driver), tesk::AlreadyExistsException);
    EXPECT_EQ(driver.use_count(), 2);
}

TEST_F(DriverManagerTest, TakesAnotherDriverAfterARefusal) {
    const auto first = add(DriverInterface::KR62, -1);
    EXPECT_THROW(add(DriverInterface::KR62, -1), tesk::AlreadyExistsException);
    const auto special = add(DriverInterface::SPECIAL, -1);
    EXPECT_EQ(manager->getDriverByName("special"), special);
    EXPECT_EQ(manager->getDriverByName("kr62"), first);
}

TEST_F(DriverManagerTest, LogsOnlyWhatIsWanted) {
    {
        const CapturedLog warnings(Poco::Message::PRIO_WARNING);
        add(DriverInterface::VADU, -1);
        EXPECT_THAT(warnings.lines(), IsEmpty());
    }
    const CapturedLog errors(Poco::Message::PRIO_ERROR);
    EXPECT_THROW(add(DriverInterface::VADU, -1), tesk::AlreadyExistsException);
    EXPECT_THAT(errors.lines(), IsEmpty());
}

TEST_F(DriverManagerTest, SharesTheDriversUntilItGoes) {
    const auto driver = add(DriverInterface::VADU, -1);
    EXPECT_EQ(driver.use_count(), 2);
    manager.reset();
    EXPECT_EQ(driver.use_count(), 1);
}

TEST_F(DriverManagerTest, CallsNoOperationOfADriver) {
    const auto driver = add(DriverInterface::VADU, -1);
    manager->getDriverByName("vadu");
    EXPECT_THAT(driver->calls(), IsEmpty());
}

TEST_F(DriverManagerTest, ItsLoggerGoesWithIt) {
    const std::string name = loggerNameOf("driver-manager", &*manager);
    EXPECT_TRUE(loggerExists(name));
    manager.reset();
    EXPECT_FALSE(loggerExists(name));
}

}  // namespace
