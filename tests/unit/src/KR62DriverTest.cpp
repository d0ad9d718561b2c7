// SPDX-License-Identifier: MIT
#include "KR62Driver.h"

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
constexpr const char* BASE = "/sys/kernel/kr62";

const std::set<RegisterType> SERVED{
    RegisterType::RELAY,          RegisterType::INPUT_DIGITAL, RegisterType::PULLUP,
    RegisterType::INPUT_COUNTER,  RegisterType::INPUT_ANALOG,  RegisterType::DEVICE_CURRENT,
    RegisterType::DEVICE_VOLTAGE, RegisterType::USB_ENABLE,    RegisterType::COLOR_LED,
    RegisterType::BRIGHTNESS_LED,
};
const std::set<RegisterType> ONLY_READ{RegisterType::INPUT_DIGITAL, RegisterType::INPUT_ANALOG,
                                       RegisterType::DEVICE_CURRENT, RegisterType::DEVICE_VOLTAGE};
const std::set<RegisterType> WATCHED{RegisterType::RELAY, RegisterType::PULLUP,
                                     RegisterType::INPUT_DIGITAL};

/// The kinds that a register may have, and some numbers that are none.
std::vector<RegisterType> allTypes() {
    std::vector<RegisterType> types;
    for (int number = -1; number <= 31; ++number) {
        types.push_back(static_cast<RegisterType>(number));
    }
    return types;
}

std::string onBoard(const std::string& file) {
    return std::string(BASE) + "/" + file;
}

/// A board with four relays, two outputs, eight inputs and five analogs.
class KR62DriverTest : public testing::Test {
 protected:
    KR62DriverTest() {
        writeFile(onBoard("info_io"), "relays 4\ninputs 8\noutputs 2\nanalogs 5\n");
        driver = std::make_unique<KR62Driver>();
    }

    ~KR62DriverTest() override {
        std::filesystem::remove_all("/sys/kernel");
        if (isConfigured) {
            untilNotifierSleeps(log);
        }
    }

    void configure(RegisterType type, int index, const Calls& calls) {
        isConfigured = true;
        driver->configureIO(type, index, calls.callback());
    }

    int converted(RegisterType type, int value) const {
        return driver->convertValue(type, value, 1);
    }

    static void setReferences(const std::string& supply, const std::string& analogs) {
        writeFile(onBoard("analog_ref"), supply);
        writeFile(onBoard("analogs/analog_ref"), analogs);
    }

    CapturedLog log;
    std::unique_ptr<KR62Driver> driver;

 private:
    bool isConfigured{false};
};

TEST_F(KR62DriverTest, IsTheOnlyOneOfItsKind) {
    EXPECT_EQ(driver->getName(), "kr62");
    EXPECT_EQ(driver->getDriverId(), DriverInterface::KR62);
    EXPECT_EQ(driver->getIndex(), -1);
    EXPECT_TRUE(loggerExists(loggerNameOf("kr62--1-driver", driver.get())));
}

TEST_F(KR62DriverTest, PublishesItsBasePathAndTheColoursOfTheLeds) {
    EXPECT_EQ(KR62Driver::KR62_BASE_PATH, BASE);
    EXPECT_THAT(KR62Driver::LED_COLORS,
                ElementsAre("red", "green", "yellow", "blue", "purple", "cyan", "white"));
}

TEST_F(KR62DriverTest, IsAvailableWhileThereIsADirectory) {
    EXPECT_TRUE(KR62Driver::driverIsAvailable());
    std::filesystem::remove_all(BASE);
    EXPECT_FALSE(KR62Driver::driverIsAvailable());
    writeFile(BASE, "");
    EXPECT_FALSE(KR62Driver::driverIsAvailable());
    std::filesystem::remove(BASE);
    std::filesystem::create_directory(BASE);
    EXPECT_TRUE(KR62Driver::driverIsAvailable());
}

