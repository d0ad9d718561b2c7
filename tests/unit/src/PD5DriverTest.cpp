// SPDX-License-Identifier: MIT
#include "PD5Driver.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "CapturedLog.h"
#include "LoggerNames.h"
#include "RegisterTypes.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

std::string onExpander(const std::string& file) {
    return "/sys/kernel/pd5-1/" + file;
}

/// Expander 1, with six relays, two outputs, four inputs and three analogs.
class PD5DriverTest : public testing::Test {
 protected:
    PD5DriverTest() {
        writeFile(onExpander("info_io"), "relays 6\ninputs 4\noutputs 2\nanalogs 3\n");
        driver = std::make_unique<PD5Driver>(1);
    }

    ~PD5DriverTest() override { std::filesystem::remove_all("/sys/kernel"); }

    static void enable(int index, const std::string& text) {
        writeFile(onExpander("analogs/" + std::to_string(index) + "/enable"), text);
    }

    int analog(int value, int index = 2) const {
        return driver->convertValue(RegisterType::INPUT_ANALOG, value, index);
    }

    CapturedLog log;
    std::unique_ptr<PD5Driver> driver;
};

TEST_F(PD5DriverTest, IsNamedAfterItsExpander) {
    for (const int index : {0, 1, 4, 12}) {
        const std::string number = std::to_string(index);
        writeFile("/sys/kernel/pd5-" + number + "/info_io", "");
        const PD5Driver other(index);
        EXPECT_EQ(other.getName(), "pd5-" + number);
        EXPECT_EQ(other.getDriverId(), DriverInterface::PD5);
        EXPECT_EQ(other.getIndex(), index);
        EXPECT_TRUE(loggerExists(loggerNameOf("pd5-" + number + "-driver", &other)));
    }
    EXPECT_EQ(PD5Driver::PD5_BASE_PATH, "/sys/kernel/pd5");
}

TEST_F(PD5DriverTest, IsAvailableWhileThereIsADirectoryWithItsNumber) {
    EXPECT_TRUE(PD5Driver::driverIsAvailable(1));
    for (const int index : {0, 2, 11, -1}) {
        EXPECT_FALSE(PD5Driver::driverIsAvailable(index)) << index;
    }
    writeFile("/sys/kernel/pd5-2", "");
    EXPECT_FALSE(PD5Driver::driverIsAvailable(2));
    std::filesystem::create_directory("/sys/kernel/pd5-0");
    EXPECT_TRUE(PD5Driver::driverIsAvailable(0));
    std::filesystem::remove_all("/sys/kernel/pd5-1");
    EXPECT_FALSE(PD5Driver::driverIsAvailable(1));
}

TEST_F(PD5DriverTest, IsNotMadeWithoutItsExpander) {
    EXPECT_THAT([] { PD5Driver(2); },
                ThrowsMessage<tesk::NotFoundException>("file /sys/kernel/pd5-2/info_io not found"));
}

TEST_F(PD5DriverTest, ScalesAnAnalogInputThatIsEnabled) {
    enable(2, "1");
    EXPECT_EQ(analog(1000), 4137);
    EXPECT_EQ(analog(1), 4);
    EXPECT_EQ(analog(0), 0);
    EXPECT_EQ(analog(500000000), 2068499999);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Judged by exact integers: a result is the exact one without its fraction. Only where the exact
// one is whole (a raw value of whole thousands) may it be one less, for the double nearest to 4.137
// is a little below it. For which raw values it is was worked out apart from this program, with
// exact fractions that were rounded to the nearest double once; here is how many they are, and
// their sum.
TEST_F(PD5DriverTest, EveryRawValueComesOutAsTheProductInDoublePrecision) {
    enable(2, "1");
    int lowerCount = 0;
    std::int64_t lowerSum = 0;
    for (int raw = 0; raw <= 0xffff; ++raw) {
        const int exact = static_cast<int>(std::int64_t{raw} * 4137 / 1000);
        const int result = analog(raw);
        ASSERT_EQ(analog(-raw), -result) << raw;
        if (raw % 1000 == 0 && result == exact - 1) {
            ++lowerCount;
            lowerSum += raw;
            continue;
        }
        ASSERT_EQ(result, exact) << raw;
    }
    EXPECT_EQ(lowerCount, 56);
    EXPECT_EQ(lowerSum, 1920000);
}

TEST_F(PD5DriverTest, AResultBeyond32BitsIsTheNearestEnd) {
    enable(2, "1");
    // The last products within, and the first beyond.
    EXPECT_EQ(analog(519091041), 2147479636);
    EXPECT_EQ(analog(519092010), 2147483645);
    EXPECT_EQ(analog(519092011), MAX);
    EXPECT_EQ(analog(-519092010), -2147483645);
    EXPECT_EQ(analog(-519092011), MIN);
    EXPECT_EQ(analog(MAX), MAX);
    EXPECT_EQ(analog(MIN), MIN);
}

TEST_F(PD5DriverTest, AnAnalogInputThatIsNotEnabledIsZeroWithAWarning) {
    for (const char* text : {"0", "0\n", "", "off", "\n", "-0", "000"}) {
        enable(2, text);
        log.clear();
        EXPECT_EQ(analog(1000), 0) << text;
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1U) << text;
        EXPECT_EQ(lines[0].text, "analog '2' of type 'input_analog' is not enabled");
        EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_WARNING);
        EXPECT_EQ(lines[0].source, loggerNameOf("pd5-1-driver", driver.get()));
    }
}

