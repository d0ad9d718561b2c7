// SPDX-License-Identifier: MIT
#include "GpioRegister.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "LoggerNames.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

/// A register at address 12 for line 3 of a chip.
class GpioRegisterTest : public testing::Test {
 protected:
    GpioRegister& makeRegister(unsigned int size = 1,
                               const std::function<void(Register*)>& onChange = {}) {
        reg.emplace(12, RegisterType::RTS, 3, size, driver, onChange);
        driver->forgetCalls();
        log.clear();
        return *reg;
    }

    /// What the base class keeps in memory.
    int storedValue() { return reg->Register::readValue(); }

    CapturedLog log;
    std::shared_ptr<FakeDriver> driver = std::make_shared<FakeDriver>(DriverInterface::GPIOCHIP, 0);
    std::optional<GpioRegister> reg;
};

TEST_F(GpioRegisterTest, OnlyConfiguresTheLineWhenItIsMade) {
    const GpioRegister made(12, RegisterType::CTS, 3, 1, driver, {});
    EXPECT_THAT(driver->calls(), ElementsAre("configureIO(cts, 3)"));
    EXPECT_EQ(made.toString(), "address 12, type 'cts', index '3', max value '1'");
}

TEST_F(GpioRegisterTest, IsNotMadeWhenTheDriverCannotConfigureTheLine) {
    const auto loggers = loggerNames();
    driver->onConfigure = [](RegisterType, int) {
        throw tesk::UnsupportedException("type 'relay' not supported");
    };
    EXPECT_THAT([this] { GpioRegister(12, RegisterType::RELAY, 3, 1, driver, {}); },
                ThrowsMessage<tesk::UnsupportedException>("type 'relay' not supported"));
    EXPECT_EQ(driver.use_count(), 1);
    EXPECT_EQ(loggerNames(), loggers);
}

TEST_F(GpioRegisterTest, SharesTheDriverUntilItGoes) {
    makeRegister();
    EXPECT_EQ(driver.use_count(), 2);
    reg.reset();
    EXPECT_EQ(driver.use_count(), 1);
}

TEST_F(GpioRegisterTest, AnEdgeCallsTheCallbackOnceWithTheRegister) {
    std::vector<Register*> changed;
    makeRegister(1, [&changed](Register* r) { changed.push_back(r); });
    driver->notifications().front()(77);
    EXPECT_THAT(changed, ElementsAre(&*reg));
    EXPECT_THAT(driver->calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(GpioRegisterTest, TheNotificationKeepsACopyOfTheCallback) {
    int changes = 0;
    std::function<void(Register*)> onChange = [&changes](Register*) { ++changes; };
    makeRegister(1, onChange);
    onChange = nullptr;
    driver->notifications().front()(0);
    EXPECT_EQ(changes, 1);
}

TEST_F(GpioRegisterTest, AnEdgeWithoutACallbackIsABadFunctionCall) {
    makeRegister();
    EXPECT_THROW(driver->notifications().front()(0), std::bad_function_call);
}

TEST_F(GpioRegisterTest, AWriteDoesNotCallTheCallback) {
    int changes = 0;
    makeRegister(1, [&changes](Register*) { ++changes; }).writeValue(1);
    EXPECT_EQ(changes, 0);
}

TEST_F(GpioRegisterTest, ReadsTheLevelFromTheDriver) {
    driver->convert = [](RegisterType, int, int) { return 1; };
    EXPECT_EQ(makeRegister().readValue(), 1);
    EXPECT_THAT(driver->calls(), ElementsAre("convertValue(rts, 0, 3)"));
}

TEST_F(GpioRegisterTest, LogsAReadAtInformation) {
    driver->convert = [](RegisterType, int, int) { return 1; };
    makeRegister().readValue();
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "read value for address 12 -> 1");
    EXPECT_EQ(log.lines()[0].priority, Poco::Message::PRIO_INFORMATION);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("register-12", &*reg));
}