TEST_F(KR62DriverTest, IsNotMadeWithoutTheBoard) {
    std::filesystem::remove(onBoard("info_io"));
    EXPECT_THAT([] { KR62Driver(); },
                ThrowsMessage<tesk::NotFoundException>("file /sys/kernel/kr62/info_io not found"));
}

TEST_F(KR62DriverTest, IsNotMadeWhenTheBoardStatesANumberThatIsNone) {
    writeFile(onBoard("info_io"), "relays four\n");
    EXPECT_THROW(KR62Driver(), Poco::SyntaxException);
}

TEST_F(KR62DriverTest, HasTheCountsThatTheBoardStatedAtFirst) {
    writeFile(onBoard("info_io"), "relays 9\n");
    EXPECT_EQ(driver->getRelaysCount(), 4);
    EXPECT_EQ(driver->getDigitalOutputsCount(), 2);
    EXPECT_EQ(driver->getDigitalInputsCount(), 8);
    EXPECT_EQ(driver->getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver->getAnalogInputsCount(), 5);
    EXPECT_EQ(driver->getSerialPortsCount(), 0);
}

TEST_F(KR62DriverTest, NamesTheFileOfAnIoUpToTheCountInclusive) {
    struct Row {
        RegisterType type;
        int count;
        std::string before;
        std::string behind;
    };
    const std::vector<Row> rows{
        {RegisterType::RELAY, 4, "relays/", "/value"},
        {RegisterType::INPUT_DIGITAL, 8, "inputs/", "/value"},
        {RegisterType::PULLUP, 8, "pullups/", "/value"},
        {RegisterType::INPUT_COUNTER, 8, "inputs/", "/counter"},
        {RegisterType::INPUT_ANALOG, 5, "analogs/", "/value"},
    };
    for (const Row& row : rows) {
        for (int index = 0; index <= row.count; ++index) {
            EXPECT_EQ(driver->getIOFileName(row.type, index),
                      onBoard(row.before + std::to_string(index) + row.behind));
        }
        for (const int index : {row.count + 1, row.count + 2, -1, MIN, MAX}) {
            EXPECT_THAT([&] { return driver->getIOFileName(row.type, index); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                       std::to_string(index)))
                << getTypeName(row.type);
        }
    }
}

TEST_F(KR62DriverTest, TheIosOfTheWholeBoardHaveOneFileWhateverTheIndex) {
    for (const int index : {0, 1, -1, 99, MIN, MAX}) {
        EXPECT_EQ(driver->getIOFileName(RegisterType::DEVICE_CURRENT, index),
                  onBoard("supply_current"));
        EXPECT_EQ(driver->getIOFileName(RegisterType::DEVICE_VOLTAGE, index),
                  onBoard("supply_voltage"));
        EXPECT_EQ(driver->getIOFileName(RegisterType::USB_ENABLE, index), onBoard("usb_enable"));
    }
}

TEST_F(KR62DriverTest, TheTwoLedsAreTheKernelsThirdAndTwelfth) {
    EXPECT_EQ(driver->getIOFileName(RegisterType::COLOR_LED, 1), onBoard("leds/3/color"));
    EXPECT_EQ(driver->getIOFileName(RegisterType::COLOR_LED, 2), onBoard("leds/12/color"));
    EXPECT_EQ(driver->getIOFileName(RegisterType::BRIGHTNESS_LED, 1), onBoard("leds/3/brightness"));
    EXPECT_EQ(driver->getIOFileName(RegisterType::BRIGHTNESS_LED, 2),
              onBoard("leds/12/brightness"));
}

