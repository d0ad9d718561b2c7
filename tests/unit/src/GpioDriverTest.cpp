// SPDX-License-Identifier: MIT
#include "GpioDriver.h"

#include <Poco/ConsoleChannel.h>
#include <Poco/Logger.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "CallbackRecord.h"
#include "CapturedLog.h"
#include "Deadline.h"
#include "FakeGpiod.h"
#include "FileNotify.h"
#include "GpioRegister.h"
#include "LoggerNames.h"
#include "NotifierAsleep.h"
#include "RegisterTypes.h"
#include "TemporaryDirectory.h"
#include "daemon/DescriptorLimit.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::Property;
using testing::Throws;
using testing::ThrowsMessage;

constexpr auto INFORMATION = Poco::Message::PRIO_INFORMATION;
constexpr auto WARNING = Poco::Message::PRIO_WARNING;
constexpr auto ERROR = Poco::Message::PRIO_ERROR;

constexpr const char* CHIP = "gpiochip0";
constexpr unsigned RTS_LINE = 200;
constexpr unsigned CTS_LINE = 201;
constexpr int LOW = 0;
constexpr int HIGH = 1;
constexpr int LOWEST_DESCRIPTOR = 4096;
constexpr const char* ADDED = "file added to monitor list with fd ";

/// The types that a register may have, and some numbers that are none, without those served.
std::vector<RegisterType> otherTypes() {
    std::vector<RegisterType> types;
    for (const RegisterType type : allTypes()) {
        if (type != RegisterType::RTS && type != RegisterType::CTS) {
            types.push_back(type);
        }
    }
    return types;
}

auto systemError(int error) {
    return Throws<std::system_error>(
        Property(&std::system_error::code, std::error_code(error, std::system_category())));
}

/// Leaves this process without descriptors from a number on while it lives.
class DescriptorsBelow {
 public:
    explicit DescriptorsBelow(rlim_t count) {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit limit{count, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorsBelow() { setrlimit(RLIMIT_NOFILE, &before); }
    DescriptorsBelow(const DescriptorsBelow&) = delete;
    DescriptorsBelow& operator=(const DescriptorsBelow&) = delete;

 private:
    rlimit before{};
};

class GpioDriverTest : public testing::Test {
 protected:
    GpioDriverTest() {
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        raiseDescriptorLimit();
        driver = std::make_unique<GpioDriver>(0);
    }

    ~GpioDriverTest() override {
        driver.reset();
        if (isWatching) {
            untilNotifierSleeps(log);
        }
    }

    void configureRts(int index = 1) { driver->configureIO(RegisterType::RTS, index, nullptr); }

    void configureCts(int index, std::function<void(int)> callback) {
        isWatching = true;
        driver->configureIO(RegisterType::CTS, index, std::move(callback));
    }

    /// The descriptors that the notifier was given, in order.
    std::vector<int> watchedDescriptors() const {
        std::vector<int> result;
        for (const std::string& text : log.texts(INFORMATION)) {
            if (text.rfind(ADDED, 0) == 0) {
                result.push_back(std::stoi(text.substr(std::string(ADDED).size())));
            }
        }
        return result;
    }

    std::vector<std::string> driverLines(Poco::Message::Priority priority) const {
        std::vector<std::string> result;
        for (const auto& line : log.lines()) {
            if (line.priority == priority && line.source.rfind("gpiochip-0-driver.", 0) == 0) {
                result.push_back(line.text);
            }
        }
        return result;
    }

    int ctsValue() const { return driver->convertValue(RegisterType::CTS, 7, 1); }
    int rtsValue() const { return driver->convertValue(RegisterType::RTS, 7, 1); }
    /// Whether the line of CTS is let go in time.
    bool ctsBecomesFree() const {
        const Deadline deadline;
        while (!gpiod.isFree(CHIP, CTS_LINE) && !deadline.passed()) {
            std::this_thread::yield();
        }
        return gpiod.isFree(CHIP, CTS_LINE);
    }

    void driveCts(int level) { gpiod.drive(CHIP, CTS_LINE, level); }

    CapturedLog log;
    FakeGpiod gpiod;
    std::unique_ptr<GpioDriver> driver;
    bool isWatching{false};
};

TEST_F(GpioDriverTest, IsNamedAfterItsChip) {
    const GpioDriver third(3);
    EXPECT_EQ(third.getName(), "gpiochip-3");
    EXPECT_EQ(third.getDriverId(), DriverInterface::GPIOCHIP);
    EXPECT_EQ(third.getIndex(), 3);
    EXPECT_TRUE(loggerExists(loggerNameOf("gpiochip-3-driver", &third)));
}

TEST_F(GpioDriverTest, OpensTheChipWithItsNumber) {
    { const GpioDriver third(3); }
    EXPECT_THAT(gpiod.calls(), ElementsAre("open gpiochip0", "open gpiochip3", "close gpiochip3"));
}

TEST_F(GpioDriverTest, IsNotMadeWithoutTheChip) {
    const auto loggers = loggerNames();
    for (const int error : {ENOENT, EACCES}) {
        gpiod.fail("open", error);
        EXPECT_THAT([] { GpioDriver(1); }, systemError(error));
    }
    EXPECT_EQ(loggerNames(), loggers);
}

TEST_F(GpioDriverTest, HasNoIosToCount) {
    EXPECT_EQ(driver->getSerialPortsCount(), 0);
    EXPECT_EQ(driver->getRelaysCount(), 0);
    EXPECT_EQ(driver->getDigitalOutputsCount(), 0);
    EXPECT_EQ(driver->getDigitalInputsCount(), 0);
    EXPECT_EQ(driver->getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver->getAnalogInputsCount(), 0);
}

TEST_F(GpioDriverTest, RequestsTheLinesAsTheyAreWired) {
    configureRts();
    configureCts(1, CallbackRecord().callback());
    EXPECT_THAT(gpiod.calls(),
                ElementsAre("open gpiochip0",
                            "request gpiochip0 200: type 3, flags 4, consumer rts, default 0",
                            "request gpiochip0 201: type 6, flags 4, consumer cts, default 0"));
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), HIGH) << "asserted from the start";
}

