// SPDX-License-Identifier: MIT
#include <Poco/Exception.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <vector>

#include "CallbackRecord.h"
#include "CapturedLog.h"
#include "KR62Driver.h"
#include "LoggerNames.h"
#include "NotifierAsleep.h"
#include "PD5Driver.h"
#include "RegisterTypes.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

/// What the drivers of the boards in sysfs have in common. What a board has alone is tested under
/// the name of its driver.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;
using Type = RegisterType;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

/// The files of a register type below the base path: one per index, from 0 to the count.
struct IoFiles {
    RegisterType type;
    int count;
    std::string before;
    std::string behind;
};

/// A driver and the board for which it is made.
struct Board {
    std::string name;
    std::string loggerName;
    std::string base;
    /// What the driver appends to another base path.
    std::string suffix;
    std::function<std::unique_ptr<DriverInterface>()> make;
    std::function<void(DriverInterface& driver, const std::string& path)> setBasePath;

    int relays;
    int outputs;
    int inputs;
    int analogs;

    std::vector<IoFiles> files;
    std::set<RegisterType> served;
    std::set<RegisterType> converted;
    std::set<RegisterType> onlyRead;
    std::set<RegisterType> switches;
    /// The watched register types, and the folders of their value files.
    std::map<RegisterType, std::string> watched;

    /// An index beyond all counts.
    int beyond() const { return std::max({relays, inputs, analogs}) + 1; }
};

/// Names the board in the reports of failures.
void PrintTo(const Board& board, std::ostream* out) {
    *out << board.name;
}

Board kr62() {
    return {
        "KR62",
        "kr62--1-driver",
        "/sys/kernel/kr62",
        "",
        [] { return std::make_unique<KR62Driver>(); },
        [](DriverInterface& driver, const std::string& path) {
            dynamic_cast<KR62Driver&>(driver).setBasePath(path);
        },
        4,
        2,
        8,
        5,
        {{Type::RELAY, 4, "relays/", "/value"},
         {Type::INPUT_DIGITAL, 8, "inputs/", "/value"},
         {Type::PULLUP, 8, "pullups/", "/value"},
         {Type::INPUT_COUNTER, 8, "inputs/", "/counter"},
         {Type::INPUT_ANALOG, 5, "analogs/", "/value"}},
        {Type::RELAY, Type::INPUT_DIGITAL, Type::PULLUP, Type::INPUT_COUNTER, Type::INPUT_ANALOG,
         Type::DEVICE_CURRENT, Type::DEVICE_VOLTAGE, Type::USB_ENABLE, Type::COLOR_LED,
         Type::BRIGHTNESS_LED},
        {Type::INPUT_ANALOG, Type::DEVICE_CURRENT, Type::DEVICE_VOLTAGE},
        {Type::INPUT_DIGITAL, Type::INPUT_ANALOG, Type::DEVICE_CURRENT, Type::DEVICE_VOLTAGE},
        {Type::RELAY, Type::PULLUP, Type::USB_ENABLE},
        {{Type::RELAY, "relays"}, {Type::PULLUP, "pullups"}, {Type::INPUT_DIGITAL, "inputs"}},
    };
}

Board pd5() {
    return {
        "PD5",
        "pd5-1-driver",
        "/sys/kernel/pd5-1",
        "-1",
        [] { return std::make_unique<PD5Driver>(1); },
        [](DriverInterface& driver, const std::string& path) {
            dynamic_cast<PD5Driver&>(driver).setBasePath(path);
        },
        6,
        2,
        4,
        3,
        {{Type::RELAY, 6, "relays/", "/value"},
         {Type::INPUT_DIGITAL, 4, "inputs/", "/value"},
         {Type::INPUT_COUNTER, 4, "inputs/", "/counter"},
         {Type::INPUT_ANALOG, 3, "analogs/", "/value"},
         {Type::ENABLE_ANALOG, 3, "analogs/", "/enable"}},
        {Type::RELAY, Type::INPUT_DIGITAL, Type::INPUT_COUNTER, Type::INPUT_ANALOG,
         Type::ENABLE_ANALOG},
        {Type::INPUT_ANALOG},
        {Type::INPUT_DIGITAL, Type::INPUT_ANALOG},
        {Type::RELAY, Type::ENABLE_ANALOG},
        {{Type::RELAY, "relays"}, {Type::INPUT_DIGITAL, "inputs"}},
    };
}

