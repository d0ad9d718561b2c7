// SPDX-License-Identifier: MIT
#include "PD5Driver.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "Calls.h"
#include "CapturedLog.h"
#include "LoggerNames.h"
#include "NotifierAsleep.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

const std::set<RegisterType> SERVED{RegisterType::RELAY, RegisterType::INPUT_DIGITAL,
                                    RegisterType::INPUT_COUNTER, RegisterType::INPUT_ANALOG,
                                    RegisterType::ENABLE_ANALOG};
const std::set<RegisterType> WATCHED{RegisterType::RELAY, RegisterType::INPUT_DIGITAL};

/// The kinds that a register may have, and some numbers that are none.
std::vector<RegisterType> allTypes() {
    std::vector<RegisterType> types;
    for (int number = -1; number <= 31; ++number) {
        types.push_back(static_cast<RegisterType>(number));
    }
    return types;
}

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

    ~PD5DriverTest() override {
        std::filesystem::remove_all("/sys/kernel");
        if (isConfigured) {
            untilNotifierSleeps(log);
        }
    }

    void configure(RegisterType type, int index, const Calls& calls) {
        isConfigured = true;
        driver->configureIO(type, index, calls.callback());
    }

    static void enable(int index, const std::string& text) {
        writeFile(onExpander("analogs/" + std::to_string(index) + "/enable"), text);
    }

    int analog(int value, int index = 2) const {
        return driver->convertValue(RegisterType::INPUT_ANALOG, value, index);
    }

    CapturedLog log;
    std::unique_ptr<PD5Driver> driver;

 private:
    bool isConfigured{false};
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

TEST_F(PD5DriverTest, IsNotMadeWhenTheExpanderStatesANumberThatIsNone) {
    writeFile(onExpander("info_io"), "analogs many\n");
    EXPECT_THROW(PD5Driver(1), Poco::SyntaxException);
}

TEST_F(PD5DriverTest, HasTheCountsThatTheExpanderStatedAtFirst) {
    writeFile(onExpander("info_io"), "relays 9\n");
    EXPECT_EQ(driver->getRelaysCount(), 6);
    EXPECT_EQ(driver->getDigitalOutputsCount(), 2);
    EXPECT_EQ(driver->getDigitalInputsCount(), 4);
    EXPECT_EQ(driver->getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver->getAnalogInputsCount(), 3);
    EXPECT_EQ(driver->getSerialPortsCount(), 0);
}

TEST_F(PD5DriverTest, NamesTheFileOfAnIoUpToTheCountInclusive) {
    struct Row {
        RegisterType type;
        int count;
        std::string before;
        std::string behind;
    };
    const std::vector<Row> rows{
        {RegisterType::RELAY, 6, "relays/", "/value"},
        {RegisterType::INPUT_DIGITAL, 4, "inputs/", "/value"},
        {RegisterType::INPUT_COUNTER, 4, "inputs/", "/counter"},
        {RegisterType::INPUT_ANALOG, 3, "analogs/", "/value"},
        {RegisterType::ENABLE_ANALOG, 3, "analogs/", "/enable"},
    };
    for (const Row& row : rows) {
        for (int index = 0; index <= row.count; ++index) {
            EXPECT_EQ(driver->getIOFileName(row.type, index),
                      onExpander(row.before + std::to_string(index) + row.behind));
        }
        for (const int index : {row.count + 1, row.count + 2, -1, MIN, MAX}) {
            EXPECT_THAT([&] { return driver->getIOFileName(row.type, index); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                       std::to_string(index)))
                << getTypeName(row.type);
        }
    }
}