TEST_F(GpioDriverTest, TheIndexDoesNotChooseTheLine) {
    configureRts(17);
    configureCts(-3, CallbackRecord().callback());
    EXPECT_FALSE(gpiod.isFree(CHIP, RTS_LINE));
    EXPECT_FALSE(gpiod.isFree(CHIP, CTS_LINE));
    EXPECT_EQ(driver->convertValue(RegisterType::RTS, 7, 17), 0);
    driveCts(LOW);
    EXPECT_EQ(driver->convertValue(RegisterType::CTS, 7, -3), 1);
}

TEST_F(GpioDriverTest, HasNoFiles) {
    EXPECT_EQ(driver->getIOFileName(RegisterType::RTS, 1), "");
    EXPECT_EQ(driver->getIOFileName(RegisterType::CTS, 99), "");
}

TEST_F(GpioDriverTest, ServesNoOtherTypes) {
    for (const RegisterType type : otherTypes()) {
        const auto refusal = ThrowsMessage<tesk::UnsupportedException>(
            "type '" + getTypeName(type) + "' not supported");
        EXPECT_THAT([&] { driver->configureIO(type, 1, [](int) {}); }, refusal);
        EXPECT_THAT([&] { driver->getIOFileName(type, 1); }, refusal);
        EXPECT_THAT([&] { driver->isValueValid(type, 0); }, refusal);
        EXPECT_THAT([&] { driver->specificWriteValue(type, 0, 1); }, refusal);
        EXPECT_EQ(driver->convertValue(type, 7, 1), 7);
    }
    EXPECT_THAT(gpiod.calls(), ElementsAre("open gpiochip0"));
}

TEST_F(GpioDriverTest, RtsTakesZeroAndOne) {
    EXPECT_TRUE(driver->isValueValid(RegisterType::RTS, 0));
    EXPECT_TRUE(driver->isValueValid(RegisterType::RTS, 1));
    EXPECT_THAT(driverLines(ERROR), IsEmpty());
}

