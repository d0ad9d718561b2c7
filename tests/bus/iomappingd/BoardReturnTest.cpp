// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "Build.h"
#include "BusFixture.h"
#include "Deadline.h"
#include "ProcessFigures.h"
#include "sim/Device.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Change = BusClient::Change;

constexpr const char* RELAYS = R"({"address": 1, "size": 1, "count": 2, "type": "relay",
                                   "driver": "kr62"})";
constexpr const char* INPUTS = R"({"address": 11, "size": 1, "count": 2, "type": "input_digital",
                                   "driver": "kr62"})";
constexpr const char* COUNTERS = R"({"address": 21, "size": 32, "count": 2,
                                     "type": "input_counter", "driver": "kr62"})";
constexpr const char* SECOND_RELAYS = R"({"address": 31, "size": 1, "count": 1, "type": "relay",
                                          "driver": "kr62"})";
constexpr const char* EXPANDER_RELAY = R"({"address": 41, "size": 1, "count": 1, "type": "relay",
                                           "driver": "pd5-3"})";

constexpr const char* GONE = "the board at /sys/kernel/kr62 has gone";
constexpr const char* BACK = "the board at /sys/kernel/kr62 is back";
constexpr sim::IoCounts COUNTS{2, 2, 0, 0};

/// How often the threads of a process have gone to sleep.
long sleepsOf(pid_t pid) {
    long sum = 0;
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        const std::string status = readFile(thread.path() / "status");
        const std::string key = "\nvoluntary_ctxt_switches:";
        sum += std::stol(status.substr(status.find(key) + key.size()));
    }
    return sum;
}

/// Whether a process comes to sleep for more than a second on end.
bool comesToRest(pid_t pid) {
#ifdef __SANITIZE_THREAD__
    // A thread of ThreadSanitizer's own wakes up all the time. The other builds look.
    return true;
#endif
    const Deadline deadline;
    while (!deadline.passed()) {
        const long before = sleepsOf(pid);
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        if (sleepsOf(pid) == before) {
            return true;
        }
    }
    return false;
}

/// The daemon on boards that go and come back.
class BoardReturnTest : public BusFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/kernel");
        board.make(COUNTS);
        expander.make({1, 0, 0, 0});
        service = &startService(mapOf({RELAYS, INPUTS, COUNTERS, SECOND_RELAYS, EXPANDER_RELAY}));
        // A reply tells that the signals of this client are subscribed to.
        client.call("Read", "(1,)");
    }

    /// Makes the board anew, with a relay and an input on. Its edges are at their defaults.
    ///
    /// @param missing a file of the board that is not there yet
    void makeAnew(const std::string& missing = "none") const {
        const sim::Board spare(directory.path() / "spare/kr62", sim::Board::Type::IO_BOARD);
        spare.make(COUNTS);
        spare.relay(1).set(1);
        spare.input(2).set(1);
        const std::string coming = "/sys/kernel/.coming";
        std::filesystem::copy(spare.path(), coming, std::filesystem::copy_options::recursive);
        std::filesystem::remove(std::filesystem::path(coming) / missing);
        std::filesystem::rename(coming, board.path());
    }

    /// Waits until the last change heard of is this one.
    bool hearsLast(const Change& change) const {
        return runUntil([this, &change] {
            return !client.changes().empty() && client.changes().back() == change;
        });
    }

    /// Expects each register to be announced once, with its value.
    void expectAnnouncedOnce() const {
        ASSERT_TRUE(client.waitForChanges(5));
        // Whatever comes twice is here before this.
        expander.relay(1).set(1);
        ASSERT_TRUE(hearsLast({41, 1}));
        EXPECT_THAT(client.changes(),
                    UnorderedElementsAre(Change(1, 1), Change(2, 0), Change(11, 0), Change(12, 1),
                                         Change(31, 1), Change(41, 1)));
    }

    void expectConfigured() const {
        for (const std::string number : {"1", "2"}) {
            const auto input = board.path() / "inputs" / number;
            EXPECT_EQ(readFile(input / "edge"), "both");
            EXPECT_EQ(readFile(input / "counter_edge"), "rising");
        }
    }

    /// Expects that a change of each file is announced, and of nothing else.
    void expectChangesAnnounced() const {
        const std::size_t before = client.changes().size();
        board.relay(2).set(1);
        board.setInput(1, 1);
        ASSERT_TRUE(client.waitForChanges(before + 2));
        EXPECT_THAT(
            std::vector<Change>(client.changes().begin() + static_cast<std::ptrdiff_t>(before),
                                client.changes().end()),
            ElementsAre(Change(2, 1), Change(11, 1)));
        EXPECT_EQ(client.call("Read", "(21,)").text(), "(1,)") << "not counted";
    }

    /// The lines of the service about boards and their files that are back.
    std::vector<std::string> notices() {
        service->signal(SIGTERM);
        EXPECT_EQ(service->waitForExit(), 0);
        std::vector<std::string> result;
        for (const std::string& line : Process::lines(service->standardError())) {
            if (line.find("board-watch") != std::string::npos) {
                result.push_back(line);
            }
        }
        return result;
    }

    const sim::Device device{"/"};
    const sim::Board board = device.board("kr62");
    const sim::Board expander = device.board("pd5-3");
    const BusClient client;
    Process* service{nullptr};
};

