// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <filesystem>

#include "BusFixture.h"
#include "Outcome.h"
#include "sim/Device.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* RELAY = R"({"address": 1, "size": 1, "count": 2, "type": "relay",
                                  "driver": "kr62", "virtual_backup": true})";
constexpr const char* INPUT = R"({"address": 11, "size": 1, "count": 2, "type": "input_digital",
                                  "driver": "kr62", "virtual_backup": true})";
constexpr const char* EXPANDER_RELAY = R"({"address": 21, "size": 1, "count": 1, "type": "relay",
                                           "driver": "pd5-3", "virtual_backup": true})";
constexpr const char* COUNTS = R"({"address": 31, "size": 16, "count": 1, "type": "count_relays",
                                   "driver": "special"})";
constexpr const char* DETECTED = R"({"address": 41, "size": 1, "count": 4, "type": "pd5_detected",
                                     "driver": "special"})";

// No machine has a chip of this number.
constexpr const char* RTS = R"({"address": 51, "size": 1, "count": 1, "type": "rts",
                                "driver": "gpiochip-99", "virtual_backup": true})";
constexpr const char* CTS = R"({"address": 52, "size": 1, "count": 1, "type": "cts",
                                "driver": "gpiochip-99", "virtual_backup": true})";
constexpr const char* CTS_ALONE = R"({"address": 52, "size": 1, "count": 1, "type": "cts",
                                      "driver": "gpiochip-99"})";
constexpr const char* CHIP_MISSING =
    "Error iomappingd: the driver gpiochip-99 is left out: cannot open GPIO device gpiochip99: No "
    "such file or directory; see whether /dev/gpiochip99 is there and may be opened";

/// The daemon on boards in the real paths.
class BoardsTest : public BusFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/kernel");
        board.make({2, 2, 0, 0});
        expander.make({4, 0, 0, 0});
        expander.relay(1).set(1);
    }

    const sim::Device device{"/"};
    const sim::Board board = device.board("kr62");
    const sim::Board expander = device.board("pd5-3");
};

TEST_F(BoardsTest, TheBoardsThatAreThereServeTheirIos) {
    startService(mapOf({RELAY, INPUT, EXPANDER_RELAY, COUNTS, DETECTED}));
    const BusClient client;
    EXPECT_EQ(client.call("ReadList", "(<[1, 21, 31, 41, 42, 43, 44]>,)").text(),
              "(<[0, 1, 6, 0, 0, 1, 0]>,)");
    EXPECT_EQ(client.call("Write", "(2, 1)").text(), "()");
    EXPECT_EQ(board.relay(2).number(), 1);
    EXPECT_EQ(client.call("Write", "(11, 1)").text(),
              "org.freedesktop.DBus.Error.Failed: write not supported for IO type input_digital");
}

TEST_F(BoardsTest, AChangeOfAWatchedFileReachesEveryClient) {
    startService(mapOf({RELAY, INPUT}));
    const BusClient one;
    const BusClient other;
    one.call("Read", "(1,)");
    other.call("Read", "(1,)");
    board.setInput(2, 1);
    for (const BusClient* client : {&one, &other}) {
        ASSERT_TRUE(client->waitForChanges(1));
        EXPECT_THAT(client->changes(), ElementsAre(std::pair(12, 1)));
    }
}

TEST_F(BoardsTest, ABrokenBoardIsOneErrorLineAndTheServiceGoesOnWithoutIt) {
    writeFile("/sys/kernel/kr62/info_io", "relays many\n");
    std::filesystem::remove("/sys/kernel/pd5-3/info_io");
    Process& service = startService(mapOf({RELAY, EXPANDER_RELAY}));
    EXPECT_EQ(BusClient().call("GetParams", "(1,)").text(), "(29, 1, 1)") << "not virtual";
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0);
    const auto lines = Process::lines(service.standardError());
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[0], HasSubstr("Error iomappingd: the board at /sys/kernel/kr62 is left out: "
                                    "Syntax error: Not a valid unsigned integer: many; see "
                                    "/sys/kernel/kr62/info_io"));
    EXPECT_THAT(lines[1], HasSubstr("Error iomappingd: the board at /sys/kernel/pd5-3 is left out: "
                                    "file /sys/kernel/pd5-3/info_io not found"));
    EXPECT_THAT(lines[2], HasSubstr("addresses 1-2: virtual, switching nothing: driver 'kr62'"));
    EXPECT_THAT(lines[3], HasSubstr("address 21: virtual, switching nothing: driver 'pd5-3'"));
}