TEST_F(KR62DriverTest, TheTextForAnotherLedAlwaysShowsZero) {
    for (const RegisterType type : {RegisterType::COLOR_LED, RegisterType::BRIGHTNESS_LED}) {
        for (const int index : {0, 3, 12, -1, MIN, MAX}) {
            EXPECT_THAT([&] { return driver->getIOFileName(type, index); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid led index: 0"))
                << index;
        }
    }
}

TEST_F(KR62DriverTest, ServesNoOtherKind) {
    for (const RegisterType type : allTypes()) {
        if (SERVED.count(type) == 0) {
            const std::string text = "type '" + getTypeName(type) + "' not supported";
            EXPECT_THAT([&] { return driver->getIOFileName(type, 1); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
            EXPECT_THAT([&] { return driver->isValueValid(type, 1); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KR62DriverTest, EveryKindButTheAnalogOnesStaysAsItIs) {
    for (const RegisterType type : allTypes()) {
        if (type != RegisterType::INPUT_ANALOG && type != RegisterType::DEVICE_CURRENT &&
            type != RegisterType::DEVICE_VOLTAGE) {
            for (const int value : {0, 1, 48312, -5, MIN, MAX}) {
                EXPECT_EQ(driver->convertValue(type, value, -1), value) << getTypeName(type);
            }
        }
    }
}

TEST_F(KR62DriverTest, ScalesTheAnalogKinds) {
    setReferences("4096", "4096");
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 1836);
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 2048), 6600);
    EXPECT_EQ(converted(RegisterType::DEVICE_CURRENT, 2048), 120);
}

TEST_F(KR62DriverTest, TheSupplyAndTheAnalogsHaveReferencesOfTheirOwn) {
    setReferences("1000\n", " 2000\n");
    EXPECT_EQ(converted(RegisterType::DEVICE_CURRENT, 1001), 240);
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 1001), 13213);
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 1001), 1838);
    for (const int index : {0, -1, 99}) {
        EXPECT_EQ(driver->convertValue(RegisterType::INPUT_ANALOG, 1001, index), 1838);
    }
}

// Judged by exact fractions: a result is the exact one without its fraction. Only where the exact
// one is whole may the rounding of the five steps, each to the nearest double, leave it just below,
// and one less comes out. For which raw values it does was worked out apart from this program, with
// exact fractions that were rounded to the nearest double after every step; here is how many they
// are, and their sum.
TEST_F(KR62DriverTest, EveryRawValueComesOutAsTheStepsInDoublePrecisionGiveIt) {
    struct Row {
        RegisterType type;
        int reference;
        std::int64_t numerator;
        std::int64_t denominator;
        int lowerCount;
        std::int64_t lowerSum;
    };
    const std::vector<Row> rows{
        {RegisterType::DEVICE_CURRENT, 4096, 240, 4096, 143, 4737024},
        {RegisterType::DEVICE_VOLTAGE, 4096, 13200, 4096, 76, 2576384},
        {RegisterType::INPUT_ANALOG, 4096, 40400, 11 * 4096, 10, 323840},
        {RegisterType::DEVICE_CURRENT, 1000, 240, 1000, 1023, 33943050},
        {RegisterType::DEVICE_VOLTAGE, 1000, 13200, 1000, 2250, 73358755},
        {RegisterType::INPUT_ANALOG, 1000, 40400, 11 * 1000, 181, 6446330},
        {RegisterType::DEVICE_CURRENT, 7, 240, 7, 5100, 168735343},
        {RegisterType::DEVICE_VOLTAGE, 7, 13200, 7, 2281, 75271378},
        {RegisterType::INPUT_ANALOG, 7, 40400, 11 * 7, 341, 11290972},
    };
    for (const Row& row : rows) {
        setReferences(std::to_string(row.reference), std::to_string(row.reference));
        int lowerCount = 0;
        std::int64_t lowerSum = 0;
        for (int raw = 0; raw <= 0xffff; ++raw) {
            const std::int64_t product = raw * row.numerator;
            const std::int64_t exact = product / row.denominator;
            const int result = converted(row.type, raw);
            if (product % row.denominator == 0 && result == exact - 1) {
                ++lowerCount;
                lowerSum += raw;
                continue;
            }
            ASSERT_EQ(result, exact) << getTypeName(row.type) << " of " << raw;
        }
        EXPECT_EQ(lowerCount, row.lowerCount) << getTypeName(row.type) << row.reference;
        EXPECT_EQ(lowerSum, row.lowerSum) << getTypeName(row.type) << row.reference;
    }
}

TEST_F(KR62DriverTest, TheFractionGoesTowardsZero) {
    for (const std::string reference : {"4096", "-4096"}) {
        setReferences(reference, reference);
        const int sign = reference == "4096" ? 1 : -1;
        EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, -2048), sign * -1836);
        EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, -2049), sign * -6603);
        EXPECT_EQ(converted(RegisterType::DEVICE_CURRENT, -17), 0);
    }
}

