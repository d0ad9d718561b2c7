// SPDX-License-Identifier: MIT
#include "FileRegister.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "HostSysfs.h"
#include "LoggerNames.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

/// A register at address 12 for IO 3 of a driver that names the file "value".
class FileRegisterTest : public testing::Test {
 protected:
    FileRegisterTest() {
        driver->fileName = [this](RegisterType, int) { return path; };
    }

    FileRegister& makeRegister(unsigned int size = 8,
                               const std::function<void(Register*)>& onChange = {}) {
        reg.emplace(12, RegisterType::RELAY, 3, size, driver, onChange);
        driver->forgetCalls();
        log.clear();
        return *reg;
    }

    /// What the base class keeps in memory.
    int storedValue() { return reg->Register::readValue(); }

    CapturedLog log;
    TemporaryDirectory directory;
    std::string path = directory.path() / "value";
    std::shared_ptr<FakeDriver> driver = std::make_shared<FakeDriver>();
    std::optional<FileRegister> reg;
};

TEST_F(FileRegisterTest, AsksForTheFileNameBeforeItConfiguresTheIo) {
    const FileRegister made(12, RegisterType::RELAY, 3, 1, driver, {});
    EXPECT_THAT(driver->calls(), ElementsAre("getIOFileName(relay, 3)", "configureIO(relay, 3)"));
    EXPECT_EQ(made.toString(), "address 12, type 'relay', index '3', max value '1'");
}

TEST_F(FileRegisterTest, IsNotMadeAndNotConfiguredWhenTheDriverHasNoFileName) {
    const auto loggers = loggerNames();
    driver->fileName = [](RegisterType, int) -> std::string {
        throw tesk::UnsupportedException("type 'relay' not supported");
    };
    EXPECT_THAT([this] { FileRegister(12, RegisterType::RELAY, 3, 1, driver, {}); },
                ThrowsMessage<tesk::UnsupportedException>("type 'relay' not supported"));
    EXPECT_THAT(driver->calls(), ElementsAre("getIOFileName(relay, 3)"));
    EXPECT_EQ(driver.use_count(), 1);
    EXPECT_EQ(loggerNames(), loggers);
}

TEST_F(FileRegisterTest, IsNotMadeWhenTheDriverCannotConfigureTheIo) {
    const auto loggers = loggerNames();
    driver->onConfigure = [](RegisterType, int) {
        throw tesk::InvalidArgumentsException("invalid index");
    };
    EXPECT_THAT([this] { FileRegister(12, RegisterType::RELAY, 3, 1, driver, {}); },
                ThrowsMessage<tesk::InvalidArgumentsException>("invalid index"));
    EXPECT_EQ(driver.use_count(), 1);
    EXPECT_EQ(loggerNames(), loggers);
}

TEST_F(FileRegisterTest, KeepsAnAttributeOfSysfsOpenUntilItGoes) {
    path = integerAttributes().at(0);
    const std::string text = readFile(path);
    const int value = makeRegister(32).readValue();
    EXPECT_EQ(value, std::stoi(text));
    ASSERT_EQ(openAttributes().size(), 1);
    EXPECT_EQ(openAttributes().front().path, path);
    EXPECT_EQ(reg->readValue(), value);
    EXPECT_EQ(openAttributes().size(), 1);
    reg.reset();
    EXPECT_THAT(openAttributes(), IsEmpty());
}

TEST_F(FileRegisterTest, SharesTheDriverUntilItGoes) {
    makeRegister();
    EXPECT_EQ(driver.use_count(), 2);
    reg.reset();
    EXPECT_EQ(driver.use_count(), 1);
}

TEST_F(FileRegisterTest, DoesNotTakeBackTheNotificationWhenItGoes) {
    makeRegister();
    reg.reset();
    EXPECT_THAT(driver->calls(), IsEmpty());
    EXPECT_EQ(driver->notifications().size(), 1U);
}

