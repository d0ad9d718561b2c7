// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <thread>

#include "BlockingClient.h"
#include "BusFixture.h"
#include "Deadline.h"
#include "Outcome.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

using Change = BusClient::Change;

// Registers of the map.
constexpr int RELAY = 1;
constexpr int INPUT = 21;
constexpr int PULLUP = 31;
constexpr int COUNTER = 41;
constexpr int ANALOG = 51;
constexpr int RTS = 70;
constexpr int CTS = 71;
constexpr int EXPANDER_RELAY = 401;
constexpr int EXPANDER_INPUT = 411;

const std::string IO_BOARD = "/sys/kernel/kr62/";
const std::string EXPANDER = "/sys/kernel/pd5-1/";
const std::string LINES = "/sys/devices/platform/gpio-sim.0/gpiochip0/sim_gpio";

/// Lets the boards' hardware do something: "kr62/inputs/3/value 1".
void hardware(const std::string& what) {
    std::ofstream control("/sys/kernel/boards/set");
    ASSERT_TRUE(control << what << std::flush) << what;
}

/// Pulls the line that CTS is, to the level that is asserted or the other one.
void pullCts(bool asserted) {
    std::ofstream pull(LINES + "201/pull");
    ASSERT_TRUE(pull << (asserted ? "pull-down" : "pull-up") << std::flush);
}

void unloadBoards() {
    ASSERT_EQ(outcomeOf({"rmmod", "kr62_boards"}).status, 0);
}

void loadBoards() {
    ASSERT_EQ(outcomeOf({"insmod", BOARDS_MODULE}).status, 0);
}

/// How many files and directories a process watches.
std::size_t watchesOf(pid_t pid) {
    std::size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fdinfo")) {
        for (const std::string& line : Process::lines(readFile(entry.path()))) {
            count += line.rfind("inotify wd:", 0) == 0 ? 1 : 0;
        }
    }
    return count;
}

/// A client that reads one register over and over, until it goes.
class SteadyReader {
 public:
    explicit SteadyReader(int registerAddress)
        : address(registerAddress), thread([this] { work(); }) {}
    ~SteadyReader() { stop(); }
    SteadyReader(const SteadyReader&) = delete;
    SteadyReader& operator=(const SteadyReader&) = delete;

    /// Ends the reading.
    ///
    /// @return every answer that came
    std::set<std::string> stop() {
        isStopped = true;
        if (thread.joinable()) {
            thread.join();
        }
        return answers;
    }

 private:
    void work() {
        const BlockingClient client;
        while (!isStopped) {
            try {
                const VariantOwner reply =
                    client.call(BusClient::SERVICE, "Read", g_variant_new("(i)", address));
                gint32 value = 0;
                g_variant_get(reply.get(), "(i)", &value);
                answers.insert(std::to_string(value));
            } catch (const std::runtime_error& e) {
                const std::string text = e.what();
                answers.insert(text.substr(text.rfind("Failed: ") + 8));
            }
        }
    }

    const int address;
    std::atomic<bool> isStopped{false};
    std::set<std::string> answers;
    std::thread thread;
};

/// The daemon with the map of a whole device, on the machine's own boards and lines.
class EndToEndTest : public BusFixture {
 protected:
    void SetUp() override {
        unloadBoards();
        loadBoards();
        pullCts(false);
        service = &startService(readFile(DEVICE_MAP));
    }

    static std::string read(const BusClient& client, int address) {
        return client.call("Read", "(" + std::to_string(address) + ",)").text();
    }

    static std::string write(const BusClient& client, int address, int value) {
        return client
            .call("Write", "(" + std::to_string(address) + ", " + std::to_string(value) + ")")
            .text();
    }

    /// Waits until a client hears that a register has a value.
    static bool hears(const BusClient& client, const Change& change) {
        return runUntil([&client, &change] {
            return std::find(client.changes().begin(), client.changes().end(), change) !=
                   client.changes().end();
        });
    }

    Process* service{nullptr};
};

TEST_F(EndToEndTest, RtsThatAClientWritesIsSeenOnTheLineActiveLow) {
    const BusClient client;
    EXPECT_EQ(readFile(LINES + "200/value"), "1\n") << "asserted from the start";
    EXPECT_EQ(write(client, RTS, 1), "()");
    EXPECT_EQ(readFile(LINES + "200/value"), "0\n");
    EXPECT_EQ(read(client, RTS), "(1,)");
    EXPECT_EQ(write(client, RTS, 0), "()");
    EXPECT_EQ(readFile(LINES + "200/value"), "1\n");
    EXPECT_EQ(read(client, RTS), "(0,)");
    EXPECT_THAT(write(client, RTS, 2), HasSubstr("value 2 is invalid for address 70"));
    EXPECT_THAT(write(client, CTS, 1), HasSubstr("write not supported for IO type cts"));
}