TEST_F(GpioDriverTest, RtsRefusesOtherValuesWithAnErrorLine) {
    for (const int value : {2, std::numeric_limits<int>::max(), -1}) {
        EXPECT_FALSE(driver->isValueValid(RegisterType::RTS, value));
    }
    EXPECT_THAT(driverLines(ERROR), ElementsAre("invalid value '2' for IO type rts",
                                                "invalid value '2147483647' for IO type rts",
                                                "invalid value '4294967295' for IO type rts"));
}

TEST_F(GpioDriverTest, CtsCannotBeWritten) {
    for (const int value : {0, 1, 2}) {
        EXPECT_THAT(
            [&] { driver->isValueValid(RegisterType::CTS, value); },
            ThrowsMessage<tesk::UnsupportedException>("write not supported for IO type cts"));
    }
    EXPECT_THAT([&] { driver->specificWriteValue(RegisterType::CTS, 1, 1); },
                ThrowsMessage<tesk::UnsupportedException>("type 'cts' not supported"));
}

TEST_F(GpioDriverTest, AWrittenOneAssertsRtsWhichIsLow) {
    configureRts();
    EXPECT_EQ(rtsValue(), 0);
    driver->specificWriteValue(RegisterType::RTS, 1, 1);
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), LOW);
    EXPECT_EQ(rtsValue(), 1);
    driver->specificWriteValue(RegisterType::RTS, 0, 1);
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), HIGH);
    EXPECT_EQ(rtsValue(), 0);
}

TEST_F(GpioDriverTest, ReadsCtsWhichIsAssertedWhenLow) {
    configureCts(1, CallbackRecord().callback());
    EXPECT_EQ(ctsValue(), 0);
    driveCts(LOW);
    EXPECT_EQ(ctsValue(), 1);
    driveCts(HIGH);
    EXPECT_EQ(ctsValue(), 0);
}

TEST_F(GpioDriverTest, WhatWasNotConfiguredReadsAsGivenAndIgnoresWrites) {
    EXPECT_EQ(rtsValue(), 7);
    EXPECT_EQ(ctsValue(), 7);
    configureRts(1);
    EXPECT_EQ(driver->convertValue(RegisterType::RTS, -5, 2), -5);
    EXPECT_EQ(driver->convertValue(RegisterType::CTS, 0, 1), 0);
    driver->specificWriteValue(RegisterType::RTS, 1, 2);
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), HIGH);
    EXPECT_EQ(gpiod.calls().size(), 2U) << "set";
}

TEST_F(GpioDriverTest, AChipServesOneRegisterOfEachType) {
    const CallbackRecord first;
    const CallbackRecord second;
    configureRts(1);
    configureCts(1, first.callback());
    EXPECT_THAT([this] { configureRts(2); }, systemError(EBUSY));
    EXPECT_THAT([&] { configureCts(2, second.callback()); }, systemError(EBUSY));
    EXPECT_EQ(driver->convertValue(RegisterType::RTS, 7, 2), 7);
    EXPECT_EQ(driver->convertValue(RegisterType::CTS, 7, 2), 7);
    driveCts(LOW);
    EXPECT_TRUE(first.reach(1));
    EXPECT_THAT(second.keys(), IsEmpty());
    EXPECT_EQ(watchedDescriptors().size(), 1U);
}

TEST_F(GpioDriverTest, EveryChipServesItsOwn) {
    const CallbackRecord here;
    const CallbackRecord there;
    GpioDriver other(1);
    configureCts(1, here.callback());
    other.configureIO(RegisterType::CTS, 1, there.callback());
    gpiod.drive("gpiochip1", CTS_LINE, LOW);
    EXPECT_TRUE(there.reach(1));
    EXPECT_THAT(here.keys(), IsEmpty());
    EXPECT_EQ(ctsValue(), 0);
    EXPECT_EQ(other.convertValue(RegisterType::CTS, 7, 1), 1);
}