TEST_F(FileRegisterTest, ANotificationCallsTheCallbackWithTheRegister) {
    std::vector<Register*> changed;
    makeRegister(8, [&changed](Register* r) { changed.push_back(r); });
    EXPECT_THAT(changed, IsEmpty());
    driver->notifications().front()(77);
    driver->notifications().front()(-1);
    EXPECT_THAT(changed, ElementsAre(&*reg, &*reg));
    EXPECT_THAT(driver->calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileRegisterTest, TheNotificationKeepsACopyOfTheCallback) {
    int changes = 0;
    std::function<void(Register*)> onChange = [&changes](Register*) { ++changes; };
    makeRegister(8, onChange);
    onChange = nullptr;
    driver->notifications().front()(0);
    EXPECT_EQ(changes, 1);
}

TEST_F(FileRegisterTest, ANotificationWithoutACallbackIsABadFunctionCall) {
    makeRegister();
    EXPECT_THROW(driver->notifications().front()(0), std::bad_function_call);
}

TEST_F(FileRegisterTest, AWriteDoesNotCallTheCallback) {
    directory.file("value", "0");
    int changes = 0;
    makeRegister(8, [&changes](Register*) { ++changes; }).writeValue(1);
    EXPECT_EQ(changes, 0);
}

TEST_F(FileRegisterTest, ReadsTheFileAndHasTheDriverConvertItsNumber) {
    directory.file("value", "17\n");
    driver->convert = [](RegisterType, int value, int) { return value * 100; };
    EXPECT_EQ(makeRegister().readValue(), 1700);
    EXPECT_THAT(driver->calls(), ElementsAre("convertValue(relay, 17, 3)"));
}

TEST_F(FileRegisterTest, EveryReadLooksAtTheFileAnewButTheNameIsAskedForOnce) {
    directory.file("value", "1");
    makeRegister();
    EXPECT_EQ(reg->readValue(), 1);
    directory.file("value", "-2");
    EXPECT_EQ(reg->readValue(), -2);
    EXPECT_THAT(driver->calls(),
                ElementsAre("convertValue(relay, 1, 3)", "convertValue(relay, -2, 3)"));
}

TEST_F(FileRegisterTest, AFileThatHoldsNoNumberReadsAsZero) {
    makeRegister();
    for (const char* text : {"", "abc", "\n", "-", " x7"}) {
        directory.file("value", text);
        EXPECT_EQ(reg->readValue(), 0) << "text '" << text << "'";
    }
}

TEST_F(FileRegisterTest, WithoutAFileNameReadsTheConversionOfZero) {
    path.clear();
    driver->convert = [](RegisterType, int value, int index) { return value + 40 + index; };
    EXPECT_EQ(makeRegister().readValue(), 43);
    EXPECT_THAT(driver->calls(), ElementsAre("convertValue(relay, 0, 3)"));
}

TEST_F(FileRegisterTest, ALimitDoesNotApplyToWhatIsRead) {
    directory.file("value", "4096");
    EXPECT_EQ(makeRegister(1).readValue(), 4096);
}

TEST_F(FileRegisterTest, LogsTheConvertedValueAtInformation) {
    directory.file("value", "17");
    driver->convert = [](RegisterType, int value, int) { return -value; };
    makeRegister().readValue();
    const auto lines = log.linesWithText("read value for address 12 -> -17");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_INFORMATION);
    EXPECT_EQ(lines[0].source, loggerNameOf("register-12", &*reg));
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(FileRegisterTest, LogsNothingWhenInformationIsNotWanted) {
    const CapturedLog quiet(Poco::Message::PRIO_NOTICE);
    directory.file("value", "17");
    makeRegister();
    reg->writeValue(5);
    EXPECT_EQ(reg->readValue(), 5);
    EXPECT_THAT(quiet.lines(), IsEmpty());
}

TEST_F(FileRegisterTest, AReadDoesNotTouchTheStoredValue) {
    directory.file("value", "0");
    makeRegister().writeValue(5);
    directory.file("value", "9");
    EXPECT_EQ(reg->readValue(), 9);
    EXPECT_EQ(storedValue(), 5);
}

TEST_F(FileRegisterTest, AMissingFileCannotBeReadAndIsNotConverted) {
    makeRegister();
    EXPECT_THAT([this] { reg->readValue(); }, ThrowsMessage<tesk::InputOutputException>(
                                                  "error opening file '" + path + "' for reading"));
    EXPECT_THAT(driver->calls(), IsEmpty());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text,
              "file '" + path + "' cannot be opened for reading: No such file or directory");
}