class BoardDriversTest : public testing::TestWithParam<Board> {
 protected:
    BoardDriversTest() {
        writeFile(onBoard("info_io"), "relays " + std::to_string(board.relays) + "\ninputs " +
                                          std::to_string(board.inputs) + "\noutputs " +
                                          std::to_string(board.outputs) + "\nanalogs " +
                                          std::to_string(board.analogs) + "\n");
        driver = board.make();
    }

    ~BoardDriversTest() override {
        std::filesystem::remove_all("/sys/kernel");
        if (isConfigured) {
            untilNotifierSleeps(log);
        }
    }

    std::string onBoard(const std::string& file) const { return board.base + "/" + file; }

    void configure(RegisterType type, int index, const CallbackRecord& calls) {
        isConfigured = true;
        driver->configureIO(type, index, calls.callback());
    }

    const Board& board = GetParam();
    CapturedLog log;
    std::unique_ptr<DriverInterface> driver;

 private:
    bool isConfigured{false};
};

TEST_P(BoardDriversTest, IsNotMadeWithoutItsBoard) {
    std::filesystem::remove(onBoard("info_io"));
    EXPECT_THAT([this] { board.make(); }, ThrowsMessage<tesk::NotFoundException>(
                                              "file " + onBoard("info_io") + " not found"));
}

TEST_P(BoardDriversTest, IsNotMadeWhenTheBoardStatesACountThatIsNoNumber) {
    for (const char* line : {"relays four\n", "analogs many\n"}) {
        writeFile(onBoard("info_io"), line);
        EXPECT_THROW(board.make(), Poco::SyntaxException) << line;
    }
}

TEST_P(BoardDriversTest, HasTheCountsThatTheBoardStatedAtFirst) {
    writeFile(onBoard("info_io"), "relays 9\n");
    EXPECT_EQ(driver->getRelaysCount(), board.relays);
    EXPECT_EQ(driver->getDigitalOutputsCount(), board.outputs);
    EXPECT_EQ(driver->getDigitalInputsCount(), board.inputs);
    EXPECT_EQ(driver->getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver->getAnalogInputsCount(), board.analogs);
    EXPECT_EQ(driver->getSerialPortsCount(), 0);
}

TEST_P(BoardDriversTest, NamesTheFileOfAnIoUpToTheCountInclusive) {
    for (const IoFiles& files : board.files) {
        for (int index = 0; index <= files.count; ++index) {
            EXPECT_EQ(driver->getIOFileName(files.type, index),
                      onBoard(files.before + std::to_string(index) + files.behind));
        }
        for (const int index : {files.count + 1, files.count + 2, -1, MIN, MAX}) {
            EXPECT_THAT([&] { return driver->getIOFileName(files.type, index); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                       std::to_string(index)))
                << getTypeName(files.type);
        }
    }
}