TEST_F(EndToEndTest, EveryEdgeOfCtsReachesEveryClientOnce) {
    const BusClient one;
    const BusClient other;
    ASSERT_EQ(read(one, CTS), "(0,)");
    ASSERT_EQ(read(other, CTS), "(0,)");
    std::vector<Change> expected;
    for (int edge = 1; edge <= 20; ++edge) {
        pullCts(edge % 2 == 1);
        expected.emplace_back(CTS, edge % 2);
        ASSERT_TRUE(one.waitForChanges(expected.size())) << "edge " << edge;
        EXPECT_EQ(read(one, CTS), edge % 2 == 1 ? "(1,)" : "(0,)");
    }
    // Whatever came twice is here before this.
    hardware("kr62/inputs/1/value 1");
    expected.emplace_back(INPUT, 1);
    for (const BusClient* client : {&one, &other}) {
        ASSERT_TRUE(hears(*client, expected.back()));
        EXPECT_EQ(client->changes(), expected);
    }
}

TEST_F(EndToEndTest, TheLinesCarryOurNames) {
    const Outcome info = outcomeOf({"gpioinfo", "gpiochip0"});
    ASSERT_EQ(info.status, 0) << info.errors;
    const auto lines = Process::lines(info.output);
    ASSERT_EQ(lines.size(), 257U);
    EXPECT_THAT(lines[201], testing::MatchesRegex(
                                R"(.*line +200: +unnamed +"rts" +output +active-low +\[used\].*)"));
    EXPECT_THAT(lines[202], testing::MatchesRegex(
                                R"(.*line +201: +unnamed +"cts" +input +active-low +\[used\].*)"));
}

TEST_F(EndToEndTest, RelaysAreWrittenReadAndAnnounced) {
    const BusClient client;
    for (const auto& [address, file] :
         {std::pair(RELAY, IO_BOARD + "relays/1/value"),
          std::pair(RELAY + 3, IO_BOARD + "relays/4/value"),
          std::pair(PULLUP + 7, IO_BOARD + "pullups/8/value"),
          std::pair(EXPANDER_RELAY, EXPANDER + "relays/1/value"),
          std::pair(EXPANDER_RELAY + 7, EXPANDER + "relays/8/value")}) {
        EXPECT_EQ(read(client, address), "(0,)");
        EXPECT_EQ(write(client, address, 1), "()");
        EXPECT_EQ(readFile(file), "1\n");
        EXPECT_EQ(read(client, address), "(1,)");
        EXPECT_TRUE(hears(client, {address, 1})) << address;
    }
}

TEST_F(EndToEndTest, AnInputThatChangesIsAnnouncedOnceAndCounted) {
    const BusClient client;
    ASSERT_EQ(read(client, INPUT + 2), "(0,)");
    for (const char* value : {"1", "0", "1", "1"}) {
        hardware(std::string("kr62/inputs/3/value ") + value);
        runUntil([&client, value] {
            return !client.changes().empty() &&
                   client.changes().back() == Change(INPUT + 2, *value - '0');
        });
    }
    EXPECT_EQ(read(client, COUNTER + 2), "(2,)");
    hardware("pd5-1/inputs/8/value 1");
    EXPECT_TRUE(hears(client, {EXPANDER_INPUT + 7, 1}));
    EXPECT_THAT(client.changes(), ElementsAre(Change(INPUT + 2, 1), Change(INPUT + 2, 0),
                                              Change(INPUT + 2, 1), Change(EXPANDER_INPUT + 7, 1)));
    EXPECT_EQ(write(client, COUNTER + 2, 40), "()");
    hardware("kr62/inputs/3/value 0");
    hardware("kr62/inputs/3/value 1");
    EXPECT_EQ(read(client, COUNTER + 2), "(41,)");
}

TEST_F(EndToEndTest, AnInputThatChangesQuicklyIsAnnouncedWithItsLastValue) {
    const BusClient client;
    ASSERT_EQ(read(client, INPUT), "(0,)");
    for (int change = 1; change <= 1001; ++change) {
        hardware("kr62/inputs/1/value " + std::to_string(change % 2));
    }
    hardware("kr62/inputs/8/value 1");
    ASSERT_TRUE(hears(client, {INPUT + 7, 1}));
    const auto last = std::find_if(client.changes().rbegin(), client.changes().rend(),
                                   [](const Change& change) { return change.first == INPUT; });
    ASSERT_NE(last, client.changes().rend());
    EXPECT_EQ(*last, Change(INPUT, 1));
    EXPECT_EQ(read(client, COUNTER), "(501,)");
}

TEST_F(EndToEndTest, RawValuesAreConverted) {
    const BusClient client;
    hardware("kr62/analogs/4/value 2048");
    EXPECT_EQ(read(client, ANALOG + 3), "(1836,)");
    EXPECT_EQ(client.call("ReadList", "(<[60, 61]>,)").text(), "(<[120, 6600]>,)");
    hardware("pd5-1/analogs/2/value 1000");
    EXPECT_EQ(read(client, 432), "(0,)") << "it is not enabled yet";
    EXPECT_EQ(write(client, 442, 1), "()");
    EXPECT_EQ(read(client, 432), "(4137,)");
}