TEST_F(BoardReturnTest, ABoardThatIsRemovedAndMadeAgainIsConfiguredAndAnnouncedOnce) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    EXPECT_THAT(client.changes(), IsEmpty());
    makeAnew();
    service->waitForLine(BACK);
    expectConfigured();
    expectAnnouncedOnce();
    expectChangesAnnounced();
    EXPECT_THAT(notices(), ElementsAre(HasSubstr(GONE), HasSubstr(BACK)));
}

TEST_F(BoardReturnTest, ABoardIsTakenBackWithinTwoSeconds) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    const auto start = std::chrono::steady_clock::now();
    makeAnew();
    ASSERT_TRUE(client.waitForChanges(5));
    // Other processors and builds are many times slower.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(EMULATED    ? 60
                                                                             : SANITIZED ? 10
                                                                                         : 2));
}

TEST_F(BoardReturnTest, ABoardThatIsReplacedAtOnceIsTakenForGoneAndBack) {
    std::filesystem::rename(board.path(), "/sys/kernel/.away");
    makeAnew();
    service->waitForLine(BACK);
    expectConfigured();
    expectAnnouncedOnce();
    // The watches of the board that is away have ended.
    writeFile("/sys/kernel/.away/relays/1/value", "1");
    std::filesystem::remove_all("/sys/kernel/.away");
    expectChangesAnnounced();
    EXPECT_THAT(notices(), ElementsAre(HasSubstr(GONE), HasSubstr(BACK)));
}

TEST_F(BoardReturnTest, ABoardThatIsMovedAwayAndBackIsAnnouncedAgain) {
    std::filesystem::rename(board.path(), "/sys/kernel/.away");
    service->waitForLine(GONE);
    writeFile("/sys/kernel/.away/inputs/1/edge", "none");
    std::filesystem::rename("/sys/kernel/.away", board.path());
    service->waitForLine(BACK);
    expectConfigured();
    ASSERT_TRUE(client.waitForChanges(5));
    EXPECT_THAT(client.changes(), UnorderedElementsAre(Change(1, 0), Change(2, 0), Change(11, 0),
                                                       Change(12, 0), Change(31, 0)));
    expectChangesAnnounced();
    EXPECT_THAT(notices(), ElementsAre(HasSubstr(GONE), HasSubstr(BACK)));
}

TEST_F(BoardReturnTest, ABoardThatComesBackFileByFileIsTakenWhenItIsWhole) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    const sim::Board spare(directory.path() / "spare/kr62", sim::Board::Type::IO_BOARD);
    spare.make(COUNTS);
    std::filesystem::create_directory(board.path());
    std::filesystem::copy(spare.path() / "relays", board.path() / "relays",
                          std::filesystem::copy_options::recursive);
    std::filesystem::copy(spare.path() / "info_io", board.path() / "info_io");
    service->waitForLine("cannot be taken back yet");
    const std::string coming = "/sys/kernel/.coming";
    std::filesystem::copy(spare.path() / "inputs", coming,
                          std::filesystem::copy_options::recursive);
    std::filesystem::rename(coming, board.path() / "inputs");
    service->waitForLine(BACK);
    expectConfigured();
}