TEST_F(GpioDriverTest, FailuresOfALineAreNotTranslated) {
    gpiod.fail("request", ENODEV);
    EXPECT_THAT([this] { configureRts(); }, systemError(ENODEV));
    EXPECT_THAT([this] { driver->configureIO(RegisterType::CTS, 1, [](int) {}); },
                systemError(ENODEV));
    EXPECT_EQ(rtsValue(), 7);
    gpiod.fail("request", 0);
    configureRts();
    gpiod.fail("get", EIO);
    gpiod.fail("set", ENODEV);
    EXPECT_THAT([this] { rtsValue(); }, systemError(EIO));
    EXPECT_THAT([this] { driver->specificWriteValue(RegisterType::RTS, 1, 1); },
                systemError(ENODEV));
}

TEST_F(GpioDriverTest, AChipWithTooFewLinesServesNeither) {
    gpiod.setLineCount(RTS_LINE);
    EXPECT_THROW(configureRts(), std::out_of_range);
    EXPECT_THROW(driver->configureIO(RegisterType::CTS, 1, [](int) {}), std::out_of_range);
    gpiod.setLineCount(CTS_LINE);
    EXPECT_NO_THROW(configureRts());
}

TEST_F(GpioDriverTest, RtsIsNotWatchedAndDropsItsCallback) {
    auto owned = std::make_shared<int>();
    driver->configureIO(RegisterType::RTS, 1, [owned](int) {});
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_THAT(watchedDescriptors(), IsEmpty());
}

TEST_F(GpioDriverTest, EachEdgeOfCtsIsOneCallWithTheValueAndOneLine) {
    const CallbackRecord calls;
    configureCts(1, calls.callback());
    for (const std::size_t pair : {0U, 1U}) {
        driveCts(LOW);
        ASSERT_TRUE(calls.reach(2 * pair + 1));
        driveCts(HIGH);
        ASSERT_TRUE(calls.reach(2 * pair + 2));
    }
    untilNotifierSleeps(log);
    EXPECT_THAT(calls.keys(), ElementsAre(1, 0, 1, 0));
    EXPECT_THAT(driverLines(INFORMATION), ElementsAre("gpio event: type 1, line 201, value 1",
                                                      "gpio event: type 2, line 201, value 0",
                                                      "gpio event: type 1, line 201, value 1",
                                                      "gpio event: type 2, line 201, value 0"));
}

TEST_F(GpioDriverTest, EdgesThatPileUpAreOneCallEachWithThePresentValue) {
    const CallbackRecord calls;
    // The table of watches is locked while this callback runs.
    std::promise<void> entered;
    std::promise<void> opened;
    const int event = eventfd(1, EFD_CLOEXEC);
    const int key = fcntl(event, F_DUPFD_CLOEXEC, 900);
    configureCts(1, calls.callback());
    FileNotify::getInstance()->enableNotifications(key, [&](int fd) {
        std::uint64_t taken = 0;
        EXPECT_EQ(read(fd, &taken, sizeof(taken)), static_cast<ssize_t>(sizeof(taken)));
        entered.set_value();
        opened.get_future().wait();
    });
    ASSERT_EQ(entered.get_future().wait_for(PATIENCE), std::future_status::ready);
    for (const int level : {LOW, HIGH, LOW}) {
        driveCts(level);
    }
    opened.set_value();
    EXPECT_TRUE(calls.reach(3));
    untilNotifierSleeps(log);
    EXPECT_THAT(calls.keys(), ElementsAre(1, 1, 1));
    EXPECT_THAT(driverLines(INFORMATION), ElementsAre("gpio event: type 1, line 201, value 1",
                                                      "gpio event: type 2, line 201, value 1",
                                                      "gpio event: type 1, line 201, value 1"));
    FileNotify::getInstance()->disableNotifications(key);
    close(key);
    close(event);
}

TEST_F(GpioDriverTest, ALevelThatStaysIsNoEdge) {
    const CallbackRecord calls;
    configureCts(1, calls.callback());
    driveCts(HIGH);
    driveCts(LOW);
    driveCts(LOW);
    ASSERT_TRUE(calls.reach(1));
    untilNotifierSleeps(log);
    EXPECT_THAT(calls.keys(), ElementsAre(1));
}