TEST_F(KR62DriverTest, AResultBeyond32BitsIsTheNearestEnd) {
    setReferences("1", "1");
    for (const RegisterType type :
         {RegisterType::DEVICE_CURRENT, RegisterType::DEVICE_VOLTAGE, RegisterType::INPUT_ANALOG}) {
        EXPECT_EQ(converted(type, MAX), MAX) << getTypeName(type);
        EXPECT_EQ(converted(type, MIN), MIN) << getTypeName(type);
    }
    // The last products within, and the first beyond.
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 162688), 2147481600);
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 162689), MAX);
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, -162688), -2147481600);
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, -162689), MIN);
}

TEST_F(KR62DriverTest, AZeroReferenceIsAnError) {
    for (const char* text : {"", "0", "zero", "-0", "\n", "x4096"}) {
        setReferences(text, text);
        for (const RegisterType type : {RegisterType::DEVICE_CURRENT, RegisterType::DEVICE_VOLTAGE,
                                        RegisterType::INPUT_ANALOG}) {
            EXPECT_THAT([&] { converted(type, 2048); },
                        ThrowsMessage<tesk::InputOutputException>("analog ref is zero"));
        }
    }
}

TEST_F(KR62DriverTest, AMissingReferenceIsAnErrorUntilItIsThere) {
    const auto failsFor = [this](RegisterType type, const std::string& file) {
        EXPECT_THAT([&] { converted(type, 2048); },
                    ThrowsMessage<tesk::InputOutputException>("error opening file '" +
                                                              onBoard(file) + "' for reading"));
    };
    failsFor(RegisterType::DEVICE_CURRENT, "analog_ref");
    failsFor(RegisterType::DEVICE_VOLTAGE, "analog_ref");
    failsFor(RegisterType::INPUT_ANALOG, "analogs/analog_ref");
    writeFile(onBoard("analog_ref"), "4096");
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 2048), 6600);
    failsFor(RegisterType::INPUT_ANALOG, "analogs/analog_ref");
    writeFile(onBoard("analogs/analog_ref"), "2048");
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 3672);
    writeFile(onBoard("analogs/analog_ref"), "4096");
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 1836);
}

TEST_F(KR62DriverTest, SwitchesTakeZeroAndOne) {
    for (const RegisterType type :
         {RegisterType::RELAY, RegisterType::PULLUP, RegisterType::USB_ENABLE}) {
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
        EXPECT_EQ(log.lines()[0].source, loggerNameOf("kr62--1-driver", driver.get()));
    }
}