TEST_F(PD5DriverTest, EveryNumberButZeroEnablesAnAnalogInput) {
    for (const char* text : {"1", "1\n", " 1", "2", "-1", "01", "+1", "99999999999999999999"}) {
        enable(2, text);
        EXPECT_EQ(analog(1000), 4137) << text;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PD5DriverTest, WhetherAnInputIsEnabledIsReadAnewEachTimeAndForEachInput) {
    enable(2, "1");
    enable(3, "0");
    EXPECT_EQ(analog(1000, 2), 4137);
    EXPECT_EQ(analog(1000, 3), 0);
    enable(2, "0");
    enable(3, "1");
    EXPECT_EQ(analog(1000, 2), 0);
    EXPECT_EQ(analog(1000, 3), 4137);
}

TEST_F(PD5DriverTest, AnAnalogInputWithoutItsEnableFileIsAnError) {
    for (const int index : {0, 2, 99, -1}) {
        EXPECT_THAT(
            [&] { analog(1000, index); },
            ThrowsMessage<tesk::InputOutputException>(
                "error opening file '" +
                onExpander("analogs/" + std::to_string(index) + "/enable") + "' for reading"));
    }
    // The driver itself adds nothing to what is wrong with the file.
    EXPECT_THAT(log.lines(), Each(Field(&CapturedLog::Line::source, "value-file")));
}

TEST_F(PD5DriverTest, AnotherBasePathIsCompletedByTheNumberForTheEnableFilesToo) {
    driver->setBasePath("/tmp/x");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 6), "/tmp/x-1/relays/6/value");
    EXPECT_EQ(driver->getIOFileName(RegisterType::ENABLE_ANALOG, 0), "/tmp/x-1/analogs/0/enable");
    enable(2, "0");
    writeFile("/tmp/x-1/analogs/2/enable", "1");
    EXPECT_EQ(analog(1000), 4137);
    std::filesystem::remove_all("/tmp/x-1");
}

TEST_F(PD5DriverTest, ReadsFromSeveralThreadsAtOnce) {
    enable(2, "1");
    enable(3, "0");
    const auto readAll = [this] {
        for (int round = 0; round < 200; ++round) {
            EXPECT_EQ(analog(1000, 2), 4137);
            EXPECT_EQ(analog(1000, 3), 0);
            EXPECT_FALSE(driver->isValueValid(RegisterType::RELAY, 2));
            EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), onExpander("relays/1/value"));
        }
    };
    std::thread other(readAll);
    readAll();
    other.join();
}

TEST_F(PD5DriverTest, ABoardThatIsNotThereHasTheCountsThatAreGiven) {
    InfoIo counts;
    counts.relays = 3;
    counts.inputs = 5;
    counts.analogs = 7;
    const PD5Driver absent(4, counts);
    EXPECT_EQ(absent.getName(), "pd5-4");
    EXPECT_EQ(absent.getRelaysCount(), 3);
    EXPECT_EQ(absent.getDigitalInputsCount(), 5);
    EXPECT_EQ(absent.getAnalogInputsCount(), 7);
    EXPECT_EQ(absent.getIOFileName(RegisterType::RELAY, 3), "/sys/kernel/pd5-4/relays/3/value");
    EXPECT_THROW(absent.getIOFileName(RegisterType::RELAY, 4), tesk::InvalidArgumentsException);
}

TEST_F(PD5DriverTest, TellsWhichTypesAreWatched) {
    std::vector<RegisterType> watched;
    for (const RegisterType type : allTypes()) {
        if (PD5Driver::isWatched(type)) {
            watched.push_back(type);
        }
    }
    EXPECT_THAT(watched, testing::ElementsAre(RegisterType::RELAY, RegisterType::INPUT_DIGITAL));
}

}  // namespace
