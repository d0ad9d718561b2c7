// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "Build.h"
#include "IomapFixture.h"
#include "sim/Device.h"
#include "support/FileDescriptor.h"

namespace {

using testing::HasSubstr;

constexpr const char* FACTORY_INFO = "/tmp/factory_info_partition/factory_info_json";
constexpr const char* OS_RELEASE = "/usr/lib/os-release";
constexpr const char* ABSENT = "the service is not running; start iomappingd";

class IomapStatusTest : public IomapFixture {
 protected:
    void SetUp() override { std::filesystem::remove(FACTORY_INFO); }
    void TearDown() override {
        writeFile(OS_RELEASE, osRelease);
        std::filesystem::remove_all("/sys/kernel");
    }

    /// Runs iomap with some arguments and expects it to fail after no less than a second, and no
    /// later than half a second after it.
    static void expectFailureAfterASecond(const std::vector<std::string>& arguments,
                                          const std::string& reason) {
        const auto start = std::chrono::steady_clock::now();
        expectFailure(iomap(arguments), 3, reason);
        const auto taken = std::chrono::steady_clock::now() - start;
        EXPECT_GE(taken, std::chrono::milliseconds(1000));
        EXPECT_LT(taken, std::chrono::milliseconds(EMULATED || SANITIZED ? 6000 : 1500));
    }

    /// The command line of status for the map of the service and the list of boards beside it.
    std::vector<std::string> statusOf(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{"status", "--map", directory.path() / "map.json",
                                         "--runtime-directory", directory.path()};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    /// What status prints last while there are no boards and the service has not listed any.
    std::string noBoards() const {
        return "virtual in place of hardware: 0\nnot known: " + noList() + "\n";
    }

    /// The same as the last keys of the JSON object.
    std::string noBoardsJson() const {
        return R"("boards": [], "virtual_in_place": [], "not_known": [")" + noList() + R"("]})";
    }

    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 12})",
                                   R"({"address": 20, "size": 8, "count": 2, "type": "reserved"})",
                                   R"({"address": 30, "size": 32, "count": 1, "type": "uptime"})"});
    const std::string boardMap =
        mapOf({R"({"address": 1, "size": 8, "count": 1})",
               R"({"address": 40, "size": 32, "count": 1, "type": "hw_type"})",
               R"({"address": 41, "size": 32, "count": 1, "type": "fw_version"})"});

 private:
    std::string noList() const {
        return "which boards are served: there is no file '" +
               (directory.path() / "boards").string() + "'";
    }

    const std::string osRelease = readFile(OS_RELEASE);
};

/// A socket that takes one connection and drops it, as a bus that is only coming up.
class DroppingSocket {
 public:
    explicit DroppingSocket(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(
            bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener.get(), 1), 0);
    }

    void dropOne() const { const FileDescriptor taken(accept(listener.get(), nullptr, nullptr)); }

 private:
    FileDescriptor listener{socket(AF_UNIX, SOCK_STREAM, 0)};
};

TEST_F(IomapStatusTest, ARunningServiceIsStatus0WithItsRegistersByType) {
    startService(map);
    EXPECT_EQ(iomapDone(statusOf()),
              "service: running\n"
              "registers: 15\n"
              "  uptime: 1\n"
              "  reserved: 2\n"
              "  virtual: 12\n" +
                  noBoards());
    EXPECT_EQ(iomapJson(statusOf({"--json"})), json(R"({"alive": true, "registers": 15,
        "types": {"uptime": 1, "reserved": 2, "virtual": 12}, )" +
                                                    noBoardsJson()));
}

TEST_F(IomapStatusTest, AServiceWithoutRegistersIsAlive) {
    startService(mapOf({}));
    EXPECT_EQ(iomapDone(statusOf()), "service: running\nregisters: 0\n" + noBoards());
    EXPECT_EQ(iomapJson(statusOf({"--json"})),
              json(R"({"alive": true, "registers": 0, "types": {}, )" + noBoardsJson()));
}

