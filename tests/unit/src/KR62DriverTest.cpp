// SPDX-License-Identifier: MIT
#include "KR62Driver.h"

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

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();
constexpr const char* BASE = "/sys/kernel/kr62";

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

    ~KR62DriverTest() override { std::filesystem::remove_all("/sys/kernel"); }

    int converted(RegisterType type, int value) const {
        return driver->convertValue(type, value, 1);
    }

    static void setReferences(const std::string& supply, const std::string& analogs) {
        writeFile(onBoard("analog_ref"), supply);
        writeFile(onBoard("analogs/analog_ref"), analogs);
    }

    CapturedLog log;
    std::unique_ptr<KR62Driver> driver;
};

TEST_F(KR62DriverTest, IsTheOnlyDriverOfItsName) {
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

TEST_F(KR62DriverTest, ScalesWhatIsMeasured) {
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

TEST_F(KR62DriverTest, AnotherBasePathIsTakenAsItStandsAndMovesTheReferencesToo) {
    const TemporaryDirectory directory;
    const std::string base = directory.path();
    driver->setBasePath(base);
    EXPECT_EQ(driver->getIOFileName(RegisterType::RELAY, 4), base + "/relays/4/value");
    EXPECT_EQ(driver->getIOFileName(RegisterType::USB_ENABLE, 0), base + "/usb_enable");
    EXPECT_EQ(driver->getIOFileName(RegisterType::COLOR_LED, 2), base + "/leds/12/color");
    setReferences("1", "1");
    writeFile(base + "/analog_ref", "4096");
    writeFile(base + "/analogs/analog_ref", "4096");
    EXPECT_EQ(converted(RegisterType::DEVICE_VOLTAGE, 2048), 6600);
    EXPECT_EQ(converted(RegisterType::INPUT_ANALOG, 2048), 1836);
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

TEST_F(KR62DriverTest, ABoardThatIsNotThereHasTheCountsThatAreGiven) {
    InfoIo counts;
    counts.relays = 3;
    counts.inputs = 5;
    counts.analogs = 7;
    const KR62Driver absent(counts);
    EXPECT_EQ(absent.getName(), "kr62");
    EXPECT_EQ(absent.getRelaysCount(), 3);
    EXPECT_EQ(absent.getDigitalInputsCount(), 5);
    EXPECT_EQ(absent.getAnalogInputsCount(), 7);
    EXPECT_EQ(absent.getIOFileName(RegisterType::RELAY, 3), "/sys/kernel/kr62/relays/3/value");
    EXPECT_THROW(absent.getIOFileName(RegisterType::RELAY, 4), tesk::InvalidArgumentsException);
}

TEST_F(KR62DriverTest, TellsWhichTypesAreWatched) {
    std::vector<RegisterType> watched;
    for (const RegisterType type : allTypes()) {
        if (KR62Driver::isWatched(type)) {
            watched.push_back(type);
        }
    }
    EXPECT_THAT(watched, testing::ElementsAre(RegisterType::RELAY, RegisterType::INPUT_DIGITAL,
                                              RegisterType::PULLUP));
}

}  // namespace