TEST_F(GpioDriverTest, TheNotifierGetsADescriptorOutOfReachOfTheKeysOfFiles) {
    configureCts(1, CallbackRecord().callback());
    const auto watched = watchedDescriptors();
    ASSERT_EQ(watched.size(), 1U);
    EXPECT_GE(watched[0], LOWEST_DESCRIPTOR);
    EXPECT_EQ(fcntl(watched[0], F_GETFD), FD_CLOEXEC);
    EXPECT_LT(gpiod.eventDescriptor(CHIP, CTS_LINE), LOWEST_DESCRIPTOR);
    EXPECT_THAT(driverLines(WARNING), IsEmpty());
}

TEST_F(GpioDriverTest, WhereTheLimitForbidsThatItGetsTheLinesOwnAndOneWarning) {
    const CallbackRecord calls;
    {
        const DescriptorsBelow limit(LOWEST_DESCRIPTOR);
        configureCts(1, calls.callback());
    }
    const int own = gpiod.eventDescriptor(CHIP, CTS_LINE);
    EXPECT_THAT(watchedDescriptors(), ElementsAre(own));
    EXPECT_THAT(driverLines(WARNING),
                ElementsAre("descriptor " + std::to_string(own) +
                            " of line 201 may be taken for a watched file: Invalid argument; "
                            "raise the limit of open files above 4096"));
    driveCts(LOW);
    EXPECT_TRUE(calls.reach(1));
}

TEST_F(GpioDriverTest, GoingItReleasesItsLinesInOrderAndClosesTheChip) {
    configureCts(1, CallbackRecord().callback());
    configureRts();
    driver.reset();
    const auto calls = gpiod.calls();
    ASSERT_EQ(calls.size(), 6U);
    EXPECT_EQ(calls[3], "release gpiochip0 201");
    EXPECT_EQ(calls[4], "release gpiochip0 200");
    EXPECT_EQ(calls[5], "close gpiochip0");
}

TEST_F(GpioDriverTest, GoingItReleasesNoLineThatIsNotRequestedAnyMore) {
    configureRts();
    gpiod.takeAway(CHIP, RTS_LINE);
    driver.reset();
    EXPECT_EQ(gpiod.calls().back(), "close gpiochip0");
    EXPECT_EQ(gpiod.calls().size(), 3U) << "released";
}

TEST_F(GpioDriverTest, GoneItHoldsNoLineThoughTheNotifierSleepsOn) {
    configureRts();
    configureCts(1, CallbackRecord().callback());
    untilNotifierSleeps(log);
    driver.reset();
    EXPECT_TRUE(gpiod.isFree(CHIP, RTS_LINE));
    EXPECT_TRUE(ctsBecomesFree());
    driver = std::make_unique<GpioDriver>(0);
    const CallbackRecord calls;
    configureCts(1, calls.callback());
    driveCts(LOW);
    EXPECT_TRUE(calls.reach(1));
}

TEST_F(GpioDriverTest, GoneItLeavesAWatchThatNeverFires) {
    const CallbackRecord calls;
    auto owned = std::make_shared<int>();
    configureCts(1, [owned, callback = calls.callback()](int value) { callback(value); });
    const int number = watchedDescriptors().at(0);
    driver.reset();
    EXPECT_EQ(owned.use_count(), 1) << "the callback was kept";
    driveCts(LOW);
    untilNotifierSleeps(log);
    const auto cycles = log.linesWithText("new poll cycle...").size();
    untilNotifierSleeps(log);
    EXPECT_LE(log.linesWithText("new poll cycle...").size(), cycles + 3) << "it spins";
    EXPECT_THAT(calls.keys(), IsEmpty());
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC) << "the number is free for another file";
    EXPECT_NO_THROW(FileNotify::getInstance()->disableNotifications(number));
}

TEST_F(GpioDriverTest, GoneItLeavesNoWatchOfANumberThatMayBeGivenToAnotherFile) {
    const CallbackRecord calls;
    {
        const DescriptorsBelow limit(LOWEST_DESCRIPTOR);
        configureCts(1, calls.callback());
    }
    const int own = gpiod.eventDescriptor(CHIP, CTS_LINE);
    driver.reset();
    untilNotifierSleeps(log);
    const int ready = eventfd(1, EFD_CLOEXEC);
    const int reused = dup2(ready, own);
    untilNotifierSleeps(log);
    EXPECT_THAT(calls.keys(), IsEmpty());
    EXPECT_THROW(FileNotify::getInstance()->disableNotifications(own), tesk::NotFoundException);
    close(reused);
    if (ready != reused) {
        close(ready);
    }
}

