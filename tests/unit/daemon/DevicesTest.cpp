// SPDX-License-Identifier: MIT
#include "daemon/Devices.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "CapturedLog.h"
#include "FakeGpiod.h"
#include "TemporaryDirectory.h"
#include "VaduDriver.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* WITHOUT_CHIPS = R"({"io_mapping": []})";
constexpr const char* WITH_CHIPS =
    R"({"io_mapping": [{"driver": "gpiochip-7"}, {"driver": "gpiochip-2"}]})";

class DevicesTest : public testing::Test {
 protected:
    ~DevicesTest() override { std::filesystem::remove_all("/sys/kernel"); }

    static void plug(const std::string& board, const std::string& info) {
        writeFile("/sys/kernel/" + board + "/info_io", info);
    }

    void wire(const std::string& map = WITHOUT_CHIPS) {
        boards = addDrivers(manager, directory.file("map.json", map));
    }

    bool has(const std::string& driver) {
        try {
            return manager.getDriverByName(driver)->getName() == driver;
        } catch (const tesk::NotFoundException&) {
            return false;
        }
    }

    /// The numbers of the drivers "PREFIX-N", for N from 0 to 20.
    std::vector<int> numbersOf(const std::string& prefix) {
        std::vector<int> numbers;
        for (int number = 0; number <= 20; ++number) {
            if (has(prefix + "-" + std::to_string(number))) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

    /// What the special driver says of the whole device.
    int total(RegisterType type, int index = 1) {
        return manager.getDriverByName("special")->convertValue(type, 0, index);
    }

    /// The lines of the service itself, which all have this priority.
    std::vector<std::string> lines(
        Poco::Message::Priority priority = Poco::Message::PRIO_ERROR) const {
        std::vector<std::string> texts;
        for (const CapturedLog::Line& line : log.lines()) {
            if (line.source == "iomappingd") {
                EXPECT_EQ(line.priority, priority);
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    CapturedLog log;
    FakeGpiod chips;
    TemporaryDirectory directory;
    DriverManager manager;
    std::vector<std::string> boards;
};

TEST_F(DevicesTest, TheMainBoardIsAlwaysThere) {
    wire();
    EXPECT_TRUE(has("vadu"));
    EXPECT_TRUE(has("special"));
    EXPECT_FALSE(has("kr62"));
    EXPECT_THAT(numbersOf("pd5"), IsEmpty());
    EXPECT_THAT(numbersOf("gpiochip"), IsEmpty());
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(DevicesTest, ExpandersAreLookedForFromZeroToFifteen) {
    for (const int number : {-1, 0, 3, 15, 16}) {
        plug("pd5-" + std::to_string(number), "relays 8\n");
    }
    wire();
    EXPECT_THAT(numbersOf("pd5"), ElementsAre(0, 3, 15));
    EXPECT_THAT(boards, ElementsAre("pd5-0", "pd5-3", "pd5-15"));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(DevicesTest, TheIosOfAllBoardsAreCounted) {
    const VaduDriver mainBoard;
    plug("kr62", "relays 4\ninputs 8\n");
    plug("pd5-2", "relays 16\ninputs 32\n");
    wire();
    EXPECT_TRUE(has("kr62"));
    EXPECT_EQ(total(RegisterType::COUNT_RELAYS), mainBoard.getRelaysCount() + 20);
    EXPECT_EQ(total(RegisterType::COUNT_INPUTS), mainBoard.getDigitalInputsCount() + 40);
    EXPECT_EQ(total(RegisterType::PD5_DETECTED, 1), 0);
    EXPECT_EQ(total(RegisterType::PD5_DETECTED, 2), 1);
}

TEST_F(DevicesTest, ABrokenBoardIsLeftOutWithOneLine) {
    std::filesystem::create_directories("/sys/kernel/kr62");
    plug("pd5-1", "relays many\n");
    plug("pd5-2", "relays 8\n");
    wire();
    EXPECT_FALSE(has("kr62"));
    EXPECT_THAT(numbersOf("pd5"), ElementsAre(2));
    EXPECT_THAT(boards, ElementsAre("pd5-2"));
    EXPECT_THAT(
        lines(),
        ElementsAre("the board at /sys/kernel/kr62 is left out: file /sys/kernel/kr62/info_io not "
                    "found; see /sys/kernel/kr62/info_io",
                    "the board at /sys/kernel/pd5-1 is left out: Syntax error: Not a valid "
                    "unsigned integer: many; see /sys/kernel/pd5-1/info_io"));
}

TEST_F(DevicesTest, ABoardThatStatesNoIoIsAWarningThatNamesTheFile) {
    plug("kr62", "relays  4\ninputs 8 \n");
    plug("pd5-1", "");
    plug("pd5-2", "outputs 1\n");
    plug("pd5-3", "analogs 1\n");
    plug("pd5-4", "inputs 1\n");
    wire();
    EXPECT_TRUE(has("kr62"));
    EXPECT_THAT(numbersOf("pd5"), ElementsAre(1, 2, 3, 4));
    const std::string text = " states no relay, output, input or analog input; a line of ";
    const std::string form = "/info_io must be a key, one blank and a number (relays 4)";
    EXPECT_THAT(lines(Poco::Message::PRIO_WARNING),
                ElementsAre("the board at /sys/kernel/kr62" + text + "/sys/kernel/kr62" + form,
                            "the board at /sys/kernel/pd5-1" + text + "/sys/kernel/pd5-1" + form));
}

TEST_F(DevicesTest, OnlyTheChipsThatTheMapNamesAreOpened) {
    wire(WITH_CHIPS);
    EXPECT_THAT(numbersOf("gpiochip"), ElementsAre(2, 7));
    EXPECT_THAT(chips.calls(), ElementsAre("open gpiochip2", "open gpiochip7"));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(DevicesTest, AChipThatCannotBeOpenedIsLeftOutWithOneLine) {
    chips.fail("open", EACCES);
    wire(R"({"io_mapping": [{"driver": "gpiochip-7"}]})");
    EXPECT_THAT(numbersOf("gpiochip"), IsEmpty());
    EXPECT_TRUE(has("vadu"));
    EXPECT_THAT(lines(),
                ElementsAre("the driver gpiochip-7 is left out: cannot open GPIO device gpiochip7: "
                            "Permission denied; see whether /dev/gpiochip7 is there and may be "
                            "opened"));
}

TEST_F(DevicesTest, AMapThatIsNotThereNamesNoChips) {
    addDrivers(manager, "/nowhere/map.json");
    EXPECT_TRUE(has("vadu"));
    EXPECT_THAT(chips.calls(), IsEmpty());
}

}  // namespace