TEST_F(IomapStatusTest, FirmwareAndHardwareAreShownWhenTheyAreMapped) {
    writeFile(FACTORY_INFO, R"({"HW_DEVICE": {"Legacy_HW_Type": "12"}})");
    writeFile(OS_RELEASE, "IMAGE_VERSION=2.3.4\n");
    startService(boardMap);
    EXPECT_EQ(iomapDone(statusOf()),
              "service: running\n"
              "registers: 3\n"
              "  hw_type: 1\n"
              "  fw_version: 1\n"
              "  virtual: 1\n"
              "firmware: 564 (0x234)\n"
              "hardware: 12\n" +
                  noBoards());
    EXPECT_EQ(iomapJson(statusOf({"--json"})), json(R"({"alive": true, "registers": 3,
        "types": {"hw_type": 1, "fw_version": 1, "virtual": 1},
        "firmware": 564, "hardware": 12, )" + noBoardsJson()));
}

TEST_F(IomapStatusTest, FirmwareAndHardwareThatCannotBeReadShowTheirErrors) {
    writeFile(OS_RELEASE, "IMAGE_VERSION=2\n");
    startService(boardMap);
    const std::string missing =
        std::string("error opening file '") + FACTORY_INFO + "' for reading";
    EXPECT_THAT(
        iomapDone({"status"}),
        HasSubstr("\nfirmware: invalid format for firmware version\nhardware: " + missing + "\n"));
    EXPECT_EQ(iomapJson(statusOf({"--json"})), json(R"({"alive": true, "registers": 3,
        "types": {"hw_type": 1, "fw_version": 1, "virtual": 1},
        "firmware_error": "invalid format for firmware version",
        "hardware_error": ")" + missing + R"(", )" + noBoardsJson()));
}

TEST_F(IomapStatusTest, BoardsThatAreLostOrNotServedAndVirtualRegistersAreShown) {
    const sim::Device device("/");
    for (const char* name : {"pd5-1", "pd5-2"}) {
        device.board(name).make({1, 0, 0, 0});
    }
    const std::string relays =
        R"(, "size": 1, "count": 2, "type": "relay", "virtual_backup": true, "driver": )";
    const auto service = launch(mapOf({R"({"address": 1)" + relays + R"("kr62"})",
                                       R"({"address": 5, "size": 1, "count": 1, "type": "relay",
                                           "driver": "pd5-1"})"}),
                                {}, {{"RUNTIME_DIRECTORY", directory.path()}});
    BusClient().waitForService();
    std::filesystem::remove_all("/sys/kernel/pd5-2");
    device.board("pd5-3").make({1, 0, 0, 0});
    const std::string text =
        "service: running\nregisters: 3\n  relay: 1\n  virtual: 2\nboards: 3\n  pd5-1: served\n"
        "  pd5-2: lost\n  pd5-3: not served\nvirtual in place of hardware: 2\n"
        "  1-2: relay of kr62\n";
    EXPECT_EQ(iomapDone(statusOf()), text);
    EXPECT_EQ(iomapJson(statusOf({"--json"})), json(R"({"alive": true, "registers": 3,
        "types": {"relay": 1, "virtual": 2},
        "boards": [{"name": "pd5-1", "state": "served"}, {"name": "pd5-2", "state": "lost"},
                   {"name": "pd5-3", "state": "not served"}],
        "virtual_in_place": [{"first": 1, "last": 2, "type": "relay", "driver": "kr62"}],
        "not_known": []})"));
    const Outcome strict = iomap(statusOf({"--strict"}));
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.output, text);
    EXPECT_EQ(strict.errors,
              "iomap: lost: pd5-2; not served: pd5-3; virtual in place of hardware: 1-2\n");
}

TEST_F(IomapStatusTest, StrictIsContentWithADeviceThatIsWell) {
    startService(map);
    EXPECT_THAT(iomapDone(statusOf({"--strict"})), HasSubstr("virtual in place of hardware: 0\n"));
}

TEST_F(IomapStatusTest, WithoutAServiceItIsStatus3AndSaysSo) {
    expectFailure(iomap({"status"}), 3, ABSENT);
    const Outcome outcome = iomap({"status", "--json"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.output, "{\"alive\":false}\n");
    EXPECT_EQ(outcome.errors, std::string("iomap: ") + ABSENT + "\n");
}

TEST_F(IomapStatusTest, AServiceThatTheBusCanStartIsReportedAndNotStarted) {
    bus.startOnDemand(BusClient::SERVICE, DAEMON + " --map " + directory.file("map.json", map));
    expectFailure(iomap({"status"}), 3, ABSENT);
    expectFailure(iomap({"status"}), 3, ABSENT);
}

TEST_F(IomapStatusTest, AStoppedBusIsStatus3After5Seconds) {
    bus.signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    expectFailure(
        iomap({"status"}), 3,
        "cannot reach the D-Bus system bus: Timeout was reached; is dbus-daemon running?");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
}

TEST_F(IomapStatusTest, WaitingForAStoppedBusEndsWhenTheTimeIsUp) {
    bus.signal(SIGSTOP);
    expectFailureAfterASecond(
        {"status", "--wait", "1"},
        "cannot reach the D-Bus system bus: Timeout was reached; is dbus-daemon running?");
}

TEST_F(IomapStatusTest, WaitingForAStoppedServiceEndsWhenTheTimeIsUp) {
    startService(map).signal(SIGSTOP);
    expectFailureAfterASecond({"status", "--wait", "1"},
                              "the service does not answer; restart iomappingd");
}

TEST_F(IomapStatusTest, WaitingEndsAsSoonAsAStoppedServiceGoesOn) {
    Process& service = startService(map);
    service.signal(SIGSTOP);
    Process monitor({"busctl", "--system", "monitor"});
    monitor.waitForLine("Monitoring bus message stream");
    Process waiter(commandOf({"status", "--wait", "1000"}));
    monitor.waitForLine("Member=GetAddrsPerType");
    service.signal(SIGCONT);
    EXPECT_EQ(waiter.waitForExit(), 0);
    EXPECT_THAT(waiter.standardOutput(), HasSubstr("registers: 15\n"));
}

TEST_F(IomapStatusTest, WithoutABusItIsStatus3AndSaysSo) {
    bus.kill();
    const Outcome outcome = iomap({"status", "--json"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.output, "{\"alive\":false}\n");
    EXPECT_EQ(outcome.errors,
              "iomap: cannot reach the D-Bus system bus: Could not connect: Connection refused; is "
              "dbus-daemon running?\n");
}

TEST_F(IomapStatusTest, WaitingEndsInVainWhenTheTimeIsUp) {
    const auto start = std::chrono::steady_clock::now();
    expectFailure(iomap({"status", "--wait", EMULATED ? "5" : "0.5"}), 3, ABSENT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST_F(IomapStatusTest, WaitingEndsAsSoonAsTheServiceRuns) {
    Process monitor({"busctl", "--system", "monitor"});
    monitor.waitForLine("Monitoring bus message stream");
    Process waiter(commandOf({"status", "--wait", "1000"}));
    monitor.waitForLine("Member=GetAddrsPerType");
    startService(map);
    EXPECT_EQ(waiter.waitForExit(), 0);
    EXPECT_THAT(waiter.standardOutput(), HasSubstr("registers: 15\n"));
    EXPECT_EQ(waiter.standardError(), "");
}

TEST_F(IomapStatusTest, WaitingGoesOnWhileThereIsNoBus) {
    startService(map);
    const std::string path = directory.path() / "socket";
    Process waiter({IOMAP, "status", "--wait", "1000"},
                   {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + path}});
    DroppingSocket(path).dropOne();
    std::filesystem::remove(path);
    std::filesystem::create_symlink(bus.address().substr(bus.address().find('/')), path);
    EXPECT_EQ(waiter.waitForExit(), 0);
    EXPECT_THAT(waiter.standardOutput(), HasSubstr("registers: 15\n"));
}

}  // namespace