TEST_F(GpioDriverTest, GoneItTakesTheEndOfItsWatchBySomebodyElseWell) {
    {
        const DescriptorsBelow limit(LOWEST_DESCRIPTOR);
        configureCts(1, CallbackRecord().callback());
    }
    FileNotify::getInstance()->disableNotifications(watchedDescriptors().at(0));
    EXPECT_NO_THROW(driver.reset());
    untilNotifierSleeps(log);
    EXPECT_TRUE(ctsBecomesFree());
}

TEST_F(GpioDriverTest, MayGoAtAnyMomentWhileEdgesComeIn) {
    const CallbackRecord calls;
    std::atomic<bool> goesOn{true};
    std::thread edges([&] {
        while (goesOn) {
            driveCts(LOW);
            driveCts(HIGH);
            std::this_thread::yield();
        }
    });
    for (std::size_t round = 1; round <= 20; ++round) {
        auto alive = std::make_shared<std::atomic<bool>>(true);
        const auto before = calls.keys().size();
        configureCts(1, [alive, callback = calls.callback()](int value) {
            EXPECT_TRUE(*alive);
            callback(value);
        });
        EXPECT_TRUE(calls.reach(before + 1));
        driver.reset();
        *alive = false;
        EXPECT_TRUE(ctsBecomesFree());
        driver = std::make_unique<GpioDriver>(0);
    }
    goesOn = false;
    edges.join();
}

TEST_F(GpioDriverTest, AnEmptyCallbackEndsTheProcessAtTheFirstEdge) {
    EXPECT_EXIT(
        {
            configureCts(1, nullptr);
            driveCts(LOW);
            poll(nullptr, 0, Deadline().milliseconds());
        },
        KilledBySignal(SIGABRT), "std::bad_function_call");
}

TEST_F(GpioDriverTest, ALineThatCannotBeReadAtAnEdgeEndsTheProcessWithOneFatalLine) {
    for (const char* const call : {"read", "get"}) {
        EXPECT_EXIT(
            {
                Poco::Logger::root().setChannel(new Poco::ConsoleChannel(std::cerr));
                driver = std::make_unique<GpioDriver>(1);
                driver->configureIO(RegisterType::CTS, 1, CallbackRecord().callback());
                gpiod.fail(call, ENODEV);
                gpiod.drive("gpiochip1", CTS_LINE, LOW);
                poll(nullptr, 0, Deadline().milliseconds());
            },
            ExitedWithCode(1),
            "line 201 of gpiochip1 cannot be read at an edge: .*No such device\n$");
    }
}

TEST_F(GpioDriverTest, AnEdgeMayComeWhileFurtherLinesAreConfigured) {
    std::promise<void> searches;
    std::promise<void> hasSearched;
    std::atomic<bool> isConfigured{false};
    configureCts(1, [&](int /*value*/) {
        searches.set_value();
        const Deadline deadline;
        // The last search comes after the end of the configuration.
        for (bool isLast = false; !isLast && !deadline.passed();) {
            isLast = isConfigured;
            driver->convertValue(RegisterType::CTS, 7, 99);
        }
        hasSearched.set_value();
    });
    driveCts(LOW);
    searches.get_future().wait();
    configureRts();
    isConfigured = true;
    hasSearched.get_future().wait();
    EXPECT_EQ(rtsValue(), 0);
}