TEST_F(BoardsTest, AChipThatIsMissingIsOneErrorLineAndItsFieldsFallBack) {
    Process& service = startService(mapOf({RTS, CTS, COUNTS}));
    const BusClient client;
    EXPECT_EQ(client.call("GetParams", "(51,)").text(), "(29, 1, 1)") << "not virtual";
    EXPECT_EQ(client.call("Write", "(52, 1)").text(), "()");
    EXPECT_EQ(client.call("ReadList", "(<[51, 52, 31]>,)").text(), "(<[0, 1, 6]>,)");
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0);
    EXPECT_THAT(Process::lines(service.standardError()),
                ElementsAre(HasSubstr(CHIP_MISSING), HasSubstr("address 51: virtual, "),
                            HasSubstr("address 52: virtual, ")));
}

TEST_F(BoardsTest, AChipThatIsMissingFailsAFieldWithoutABackup) {
    const auto service = launch(mapOf({RTS, CTS_ALONE}));
    EXPECT_EQ(service->waitForExit(), 1);
    EXPECT_THAT(Process::lines(service->standardError()),
                ElementsAre(HasSubstr(CHIP_MISSING), HasSubstr("address 51: virtual, "),
                            HasSubstr("driver not found or not supported on address 52"),
                            HasSubstr("field io_mapping[1], address 52"),
                            HasSubstr("Fatal server: error parsing field")));
}

TEST_F(BoardsTest, ACheckLooksAtTheBoardsAndConfiguresNothing) {
    const std::string path = directory.file("map.json", mapOf({RELAY, INPUT, EXPANDER_RELAY}));
    const std::string edge = "/sys/kernel/kr62/inputs/1/edge";
    writeFile(edge, "none");
    const auto age = std::filesystem::last_write_time(edge);
    Outcome outcome = outcomeOf({DAEMON, "--check", "--map", path});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
    EXPECT_EQ(std::filesystem::last_write_time(edge), age);
    EXPECT_EQ(std::filesystem::file_size(edge), 4U);

    std::filesystem::remove("/sys/kernel/kr62/relays/2/value");
    writeFile("/sys/kernel/pd5-3/info_io", "relays many\n");
    outcome = outcomeOf({DAEMON, "--check", "--map", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output,
                HasSubstr("/map.json: warning: the board at /sys/kernel/pd5-3 is left out: "));
    EXPECT_THAT(outcome.output, HasSubstr("error enabling notification for file "
                                          "'/sys/kernel/kr62/relays/2/value': No such file"));
    EXPECT_THAT(outcome.output, HasSubstr("address 21: virtual, switching nothing: "));
    EXPECT_EQ(outcomeOf({DAEMON, "--check", "--devices", "kr62,pd5-3", "--map", path}).output, "");
}

TEST_F(BoardsTest, ABoardThatComesLaterIsUnservedAndOneThatComesBackIsNot) {
    const std::string list = directory.path() / "boards";
    const auto unserved = [&list] { return outcomeOf({UNSERVED_BOARDS, list}); };
    EXPECT_EQ(unserved().output, "kr62\npd5-3\n") << "there is no list yet";
    const auto service =
        launch(mapOf({RELAY, EXPANDER_RELAY}), {}, {{"RUNTIME_DIRECTORY", directory.path()}});
    BusClient().waitForService();
    EXPECT_EQ(unserved().status, 1);
    std::filesystem::remove_all("/sys/kernel/kr62");
    EXPECT_EQ(unserved().status, 1);
    board.make({2, 2, 0, 0});
    EXPECT_EQ(unserved().status, 1);
    for (const char* name : {"pd5-1", "pd5-13"}) {
        device.board(name).make({1, 0, 0, 0});
    }
    const Outcome outcome = unserved();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "pd5-1\npd5-13\n");
}