TEST_P(BoardDriversTest, ServesNoOtherType) {
    for (const RegisterType type : allTypes()) {
        if (board.served.count(type) != 0) {
            continue;
        }
        const std::string text = "type '" + getTypeName(type) + "' not supported";
        for (const int number : {0, 1}) {
            EXPECT_THAT([&] { return driver->getIOFileName(type, number); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
            EXPECT_THAT([&] { return driver->isValueValid(type, number); },
                        ThrowsMessage<tesk::UnsupportedException>(text));
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(BoardDriversTest, AValueThatIsNotMeasuredStaysAsItIs) {
    for (const RegisterType type : allTypes()) {
        if (board.converted.count(type) == 0) {
            for (const int value : {0, 1, 48312, -5, MIN, MAX}) {
                EXPECT_EQ(driver->convertValue(type, value, -1), value) << getTypeName(type);
            }
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(BoardDriversTest, SwitchesTakeZeroAndOne) {
    for (const RegisterType type : board.switches) {
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
        ASSERT_EQ(log.lines().size(), 3U);
        EXPECT_EQ(log.lines()[0].source, loggerNameOf(board.loggerName, driver.get()));
    }
}

TEST_P(BoardDriversTest, CountersTakeEveryValue) {
    for (const int value : {0, 1, 65536, -1, MIN, MAX}) {
        EXPECT_TRUE(driver->isValueValid(Type::INPUT_COUNTER, value));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(BoardDriversTest, InputsAndMeasurementsCannotBeWritten) {
    for (const RegisterType type : board.onlyRead) {
        for (const int value : {0, 1, -1}) {
            EXPECT_THAT([&] { driver->isValueValid(type, value); },
                        ThrowsMessage<tesk::UnsupportedException>(
                            "write not supported for IO type " + getTypeName(type)));
        }
    }
}

TEST_P(BoardDriversTest, AWatchedTypeCallsBackWhenItsFileChanges) {
    for (const auto& [type, folder] : board.watched) {
        const std::string file = onBoard(folder + "/4/value");
        const CallbackRecord calls;
        writeFile(file, "");
        configure(type, 4, calls);
        writeFile(file, "1");
        EXPECT_TRUE(calls.reach(1)) << file;
    }
}

TEST_P(BoardDriversTest, ADigitalInputReportsBothEdges) {
    const CallbackRecord calls;
    writeFile(onBoard("inputs/3/value"), "0");
    writeFile(onBoard("inputs/3/edge"), "something longer\n");
    writeFile(onBoard("inputs/3/counter_edge"), "none");
    configure(Type::INPUT_DIGITAL, 3, calls);
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "both");
    EXPECT_EQ(readFile(onBoard("inputs/3/counter_edge")), "none");
}

TEST_P(BoardDriversTest, OnlyDigitalInputsHaveTheirEdgesSet) {
    const CallbackRecord calls;
    for (const auto& [type, folder] : board.watched) {
        writeFile(onBoard(folder + "/2/value"), "0");
        writeFile(onBoard(folder + "/2/edge"), "none");
        writeFile(onBoard(folder + "/2/counter_edge"), "none");
    }
    for (const auto& [type, folder] : board.watched) {
        if (type != Type::INPUT_DIGITAL) {
            configure(type, 2, calls);
        }
    }
    for (const auto& [type, folder] : board.watched) {
        EXPECT_EQ(readFile(onBoard(folder + "/2/edge")), "none");
        EXPECT_EQ(readFile(onBoard(folder + "/2/counter_edge")), "none");
    }
}

TEST_P(BoardDriversTest, AMissingEdgeFileIsNotMadeAndTheInputWatchedAllTheSame) {
    const CallbackRecord calls;
    writeFile(onBoard("inputs/3/value"), "");
    configure(Type::INPUT_DIGITAL, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onBoard("inputs/3/edge")));
    writeFile(onBoard("inputs/3/value"), "1");
    EXPECT_TRUE(calls.reach(1));
    configure(Type::INPUT_COUNTER, 3, calls);
    EXPECT_FALSE(std::filesystem::exists(onBoard("inputs/3/counter_edge")));
}

TEST_P(BoardDriversTest, AnEdgeFileThatCannotBeWrittenIsIgnored) {
    const CallbackRecord calls;
    writeFile(onBoard("inputs/3/value"), "");
    std::filesystem::create_directory(onBoard("inputs/3/edge"));
    configure(Type::INPUT_DIGITAL, 3, calls);
    std::filesystem::create_symlink("/dev/full", onBoard("inputs/3/counter_edge"));
    configure(Type::INPUT_COUNTER, 3, calls);
    writeFile(onBoard("inputs/3/value"), "1");
    EXPECT_TRUE(calls.reach(1));
}

TEST_P(BoardDriversTest, TheEdgeOfAnInputIsSetBeforeItsIndexIsChecked) {
    const std::string number = std::to_string(board.inputs + 1);
    writeFile(onBoard("inputs/" + number + "/value"), "0");
    writeFile(onBoard("inputs/" + number + "/edge"), "none");
    EXPECT_THAT([&] { configure(Type::INPUT_DIGITAL, board.inputs + 1, CallbackRecord()); },
                ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " + number));
    EXPECT_EQ(readFile(onBoard("inputs/" + number + "/edge")), "both");
}

TEST_P(BoardDriversTest, AWatchedTypeWithABadIndexOrWithoutItsFileCannotBeConfigured) {
    for (const auto& watched : board.watched) {
        const RegisterType type = watched.first;
        for (const int index : {board.beyond(), -1}) {
            EXPECT_THAT([&] { configure(type, index, CallbackRecord()); },
                        ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                       std::to_string(index)));
        }
        EXPECT_THAT([&] { configure(type, 1, CallbackRecord()); },
                    ThrowsMessage<tesk::InputOutputException>(
                        "error enabling notification for file '" + driver->getIOFileName(type, 1) +
                        "': No such file or directory"));
    }
}

TEST_P(BoardDriversTest, ACounterCountsRisingEdgesAndIsNotWatched) {
    const CallbackRecord counter;
    const CallbackRecord relay;
    writeFile(onBoard("inputs/3/counter"), "");
    writeFile(onBoard("inputs/3/value"), "");
    writeFile(onBoard("inputs/3/edge"), "none");
    writeFile(onBoard("inputs/3/counter_edge"), "something longer\n");
    writeFile(onBoard("relays/1/value"), "");
    configure(Type::INPUT_COUNTER, 3, counter);
    configure(Type::RELAY, 1, relay);
    EXPECT_EQ(readFile(onBoard("inputs/3/counter_edge")), "rising");
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "none");
    writeFile(onBoard("inputs/3/counter"), "17");
    writeFile(onBoard("inputs/3/value"), "1");
    // Changes are served in order.
    writeFile(onBoard("relays/1/value"), "1");
    ASSERT_TRUE(relay.reach(1));
    EXPECT_THAT(counter.keys(), IsEmpty());
}

TEST_P(BoardDriversTest, ConfiguringACounterChecksNoIndex) {
    writeFile(onBoard("inputs/99/counter_edge"), "none");
    configure(Type::INPUT_COUNTER, 99, CallbackRecord());
    configure(Type::INPUT_COUNTER, -1, CallbackRecord());
    EXPECT_EQ(readFile(onBoard("inputs/99/counter_edge")), "rising");
}

TEST_P(BoardDriversTest, OtherTypesNeedNoConfiguration) {
    const CallbackRecord calls;
    for (const RegisterType type : allTypes()) {
        if (board.watched.count(type) == 0 && type != Type::INPUT_COUNTER) {
            for (const int index : {-1, 1, 99}) {
                EXPECT_NO_THROW(driver->configureIO(type, index, calls.callback()))
                    << getTypeName(type);
            }
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(BoardDriversTest, AnotherBasePathMovesTheFilesButNotTheCounts) {
    const TemporaryDirectory directory;
    board.setBasePath(*driver, directory.path() / "x");
    const std::string base = (directory.path() / "x").string() + board.suffix;
    writeFile(base + "/info_io", "relays 99\ninputs 99\nanalogs 99\n");
    EXPECT_EQ(driver->getIOFileName(Type::RELAY, board.relays),
              base + "/relays/" + std::to_string(board.relays) + "/value");
    EXPECT_THROW(driver->getIOFileName(Type::RELAY, board.relays + 1),
                 tesk::InvalidArgumentsException);
    EXPECT_EQ(driver->getRelaysCount(), board.relays);

    const CallbackRecord calls;
    writeFile(onBoard("inputs/3/edge"), "none");
    for (const char* name : {"value", "edge", "counter_edge"}) {
        writeFile(base + "/inputs/3/" + name, "");
    }
    configure(Type::INPUT_DIGITAL, 3, calls);
    configure(Type::INPUT_COUNTER, 3, calls);
    EXPECT_EQ(readFile(base + "/inputs/3/edge"), "both");
    EXPECT_EQ(readFile(base + "/inputs/3/counter_edge"), "rising");
    EXPECT_EQ(readFile(onBoard("inputs/3/edge")), "none");
    writeFile(base + "/inputs/3/value", "1");
    EXPECT_TRUE(calls.reach(1));
}

TEST_P(BoardDriversTest, APathIsTakenAsItStands) {
    board.setBasePath(*driver, "%s%d");
    EXPECT_EQ(driver->getIOFileName(Type::RELAY, 1), "%s%d" + board.suffix + "/relays/1/value");
    board.setBasePath(*driver, "");
    EXPECT_EQ(driver->getIOFileName(Type::RELAY, 1), board.suffix + "/relays/1/value");
}

INSTANTIATE_TEST_SUITE_P(Boards, BoardDriversTest, testing::Values(kr62(), pd5()),
                         [](const auto& board) { return board.param.name; });

}  // namespace