TEST_F(PD5DriverTest, ServesNoOtherKind) {
    for (const RegisterType type : allTypes()) {
        if (SERVED.count(type) == 0) {
            const std::string text = "type '" + getTypeName(type) + "' not supported";
            EXPECT_THAT([&] { return driver->getIOFileName(type, 0); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
            EXPECT_THAT([&] { return driver->isValueValid(type, 0); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PD5DriverTest, EveryKindButTheAnalogInputStaysAsItIs) {
    for (const RegisterType type : allTypes()) {
        if (type != RegisterType::INPUT_ANALOG) {
            for (const int value : {0, 1, 48312, -5, MIN, MAX}) {
                EXPECT_EQ(driver->convertValue(type, value, -1), value) << getTypeName(type);
            }
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
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
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PD5DriverTest, SwitchesTakeZeroAndOne) {
    for (const RegisterType type : {RegisterType::RELAY, RegisterType::ENABLE_ANALOG}) {
        log.clear();
        EXPECT_TRUE(driver->isValueValid(type, 0));
        EXPECT_TRUE(driver->isValueValid(type, 1));
        EXPECT_THAT(log.lines(), IsEmpty());
        EXPECT_FALSE(driver->isValueValid(type, 2));
        EXPECT_FALSE(driver->isValueValid(type, -1));
        EXPECT_FALSE(driver->isValueValid(type, MIN));
        const std::string behind = " for IO type " + getTypeName(type);
        EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR),
                    ElementsAre("invalid value '2'" + behind, "invalid value '4294967295'" + behind,
                                "invalid value '2147483648'" + behind));
        EXPECT_EQ(log.lines().size(), 3U);
    }
}

TEST_F(PD5DriverTest, CountersTakeEveryValue) {
    for (const int value : {0, 1, 65536, -1, MIN, MAX}) {
        EXPECT_TRUE(driver->isValueValid(RegisterType::INPUT_COUNTER, value));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PD5DriverTest, InputsCannotBeWritten) {
    for (const RegisterType type : {RegisterType::INPUT_DIGITAL, RegisterType::INPUT_ANALOG}) {
        for (const int value : {0, 1, -1}) {
            EXPECT_THAT([&] { driver->isValueValid(type, value); },
                        ThrowsMessage<tesk::UnsupportedException>(
                            "write not supported for IO type " + getTypeName(type)));
        }
    }
}

TEST_F(PD5DriverTest, AWatchedKindCallsBackWhenItsFileChanges) {
    const std::map<RegisterType, std::string> files{
        {RegisterType::RELAY, onExpander("relays/4/value")},
        {RegisterType::INPUT_DIGITAL, onExpander("inputs/4/value")},
    };
    for (const auto& [type, file] : files) {
        const Calls calls;
        writeFile(file, "");
        configure(type, 4, calls);
        writeFile(file, "1");
        EXPECT_TRUE(calls.reach(1)) << file;
    }
}

TEST_F(PD5DriverTest, ADigitalInputReportsBothEdges) {
    const Calls calls;
    writeFile(onExpander("inputs/3/value"), "0");
    writeFile(onExpander("inputs/3/edge"), "something longer\n");
    writeFile(onExpander("inputs/3/counter_edge"), "none");
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    EXPECT_EQ(readFile(onExpander("inputs/3/edge")), "both");
    EXPECT_EQ(readFile(onExpander("inputs/3/counter_edge")), "none");
}

TEST_F(PD5DriverTest, ARelayHasNoEdgesSet) {
    const Calls calls;
    writeFile(onExpander("relays/2/value"), "0");
    writeFile(onExpander("relays/2/edge"), "none");
    writeFile(onExpander("inputs/2/edge"), "none");
    configure(RegisterType::RELAY, 2, calls);
    EXPECT_EQ(readFile(onExpander("relays/2/edge")), "none");
    EXPECT_EQ(readFile(onExpander("inputs/2/edge")), "none");
}

TEST_F(PD5DriverTest, AMissingEdgeFileIsNotMadeAndTheInputWatchedAllTheSame) {
    const Calls calls;
    writeFile(onExpander("inputs/3/value"), "");
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onExpander("inputs/3/edge")));
    writeFile(onExpander("inputs/3/value"), "1");
    EXPECT_TRUE(calls.reach(1));
    configure(RegisterType::INPUT_COUNTER, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onExpander("inputs/3/counter_edge")));
}

TEST_F(PD5DriverTest, TheEdgeOfAnInputIsSetBeforeItsIndexIsChecked) {
    writeFile(onExpander("inputs/5/value"), "0");
    writeFile(onExpander("inputs/5/edge"), "none");
    EXPECT_THAT([&] { configure(RegisterType::INPUT_DIGITAL, 5, Calls()); },
                ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index 5"));
    EXPECT_EQ(readFile(onExpander("inputs/5/edge")), "both");
}

TEST_F(PD5DriverTest, AWatchedKindWithABadIndexOrWithoutItsFileCannotBeConfigured) {
    for (const RegisterType type : WATCHED) {
        for (const int index : {7, -1}) {
            EXPECT_THAT([&] { configure(type, index, Calls()); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                       std::to_string(index)));
        }
        EXPECT_THAT([&] { configure(type, 1, Calls()); },
                    ThrowsMessage<tesk::InputOutputException>(
                        "error enabling notification for file '" + driver->getIOFileName(type, 1) +
                        "': No such file or directory"));
    }
}

TEST_F(PD5DriverTest, ACounterCountsRisingEdgesAndIsNotWatched) {
    const Calls counter;
    const Calls relay;
    writeFile(onExpander("inputs/3/counter"), "");
    writeFile(onExpander("inputs/3/value"), "");
    writeFile(onExpander("inputs/3/edge"), "none");
    writeFile(onExpander("inputs/3/counter_edge"), "something longer\n");
    writeFile(onExpander("relays/1/value"), "");
    configure(RegisterType::INPUT_COUNTER, 3, counter);
    configure(RegisterType::RELAY, 1, relay);
    EXPECT_EQ(readFile(onExpander("inputs/3/counter_edge")), "rising");
    EXPECT_EQ(readFile(onExpander("inputs/3/edge")), "none");
    writeFile(onExpander("inputs/3/counter"), "17");
    writeFile(onExpander("inputs/3/value"), "1");
    // Changes are served in order.
    writeFile(onExpander("relays/1/value"), "1");
    ASSERT_TRUE(relay.reach(1));
    EXPECT_THAT(counter.keys(), IsEmpty());
}

TEST_F(PD5DriverTest, ConfiguringACounterChecksNoIndex) {
    writeFile(onExpander("inputs/99/counter_edge"), "none");
    configure(RegisterType::INPUT_COUNTER, 99, Calls());
    configure(RegisterType::INPUT_COUNTER, -1, Calls());
    EXPECT_EQ(readFile(onExpander("inputs/99/counter_edge")), "rising");
}

TEST_F(PD5DriverTest, OtherKindsNeedNoConfiguration) {
    const Calls calls;
    for (const RegisterType type : allTypes()) {
        if (WATCHED.count(type) == 0 && type != RegisterType::INPUT_COUNTER) {
            for (const int index : {-1, 1, 99}) {
                EXPECT_NO_THROW(driver->configureIO(type, index, calls.callback()))
                    << getTypeName(type);
            }
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PD5DriverTest, AnotherBasePathIsCompletedByTheNumberAndLeavesTheCounts) {
    driver->setBasePath("/tmp/x");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 6), "/tmp/x-1/relays/6/value");
    EXPECT_EQ(driver->getIOFileName(RegisterType::ENABLE_ANALOG, 0), "/tmp/x-1/analogs/0/enable");
    writeFile("/tmp/x-1/info_io", "relays 99\n");
    EXPECT_THROW(driver->getIOFileName(RegisterType::RELAY, 7), tesk::InvalidArgumentsException);
    EXPECT_EQ(driver->getRelaysCount(), 6);
    enable(2, "0");
    writeFile("/tmp/x-1/analogs/2/enable", "1");
    EXPECT_EQ(analog(1000), 4137);

    const Calls calls;
    writeFile(onExpander("inputs/3/edge"), "none");
    for (const char* name : {"value", "edge", "counter_edge"}) {
        writeFile(std::string("/tmp/x-1/inputs/3/") + name, "");
    }
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    configure(RegisterType::INPUT_COUNTER, 3, calls);
    EXPECT_EQ(readFile("/tmp/x-1/inputs/3/edge"), "both");
    EXPECT_EQ(readFile("/tmp/x-1/inputs/3/counter_edge"), "rising");
    EXPECT_EQ(readFile(onExpander("inputs/3/edge")), "none");
    writeFile("/tmp/x-1/inputs/3/value", "1");
    EXPECT_TRUE(calls.reach(1));
    std::filesystem::remove_all("/tmp/x-1");
}

TEST_F(PD5DriverTest, APathIsTakenAsItStands) {
    driver->setBasePath("%s%d");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), "%s%d-1/relays/1/value");
    driver->setBasePath("");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), "-1/relays/1/value");
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

}  // namespace