TEST_F(BoardReturnTest, TwoBoardsThatGoAtOnceAreTwoLinesEach) {
    std::filesystem::remove_all("/sys/kernel");
    service->waitForLine(GONE);
    expander.make({1, 0, 0, 0});
    service->waitForLine("the board at /sys/kernel/pd5-3 is back");
    board.make(COUNTS);
    service->waitForLine(BACK);
    ASSERT_TRUE(client.waitForChanges(6));
    EXPECT_EQ(client.changes().front(), Change(41, 0));
    EXPECT_EQ(client.changes().size(), 6U);
    EXPECT_THAT(
        notices(),
        UnorderedElementsAre(HasSubstr(GONE), HasSubstr("the board at /sys/kernel/pd5-3 has gone"),
                             HasSubstr("the board at /sys/kernel/pd5-3 is back"), HasSubstr(BACK)));
}

TEST_F(BoardReturnTest, ABoardWithOtherNumbersOfIosIsAWarning) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    board.make({3, 2, 0, 0});
    service->waitForLine("has come back with another info_io");
    ASSERT_TRUE(client.waitForChanges(5));
    EXPECT_EQ(client.call("Read", "(1,)").text(), "(0,)");
}

TEST_F(BoardReturnTest, AFileThatIsReplacedIsConfiguredAndAnnouncedAgain) {
    const auto input = board.path() / "inputs/2";
    writeFile(input / "edge", "none");
    writeFile(input / "new", "1\n");
    std::filesystem::rename(input / "new", input / "value");
    service->waitForLine("file '/sys/kernel/kr62/inputs/2/value' was replaced");
    EXPECT_EQ(readFile(input / "edge"), "both");
    board.setInput(2, 0);
    ASSERT_TRUE(hearsLast({12, 0}));
    // More such lines of the same file would be no news.
    writeFile(input / "new", "1\n");
    std::filesystem::rename(input / "new", input / "value");
    ASSERT_TRUE(comesToRest(service->pid()));
    board.setInput(2, 0);
    ASSERT_TRUE(hearsLast({12, 0}));
    EXPECT_THAT(notices(), ElementsAre(HasSubstr("inputs/2/value' was replaced")));
}

TEST_F(BoardReturnTest, AFileThatIsDeletedIsTakenBackWhenItIsThereAgain) {
    const auto relay = board.path() / "relays/1/value";
    std::filesystem::remove(relay);
    for ([[maybe_unused]] const int address : {1, 31}) {
        service->waitForLine("error reading value for notification");
    }
    // Gone for more than one look.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    writeFile(board.path() / "new", "1\n");
    std::filesystem::rename(board.path() / "new", relay);
    // Both registers on the file.
    ASSERT_TRUE(client.waitForChanges(2));
    EXPECT_THAT(client.changes(), ElementsAre(Change(1, 1), Change(31, 1)));
    service->waitForLine("file '/sys/kernel/kr62/relays/1/value' was replaced");
    board.relay(1).set(0);
    ASSERT_TRUE(client.waitForChanges(4));
}

TEST_F(BoardReturnTest, AnEdgeFileThatCannotBeWrittenYetIsTriedAgain) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    makeAnew("inputs/2/edge");
    const auto edge = board.path() / "inputs/2/edge";
    service->waitForLine(BACK);
    ASSERT_TRUE(client.waitForChanges(5));
    // Never seen before it is whole.
    const std::string coming = "/sys/kernel/.edge";
    writeFile(coming, "none");
    std::filesystem::rename(coming, edge);
    // Announced once more: the input may have changed while it told nobody.
    ASSERT_TRUE(client.waitForChanges(10));
    EXPECT_EQ(readFile(edge), "both");
    EXPECT_TRUE(comesToRest(service->pid()));
}

TEST_F(BoardReturnTest, AServiceThatMissesNothingSleeps) {
    EXPECT_TRUE(comesToRest(service->pid()));
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    makeAnew();
    service->waitForLine(BACK);
    EXPECT_TRUE(comesToRest(service->pid()));
}

TEST_F(BoardReturnTest, AServiceThatMissesABoardSleepsBetweenTwoLooks) {
    std::filesystem::remove_all(board.path());
    service->waitForLine(GONE);
    constexpr std::chrono::seconds WATCHED(1);
    const double before = processorTime(service->pid());
    std::this_thread::sleep_for(WATCHED);
    // One that did not sleep would get this much even on a busy machine.
    EXPECT_LE(processorTime(service->pid()) - before, SANITIZED || EMULATED ? 0.5 : 0.1);
}

}  // namespace