TEST_F(GpioRegisterTest, LogsNothingWhenInformationIsNotWanted) {
    const CapturedLog quiet(Poco::Message::PRIO_NOTICE);
    makeRegister().writeValue(1);
    reg->readValue();
    EXPECT_THAT(quiet.lines(), IsEmpty());
}

TEST_F(GpioRegisterTest, WritingAsksTheDriverThenStoresThenSetsTheLine) {
    makeRegister();
    driver->accept = [this](RegisterType, int) {
        EXPECT_EQ(storedValue(), 0) << "stored before the driver was asked";
        EXPECT_THAT(log.linesWithText("write address 12, value 1"), IsEmpty());
        return true;
    };
    driver->write = [this](RegisterType, int, int) {
        EXPECT_EQ(storedValue(), 1) << "the line was set before the value was stored";
        EXPECT_EQ(log.linesWithText("write address 12, value 1").size(), 1U);
    };
    reg->writeValue(1);
    EXPECT_THAT(driver->calls(),
                ElementsAre("isValueValid(rts, 1)", "specificWriteValue(rts, 1, 3)"));
    EXPECT_EQ(storedValue(), 1);
}

TEST_F(GpioRegisterTest, LogsAWriteAtInformation) {
    makeRegister().writeValue(1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "write address 12, value 1");
    EXPECT_EQ(log.lines()[0].priority, Poco::Message::PRIO_INFORMATION);
}

TEST_F(GpioRegisterTest, AReadAfterAWriteGivesTheLinesLevelNotTheStoredValue) {
    makeRegister().writeValue(1);
    driver->convert = [](RegisterType, int, int) { return 0; };
    EXPECT_EQ(reg->readValue(), 0);
    EXPECT_EQ(storedValue(), 1);
}

TEST_F(GpioRegisterTest, AValueThatTheDriverRefusesIsNeitherStoredNorLogged) {
    makeRegister(8).writeValue(1);
    driver->forgetCalls();
    log.clear();
    driver->accept = [](RegisterType, int) { return false; };
    EXPECT_THAT([this] { reg->writeValue(2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                    "value 2 is invalid for address 12"));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(rts, 2)"));
    EXPECT_EQ(storedValue(), 1);
}

TEST_F(GpioRegisterTest, TheDriversRefusalComesBeforeTheLimit) {
    makeRegister(1);
    driver->accept = [](RegisterType, int) { return false; };
    EXPECT_THAT([this] { reg->writeValue(-2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                     "value -2 is invalid for address 12"));
}

TEST_F(GpioRegisterTest, AValueAboveTheLimitDoesNotReachTheLine) {
    makeRegister(1);
    EXPECT_THAT([this] { reg->writeValue(2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                    "value 2 is higher than max value 1"));
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(rts, 2)"));
    EXPECT_EQ(storedValue(), 0);
}

TEST_F(GpioRegisterTest, WhatTheDriversCheckThrowsPassesOutAndNothingIsStored) {
    makeRegister();
    driver->accept = [](RegisterType, int) -> bool {
        throw tesk::UnsupportedException("write not supported for IO type cts");
    };
    EXPECT_THAT([this] { reg->writeValue(1); },
                ThrowsMessage<tesk::UnsupportedException>("write not supported for IO type cts"));
    EXPECT_EQ(storedValue(), 0);
}

TEST_F(GpioRegisterTest, WhatTheDriversWriteThrowsPassesOutAfterTheValueIsStored) {
    makeRegister();
    driver->write = [](RegisterType, int, int) { throw std::domain_error("line is gone"); };
    EXPECT_THAT([this] { reg->writeValue(1); }, ThrowsMessage<std::domain_error>("line is gone"));
    EXPECT_EQ(storedValue(), 1);
}

TEST_F(GpioRegisterTest, ItsLoggerGoesWithIt) {
    makeRegister();
    const std::string name = loggerNameOf("register-12", &*reg);
    EXPECT_TRUE(loggerExists(name));
    reg.reset();
    EXPECT_FALSE(loggerExists(name));
}

}  // namespace