TEST_F(EndToEndTest, LedsAndUsbPowerAreSwitched) {
    const BusClient client;
    EXPECT_EQ(write(client, 63, 7), "()");
    EXPECT_EQ(write(client, 66, 15), "()");
    EXPECT_EQ(write(client, 62, 1), "()");
    EXPECT_EQ(readFile(IO_BOARD + "leds/3/color"), "7\n");
    EXPECT_EQ(readFile(IO_BOARD + "leds/12/brightness"), "15\n");
    EXPECT_EQ(readFile(IO_BOARD + "usb_enable"), "1\n");
    EXPECT_THAT(write(client, 64, 0), HasSubstr("value 0 is invalid for address 64"));
    EXPECT_EQ(readFile(IO_BOARD + "leds/12/color"), "1\n");
}

TEST_F(EndToEndTest, TheDeviceIsCounted) {
    EXPECT_EQ(BusClient().call("ReadList", "(<[200, 201, 203, 205, 210, 211, 212, 213]>,)").text(),
              "(<[1, 40, 40, 20, 1, 1, 1, 1]>,)");
}

TEST_F(EndToEndTest, AllThirtyTwoBitsOfAValueAreKept) {
    const BusClient client;
    EXPECT_EQ(write(client, 330, -1), "()");
    EXPECT_EQ(read(client, 330), "(-1,)");
    EXPECT_TRUE(hears(client, {330, -1}));
    std::ifstream file("/proc/uptime");
    int uptime = 0;
    file >> uptime;
    const auto answer = client.call("Read", "(101,)");
    gint32 value = 0;
    g_variant_get(answer.reply.get(), "(i)", &value);
    EXPECT_NEAR(value, uptime, 2);
}

TEST_F(EndToEndTest, BoardsThatAreUnloadedAndLoadedAgainAreSurvived) {
    const BusClient client;
    unloadBoards();
    EXPECT_EQ(read(client, RELAY),
              "org.freedesktop.DBus.Error.Failed: error opening file "
              "'/sys/kernel/kr62/relays/1/value' for reading");
    EXPECT_EQ(write(client, RTS, 1), "()");
    EXPECT_EQ(read(client, 300), "(0,)") << "a virtual register";
    loadBoards();
    EXPECT_EQ(write(client, RELAY, 1), "()");
    EXPECT_EQ(readFile(IO_BOARD + "relays/1/value"), "1\n");
    hardware("kr62/inputs/5/value 1");
    EXPECT_EQ(read(client, INPUT + 4), "(1,)");
    pullCts(true);
    EXPECT_TRUE(hears(client, {CTS, 1}));
    service->signal(SIGTERM);
    EXPECT_EQ(service->waitForExit(), 0);
}

TEST_F(EndToEndTest, NoClientReadsAValueOfBoardsThatHaveGone) {
    const BusClient client;
    SteadyReader reader(INPUT + 4);
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        hardware("kr62/inputs/5/value 1");
        EXPECT_EQ(read(client, INPUT + 4), "(1,)");
        unloadBoards();
        EXPECT_THAT(read(client, INPUT + 4), HasSubstr("error opening file"));
        loadBoards();
        EXPECT_EQ(read(client, INPUT + 4), "(0,)") << "the boards start anew";
    }
    EXPECT_THAT(reader.stop(),
                UnorderedElementsAre(
                    "0", "1", "error opening file '" + IO_BOARD + "inputs/5/value' for reading"));
}

TEST_F(EndToEndTest, BoardsThatAreLoadedAgainAreConfiguredAndAnnouncedAgain) {
    const BusClient client;
    ASSERT_EQ(read(client, INPUT + 2), "(0,)");
    const std::size_t watches = watchesOf(service->pid());
    // Nobody calls the service meanwhile: it hears of the boards from the kernel alone.
    unloadBoards();
    service->waitForLine("the board at /sys/kernel/kr62 has gone");
    loadBoards();
    for (int board = 1; board <= 5; ++board) {
        service->waitForLine("is back;");
    }
    EXPECT_EQ(readFile(IO_BOARD + "inputs/3/edge"), "both\n");
    EXPECT_EQ(readFile(EXPANDER + "inputs/8/counter_edge"), "rising\n");
    EXPECT_TRUE(hears(client, {INPUT + 2, 0})) << "the value of now is not announced";
    hardware("kr62/inputs/3/value 1");
    EXPECT_TRUE(hears(client, {INPUT + 2, 1}));
    EXPECT_EQ(read(client, COUNTER + 2), "(1,)");
    hardware("pd5-1/inputs/8/value 1");
    EXPECT_TRUE(hears(client, {EXPANDER_INPUT + 7, 1}));
    EXPECT_EQ(watchesOf(service->pid()), watches) << "files that have gone are watched on";
}

}  // namespace