TEST_F(KR62DriverTest, CountersTakeEveryValue) {
    for (const int value : {0, 1, 65536, -1, MIN, MAX}) {
        EXPECT_TRUE(driver->isValueValid(RegisterType::INPUT_COUNTER, value));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KR62DriverTest, LedsTakeSevenColours) {
    for (int color = 1; color <= 7; ++color) {
        EXPECT_TRUE(driver->isValueValid(RegisterType::COLOR_LED, color));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    for (const int color : {0, 8, -1}) {
        EXPECT_FALSE(driver->isValueValid(RegisterType::COLOR_LED, color));
    }
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR),
                ElementsAre("invalid led color '0'", "invalid led color '8'",
                            "invalid led color '4294967295'"));
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST_F(KR62DriverTest, LedsTakeSixteenBrightnesses) {
    for (int brightness = 0; brightness <= 15; ++brightness) {
        EXPECT_TRUE(driver->isValueValid(RegisterType::BRIGHTNESS_LED, brightness));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    for (const int brightness : {16, MAX, -1}) {
        EXPECT_FALSE(driver->isValueValid(RegisterType::BRIGHTNESS_LED, brightness));
    }
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR),
                ElementsAre("invalid led brightness '16'", "invalid led brightness '2147483647'",
                            "invalid led brightness '4294967295'"));
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST_F(KR62DriverTest, MeasuredKindsCannotBeWritten) {
    for (const RegisterType type : ONLY_READ) {
        for (const int value : {0, 1, -1}) {
            EXPECT_THAT([&] { driver->isValueValid(type, value); },
                        ThrowsMessage<tesk::UnsupportedException>(
                            "write not supported for IO type " + getTypeName(type)));
        }
    }
}

TEST_F(KR62DriverTest, AWatchedKindCallsBackWhenItsFileChanges) {
    const std::map<RegisterType, std::string> files{
        {RegisterType::RELAY, onBoard("relays/4/value")},
        {RegisterType::PULLUP, onBoard("pullups/4/value")},
        {RegisterType::INPUT_DIGITAL, onBoard("inputs/4/value")},
    };
    for (const auto& [type, file] : files) {
        const Calls calls;
        writeFile(file, "");
        configure(type, 4, calls);
        writeFile(file, "1");
        EXPECT_TRUE(calls.reach(1)) << file;
    }
}

TEST_F(KR62DriverTest, ADigitalInputReportsBothEdges) {
    const Calls calls;
    writeFile(onBoard("inputs/3/value"), "0");
    writeFile(onBoard("inputs/3/edge"), "something longer\n");
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "both");
}

TEST_F(KR62DriverTest, OnlyDigitalInputsHaveTheirEdgesSet) {
    const Calls calls;
    for (const char* tree : {"relays", "pullups", "inputs"}) {
        writeFile(onBoard(std::string(tree) + "/2/value"), "0");
        writeFile(onBoard(std::string(tree) + "/2/edge"), "none");
        writeFile(onBoard(std::string(tree) + "/2/counter_edge"), "none");
    }
    configure(RegisterType::RELAY, 2, calls);
    configure(RegisterType::PULLUP, 2, calls);
    for (const char* tree : {"relays", "pullups", "inputs"}) {
        EXPECT_EQ(readFile(onBoard(std::string(tree) + "/2/edge")), "none");
        EXPECT_EQ(readFile(onBoard(std::string(tree) + "/2/counter_edge")), "none");
    }
}

TEST_F(KR62DriverTest, AMissingEdgeFileIsNotMadeAndTheInputWatchedAllTheSame) {
    const Calls calls;
    writeFile(onBoard("inputs/3/value"), "");
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onBoard("inputs/3/edge")));
    writeFile(onBoard("inputs/3/value"), "1");
    EXPECT_TRUE(calls.reach(1));
    configure(RegisterType::INPUT_COUNTER, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onBoard("inputs/3/counter_edge")));
}

TEST_F(KR62DriverTest, AnEdgeFileThatCannotBeWrittenIsIgnored) {
    const Calls calls;
    writeFile(onBoard("inputs/3/value"), "");
    std::filesystem::create_directory(onBoard("inputs/3/edge"));
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    std::filesystem::create_symlink("/dev/full", onBoard("inputs/3/counter_edge"));
    configure(RegisterType::INPUT_COUNTER, 3, calls);
    writeFile(onBoard("inputs/3/value"), "1");
    EXPECT_TRUE(calls.reach(1));
}