TEST_F(FileRegisterTest, WhatTheConversionThrowsPassesOutWithoutALogLine) {
    directory.file("value", "1");
    driver->convert = [](RegisterType, int, int) -> int {
        throw tesk::InputOutputException("no multiplier");
    };
    makeRegister();
    EXPECT_THAT([this] { reg->readValue(); },
                ThrowsMessage<tesk::InputOutputException>("no multiplier"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileRegisterTest, WritesTheDigitsAndNothingElse) {
    directory.file("value", "12345\n");
    makeRegister().writeValue(5);
    EXPECT_EQ(readFile(path), "5");
    EXPECT_EQ(storedValue(), 5);
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(relay, 5)"));
}

TEST_F(FileRegisterTest, WritesANegativeValueWithItsSign) {
    directory.file("value", "");
    makeRegister(32).writeValue(-1);
    EXPECT_EQ(readFile(path), "-1");
    reg->writeValue(std::numeric_limits<int>::min());
    EXPECT_EQ(readFile(path), "-2147483648");
}

TEST_F(FileRegisterTest, LogsAWriteAtInformation) {
    directory.file("value", "");
    makeRegister().writeValue(5);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "write address 12, value 5");
    EXPECT_EQ(log.lines()[0].priority, Poco::Message::PRIO_INFORMATION);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("register-12", &*reg));
}

TEST_F(FileRegisterTest, WithoutAFileNameHandsTheValueToTheDriverBeforeTheIndex) {
    path.clear();
    makeRegister().writeValue(5);
    EXPECT_THAT(driver->calls(),
                ElementsAre("isValueValid(relay, 5)", "specificWriteValue(relay, 5, 3)"));
}

TEST_F(FileRegisterTest, AValueAboveTheLimitDoesNotReachTheDriver) {
    directory.file("value", "7");
    makeRegister(1);
    EXPECT_THAT([this] { reg->writeValue(2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                    "value 2 is higher than max value 1"));
    EXPECT_THAT(driver->calls(), IsEmpty());
    EXPECT_EQ(storedValue(), 0);
    EXPECT_EQ(readFile(path), "7");
}

TEST_F(FileRegisterTest, AValueThatTheDriverRefusesIsStoredAndLoggedButNotWritten) {
    directory.file("value", "7");
    makeRegister(32);
    driver->accept = [this](RegisterType, int value) {
        EXPECT_EQ(storedValue(), value) << "the driver was asked before the value was stored";
        EXPECT_EQ(log.linesWithText("write address 12, value -4").size(), 1U);
        return false;
    };
    EXPECT_THAT([this] { reg->writeValue(-4); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                     "value -4 is invalid for address 12"));
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(relay, -4)"));
    EXPECT_EQ(storedValue(), -4);
    EXPECT_EQ(readFile(path), "7");
}

TEST_F(FileRegisterTest, WithoutAFileNameARefusedValueDoesNotReachTheDriversWrite) {
    path.clear();
    makeRegister();
    driver->accept = [](RegisterType, int) { return false; };
    EXPECT_THROW(reg->writeValue(4), tesk::InvalidArgumentsException);
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(relay, 4)"));
    EXPECT_EQ(storedValue(), 4);
}

TEST_F(FileRegisterTest, WhatTheDriversCheckThrowsPassesOutAfterTheValueIsStored) {
    directory.file("value", "7");
    makeRegister();
    driver->accept = [](RegisterType, int) -> bool {
        throw tesk::UnsupportedException("write not supported");
    };
    EXPECT_THAT([this] { reg->writeValue(4); },
                ThrowsMessage<tesk::UnsupportedException>("write not supported"));
    EXPECT_EQ(storedValue(), 4);
    EXPECT_EQ(readFile(path), "7");
}

TEST_F(FileRegisterTest, WhatTheDriversWriteThrowsPassesOut) {
    path.clear();
    makeRegister();
    driver->write = [](RegisterType, int, int) { throw std::domain_error("line is gone"); };
    EXPECT_THAT([this] { reg->writeValue(4); }, ThrowsMessage<std::domain_error>("line is gone"));
}

TEST_F(FileRegisterTest, AMissingFileIsNotWrittenAndNotCreated) {
    makeRegister();
    EXPECT_THAT(
        [this] { reg->writeValue(4); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for writing"));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(driver->calls(), ElementsAre("isValueValid(relay, 4)"));
    EXPECT_EQ(storedValue(), 4);
}

TEST_F(FileRegisterTest, ItsLoggerGoesWithIt) {
    makeRegister();
    const std::string name = loggerNameOf("register-12", &*reg);
    EXPECT_TRUE(loggerExists(name));
    reg.reset();
    EXPECT_FALSE(loggerExists(name));
}

}  // namespace
