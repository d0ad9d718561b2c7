// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "InfoIo.h"
#include "TemporaryDirectory.h"
#include "sim/Board.h"
#include "sim/Error.h"

namespace {

using testing::ContainerEq;
using testing::HasSubstr;
using testing::ThrowsMessage;

class BoardTest : public testing::Test {
 protected:
    /// The files below a directory, with their values.
    static std::map<std::string, std::string> valuesOf(const std::filesystem::path& tree) {
        std::map<std::string, std::string> values;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(tree)) {
            if (entry.is_regular_file() && entry.path().filename() != "info_io") {
                values[entry.path().lexically_relative(tree)] = sim::Attribute(entry).text();
            }
        }
        return values;
    }

    /// The directory and all that is beside it.
    std::set<std::string> namesBeside() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    void countEdges(int number, const std::string& edge) const {
        sim::Attribute(board.path() / "inputs" / std::to_string(number) / "counter_edge").set(edge);
    }

    /// Sets an input to 1, 1, 0 and 0, and returns how many of it were counted.
    int countedOf(const std::string& edge) const {
        countEdges(1, edge);
        const int before = board.counter(1).number();
        for (const int value : {1, 1, 0, 0}) {
            board.setInput(1, value);
        }
        return board.counter(1).number() - before;
    }

    TemporaryDirectory directory;
    sim::Board board{directory.path() / "kr62", sim::Board::Type::IO_BOARD};
    sim::Board expander{directory.path() / "pd5-1", sim::Board::Type::EXPANDER};
};

TEST_F(BoardTest, AnIoBoardHasAllItsFiles) {
    board.make({1, 1, 3, 1});
    EXPECT_THAT(valuesOf(board.path()),
                ContainerEq(std::map<std::string, std::string>{{"relays/1/value", "0"},
                                                               {"inputs/1/value", "0"},
                                                               {"inputs/1/edge", "none"},
                                                               {"inputs/1/counter", "0"},
                                                               {"inputs/1/counter_edge", "none"},
                                                               {"pullups/1/value", "0"},
                                                               {"analogs/1/value", "0"},
                                                               {"analogs/analog_ref", "4096"},
                                                               {"analog_ref", "4096"},
                                                               {"supply_current", "2048"},
                                                               {"supply_voltage", "3724"},
                                                               {"usb_enable", "0"},
                                                               {"leds/3/color", "1"},
                                                               {"leds/3/brightness", "0"},
                                                               {"leds/12/color", "1"},
                                                               {"leds/12/brightness", "0"}}));
}

TEST_F(BoardTest, AnExpanderHasAllItsFiles) {
    expander.make({2, 1, 0, 1});
    EXPECT_THAT(valuesOf(expander.path()),
                ContainerEq(std::map<std::string, std::string>{{"relays/1/value", "0"},
                                                               {"relays/2/value", "0"},
                                                               {"inputs/1/value", "0"},
                                                               {"inputs/1/edge", "none"},
                                                               {"inputs/1/counter", "0"},
                                                               {"inputs/1/counter_edge", "none"},
                                                               {"analogs/1/value", "0"},
                                                               {"analogs/1/enable", "0"}}));
}

TEST_F(BoardTest, StatesItsIosAsTheDriversReadThem) {
    board.make({4, 8, 2, 5});
    const InfoIo info(board.path() / "info_io");
    EXPECT_EQ(info.relays, 4U);
    EXPECT_EQ(info.inputs, 8U);
    EXPECT_EQ(info.outputs, 2U);
    EXPECT_EQ(info.analogs, 5U);
    EXPECT_EQ(board.counts().relays, 4);
    EXPECT_EQ(board.counts().inputs, 8);
    EXPECT_EQ(board.counts().outputs, 2);
    EXPECT_EQ(board.counts().analogs, 5);
}

TEST_F(BoardTest, IsThereOnlyOnce) {
    EXPECT_FALSE(board.isThere());
    board.make({});
    EXPECT_TRUE(board.isThere());
    EXPECT_THAT([this] { board.make({}); },
                ThrowsMessage<sim::Error>(board.path().string() + " is there already"));
    EXPECT_THAT(namesBeside(), ContainerEq(std::set<std::string>{"kr62"}));
}