TEST_F(KR62DriverTest, TheEdgeOfAnInputIsSetBeforeItsIndexIsChecked) {
    writeFile(onBoard("inputs/9/value"), "0");
    writeFile(onBoard("inputs/9/edge"), "none");
    EXPECT_THAT([&] { configure(RegisterType::INPUT_DIGITAL, 9, Calls()); },
                ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index 9"));
    EXPECT_EQ(readFile(onBoard("inputs/9/edge")), "both");
}

TEST_F(KR62DriverTest, AWatchedKindWithABadIndexOrWithoutItsFileCannotBeConfigured) {
    for (const RegisterType type : WATCHED) {
        for (const int index : {9, -1}) {
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

TEST_F(KR62DriverTest, ACounterCountsRisingEdgesAndIsNotWatched) {
    const Calls counter;
    const Calls relay;
    writeFile(onBoard("inputs/3/counter"), "");
    writeFile(onBoard("inputs/3/value"), "");
    writeFile(onBoard("inputs/3/edge"), "none");
    writeFile(onBoard("inputs/3/counter_edge"), "something longer\n");
    writeFile(onBoard("relays/1/value"), "");
    configure(RegisterType::INPUT_COUNTER, 3, counter);
    configure(RegisterType::RELAY, 1, relay);
    EXPECT_EQ(readFile(onBoard("inputs/3/counter_edge")), "rising");
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "none");
    writeFile(onBoard("inputs/3/counter"), "17");
    writeFile(onBoard("inputs/3/value"), "1");
    // Changes are served in order.
    writeFile(onBoard("relays/1/value"), "1");
    ASSERT_TRUE(relay.reach(1));
    EXPECT_THAT(counter.keys(), IsEmpty());
}

TEST_F(KR62DriverTest, ConfiguringACounterChecksNoIndex) {
    writeFile(onBoard("inputs/99/counter_edge"), "none");
    configure(RegisterType::INPUT_COUNTER, 99, Calls());
    configure(RegisterType::INPUT_COUNTER, -1, Calls());
    EXPECT_EQ(readFile(onBoard("inputs/99/counter_edge")), "rising");
}

TEST_F(KR62DriverTest, OtherKindsNeedNoConfiguration) {
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

TEST_F(KR62DriverTest, AnotherBasePathMovesTheFilesButNotTheCounts) {
    const TemporaryDirectory directory;
    const std::string base = directory.path();
    writeFile(base + "/info_io", "relays 99\ninputs 99\nanalogs 99\n");
    driver->setBasePath(base);
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 4), base + "/relays/4/value");
    EXPECT_THROW(driver->getIOFileName(RegisterType::RELAY, 5), tesk::InvalidArgumentsException);
    EXPECT_EQ(driver->getRelaysCount(), 4);
    EXPECT_EQ(driver->getIOFileName(RegisterType::USB_ENABLE, 0), base + "/usb_enable");
    EXPECT_EQ(driver->getIOFileName(RegisterType::COLOR_LED, 2), base + "/leds/12/color");
    setReferences("1", "1");
    writeFile(base + "/analog_ref", "4096");
    writeFile(base + "/analogs/analog_ref", "4096");
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 2048), 6600);
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 1836);

    const Calls calls;
    writeFile(onBoard("inputs/3/edge"), "none");
    for (const char* name : {"value", "edge", "counter_edge"}) {
        writeFile(base + "/inputs/3/" + name, "");
    }
    configure(RegisterType::INPUT_DIGITAL, 3, calls);
    configure(RegisterType::INPUT_COUNTER, 3, calls);
    EXPECT_EQ(readFile(base + "/inputs/3/edge"), "both");
    EXPECT_EQ(readFile(base + "/inputs/3/counter_edge"), "rising");
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "none");
    writeFile(base + "/inputs/3/value", "1");
    EXPECT_TRUE(calls.reach(1));
}

TEST_F(KR62DriverTest, APathIsTakenAsItStands) {
    driver->setBasePath("%s%d");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), "%s%d/relays/1/value");
    driver->setBasePath("");
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), "/relays/1/value");
}

TEST_F(KR62DriverTest, ReadsFromSeveralThreadsAtOnce) {
    setReferences("4096", "4096");
    const auto readAll = [this] {
        for (int round = 0; round < 200; ++round) {
            EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 2048), 6600);
            EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 1836);
            EXPECT_FALSE(driver->isValueValid(RegisterType::RELAY, 2));
            EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 1), onBoard("relays/1/value"));
        }
    };
    std::thread other(readAll);
    readAll();
    other.join();
}

}  // namespace