TEST_F(BoardsTest, ABoardThatTheServiceNeverServesIsNotUnserved) {
    const auto service = launch(mapOf({RELAY}), {}, {{"RUNTIME_DIRECTORY", directory.path()}});
    BusClient().waitForService();
    std::filesystem::create_directories("/sys/kernel/pd5-1");
    writeFile("/sys/kernel/pd5-16/info_io", "relays 1\n");
    EXPECT_EQ(outcomeOf({UNSERVED_BOARDS, directory.path() / "boards"}).status, 1);
}

TEST_F(BoardsTest, AChipThatNoFieldNamesIsNotLookedFor) {
    Process& service = startService(mapOf({COUNTS}));
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0);
    EXPECT_EQ(service.standardError(), "");
}

TEST_F(BoardsTest, TheServiceMayHaveDescriptorsOutOfReachOfTheKeysOfFiles) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit low{1024, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    const Process& service = startService(mapOf({COUNTS}));
    setrlimit(RLIMIT_NOFILE, &before);
    rlimit limit{};
    ASSERT_EQ(prlimit(service.pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    EXPECT_GT(limit.rlim_cur, 4096U);
}

TEST_F(BoardsTest, ABoardThatIsPulledFailsItsReadsAloneAndWorksWhenItIsBack) {
    startService(mapOf({RELAY, EXPANDER_RELAY}));
    const BusClient client;
    board.pull();
    EXPECT_EQ(client.call("Read", "(1,)").text(),
              "org.freedesktop.DBus.Error.Failed: error opening file "
              "'/sys/kernel/kr62/relays/1/value' for reading");
    EXPECT_EQ(client.call("Read", "(21,)").text(), "(1,)");
    board.restore();
    board.relay(1).set(1);
    EXPECT_EQ(client.call("Read", "(1,)").text(), "(1,)");
}

TEST_F(BoardsTest, ABoardThatIsPulledWhileWatchedDisturbsNoOther) {
    Process& service = startService(mapOf({RELAY, INPUT, EXPANDER_RELAY}));
    const BusClient client;
    client.call("Read", "(1,)");
    board.pull();
    // The kernel reports a watched file that has gone, which is served like a change.
    service.waitForLine("Error register-map");
    expander.relay(1).set(0);
    ASSERT_TRUE(client.waitForChanges(1));
    EXPECT_THAT(client.changes(), ElementsAre(std::pair(21, 0)));
    service.signal(SIGTERM);
    service.waitForExit();
    EXPECT_THAT(service.standardError(),
                HasSubstr("error reading value for notification: error opening file "
                          "'/sys/kernel/kr62/relays/1/value' for reading"));
}

TEST_F(BoardsTest, AValueFileThatCannotBeReadFailsItsRegisterAlone) {
    const std::filesystem::path file = "/sys/kernel/kr62/relays/1/value";
    const std::string error =
        "org.freedesktop.DBus.Error.Failed: error opening file "
        "'/sys/kernel/kr62/relays/1/value' for ";
    startService(mapOf({RELAY, EXPANDER_RELAY}));
    const BusClient client;
    const auto expectFailure = [&] {
        EXPECT_EQ(client.call("Read", "(1,)").text(), error + "reading");
        EXPECT_EQ(client.call("Write", "(1, 1)").text(), error + "writing");
        EXPECT_EQ(client.call("ReadList", "(<[2, 1]>,)").text(), error + "reading");
        EXPECT_EQ(client.call("ReadList", "(<[2, 21]>,)").text(), "(<[0, 1]>,)");
    };
    std::filesystem::remove(file);
    expectFailure();
    std::filesystem::create_symlink(file, file);
    expectFailure();
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    expectFailure();
    std::filesystem::remove(file);
    writeFile(file, "1\n");
    EXPECT_EQ(client.call("Read", "(1,)").text(), "(1,)");
}

}  // namespace