TEST_F(BoardTest, ACounterCountsTheEdgesThatItIsToldTo) {
    board.make({0, 1, 0, 0});
    EXPECT_EQ(countedOf("none"), 0);
    EXPECT_EQ(countedOf("rising"), 1);
    EXPECT_EQ(countedOf("falling"), 1);
    EXPECT_EQ(countedOf("both"), 2);
    board.setInput(1, 1);
    EXPECT_EQ(countedOf("rising"), 0) << "it was 1 already";
}

TEST_F(BoardTest, CountsOnFromWhatAClientHasWritten) {
    board.make({0, 2, 0, 0});
    countEdges(2, "rising");
    writeFile(board.counter(2).path(), "1000");
    EXPECT_EQ(board.toggleInput(2), 1);
    EXPECT_EQ(board.toggleInput(2), 0);
    EXPECT_EQ(board.counter(2).number(), 1001);
    EXPECT_EQ(board.counter(1).number(), 0);
}

TEST_F(BoardTest, NoEdgeIsLostAmongThreads) {
    constexpr int ROUNDS = 2000;
    board.make({0, 1, 0, 0});
    countEdges(1, "both");
    std::atomic<int> ready{0};
    const auto toggle = [this, &ready] {
        for (++ready; ready < 2;) {
        }
        for (int round = 0; round < ROUNDS; ++round) {
            board.toggleInput(1);
        }
    };
    std::thread other(toggle);
    toggle();
    other.join();
    EXPECT_EQ(board.counter(1).number(), 2 * ROUNDS);
    EXPECT_EQ(board.input(1).number(), 0);
}

TEST_F(BoardTest, AnInputTakesNothingButZeroAndOne) {
    board.make({0, 1, 0, 0});
    EXPECT_THAT([this] { board.setInput(1, 2); },
                ThrowsMessage<sim::Error>("an input is 0 or 1, not 2"));
    EXPECT_THAT([this] { board.setInput(2, 1); },
                ThrowsMessage<sim::Error>(
                    HasSubstr("there is no " + board.path().string() + "/inputs/2;")));
}

TEST_F(BoardTest, APulledBoardIsGoneAndComesBackWithItsValuesInNewFiles) {
    board.make({2, 2, 1, 1});
    board.relay(2).set(1);
    const auto before = valuesOf(board.path());
    // Holds the inode, so that its number is not given to another file.
    const std::ifstream held(board.relay(2).path());
    std::filesystem::create_hard_link(board.relay(2).path(), directory.path() / "old");
    board.pull();
    EXPECT_FALSE(std::filesystem::exists(board.path()));
    board.restore();
    EXPECT_THAT(valuesOf(board.path()), ContainerEq(before));
    EXPECT_EQ(board.counts().outputs, 1);
    EXPECT_FALSE(std::filesystem::equivalent(board.relay(2).path(), directory.path() / "old"));
    EXPECT_THAT(namesBeside(), ContainerEq(std::set<std::string>{"kr62", "old"}));
}

TEST_F(BoardTest, OnlyWhatIsThereCanBePulledAndOnlyWhatIsPulledRestored) {
    const std::string path = board.path();
    EXPECT_THAT([this] { board.pull(); }, ThrowsMessage<sim::Error>("no board at " + path));
    EXPECT_THAT([this] { board.counts(); }, ThrowsMessage<sim::Error>("no board at " + path));
    EXPECT_THAT([this] { board.restore(); },
                ThrowsMessage<sim::Error>("no board has been pulled from " + path));
    board.make({});
    EXPECT_THAT([this] { board.restore(); },
                ThrowsMessage<sim::Error>("no board has been pulled from " + path));
    board.pull();
    std::filesystem::create_directory(path);
    EXPECT_THAT([this] { board.restore(); }, ThrowsMessage<sim::Error>(path + " is there already"));
}

}  // namespace