/// Watches as many files as the address range has registers, and CTS. The first failure, if any.
std::string notifyAll(bool filesFirst, GpioDriver& driver, FakeGpiod& gpiod) {
    constexpr std::size_t FILES = 1300;
    const TemporaryDirectory directory;
    FileNotify& notifier = *FileNotify::getInstance();
    std::vector<std::string> paths;
    std::vector<CallbackRecord> files(FILES);
    const CallbackRecord cts;
    const auto watchFiles = [&] {
        for (std::size_t i = 0; i < FILES; ++i) {
            paths.push_back(directory.file(std::to_string(i), "0"));
            notifier.enableNotifications(paths[i], files[i].callback());
        }
    };
    if (filesFirst) {
        watchFiles();
    }
    driver.configureIO(RegisterType::CTS, 1, cts.callback());
    if (!filesFirst) {
        watchFiles();
    }
    for (const std::string& path : paths) {
        const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (write(fd, "1", 1) != 1) {
            return "cannot modify " + path;
        }
        close(fd);
    }
    gpiod.drive(CHIP, CTS_LINE, LOW);
    if (!cts.reach(1)) {
        return "CTS does not notify";
    }
    for (std::size_t i = 0; i < FILES; ++i) {
        if (!files[i].reach(1)) {
            return "file " + std::to_string(i) + " does not notify";
        }
    }
    gpiod.drive(CHIP, CTS_LINE, HIGH);
    return cts.reach(2) ? "all notify" : "CTS does not notify again";
}

// In a process of their own, where the keys of files start at 1.

TEST_F(GpioDriverTest, ThirteenHundredFilesAndThenCtsAllNotify) {
    EXPECT_EXIT(
        {
            std::cerr << notifyAll(true, *driver, gpiod);
            _exit(0);
        },
        ExitedWithCode(0), "^all notify$");
}

TEST_F(GpioDriverTest, CtsAndThenThirteenHundredFilesAllNotify) {
    EXPECT_EXIT(
        {
            std::cerr << notifyAll(false, *driver, gpiod);
            _exit(0);
        },
        ExitedWithCode(0), "^all notify$");
}

TEST_F(GpioDriverTest, LogsOnlyWhatIsWanted) {
    const CallbackRecord calls;
    Poco::Logger::setLevel("", Poco::Message::PRIO_NOTICE);
    configureCts(1, calls.callback());
    driveCts(LOW);
    EXPECT_TRUE(calls.reach(1));
    Poco::Logger::setLevel("", Poco::Message::PRIO_FATAL);
    EXPECT_FALSE(driver->isValueValid(RegisterType::RTS, 2));
    EXPECT_THAT(driverLines(INFORMATION), IsEmpty());
    EXPECT_THAT(driverLines(ERROR), IsEmpty());
    Poco::Logger::setLevel("", Poco::Message::PRIO_TRACE);
}

TEST_F(GpioDriverTest, AnRtsRegisterWritesAndReadsTheLine) {
    const std::shared_ptr<DriverInterface> shared = std::move(driver);
    GpioRegister reg(10, RegisterType::RTS, 1, 8, shared, {});
    reg.writeValue(1);
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), LOW);
    gpiod.drive(CHIP, RTS_LINE, HIGH);
    EXPECT_EQ(reg.readValue(), 0) << "not the line";
    EXPECT_EQ(reg.Register::readValue(), 1);
    EXPECT_THAT([&] { reg.writeValue(2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                "value 2 is invalid for address 10"));
    EXPECT_EQ(reg.Register::readValue(), 1);
    EXPECT_EQ(gpiod.level(CHIP, RTS_LINE), HIGH);
}

TEST_F(GpioDriverTest, ACtsRegisterIsToldOfEachEdgeOnceAndCannotBeWritten) {
    isWatching = true;
    const std::shared_ptr<DriverInterface> shared = std::move(driver);
    const CallbackRecord calls;
    std::atomic<Register*> told{nullptr};
    GpioRegister reg(11, RegisterType::CTS, 1, 1, shared,
                     [&told, callback = calls.callback()](Register* changed) {
                         told = changed;
                         callback(changed->readValue());
                     });
    driveCts(LOW);
    ASSERT_TRUE(calls.reach(1));
    EXPECT_EQ(told, &reg);
    EXPECT_THAT([&] { reg.writeValue(1); },
                ThrowsMessage<tesk::UnsupportedException>("write not supported for IO type cts"));
    untilNotifierSleeps(log);
    EXPECT_THAT(calls.keys(), ElementsAre(1));
}

}  // namespace
