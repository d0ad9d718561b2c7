// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "Build.h"
#include "IomapFixture.h"

namespace {

using testing::HasSubstr;

constexpr const char* CPU_FILE = "/sys/class/thermal/thermal_zone0/temp";
constexpr const char* LONG_TIME = "1000";
/// A time that is up soon, but not before an emulated processor has found the service.
constexpr const char* SHORT_TIME = EMULATED ? "10" : SANITIZED ? "5" : "1";

/// The subcommand read with --wait.
class IomapReadWaitTest : public IomapFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/class");
        writeFile(CPU_FILE, "1000\n");
        service = &startService(map);
    }
    void TearDown() override { unsetenv("IO_MAPPING_LABELS"); }

    /// Starts a wait and returns when the service is being asked by it.
    static std::unique_ptr<Process> startWait(const std::vector<std::string>& arguments) {
        Process monitor({"busctl", "--system", "monitor"});
        monitor.waitForLine("Monitoring bus message stream");
        std::vector<std::string> command = commandOf({"read", "--timeout", LONG_TIME});
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto wait = std::make_unique<Process>(command);
        monitor.waitForLine("Member=ReadList");
        return wait;
    }

    /// Starts a wait that nothing ends, for register 1 among others, and returns when it has asked
    /// for the values and asks again for what is never announced.
    static std::unique_ptr<Process> startLongWait(const std::string& time) {
        Process monitor({"busctl", "--system", "monitor"});
        monitor.waitForLine("Monitoring bus message stream");
        auto wait = std::make_unique<Process>(
            commandOf({"read", "--timeout", time, "--wait", "1=1", "--wait", "40=1000"}));
        monitor.waitForLine("Member=ReadList");
        monitor.waitForLine("Member=ReadList");
        return wait;
    }

    static void end(Process& process) {
        process.signal(SIGTERM);
        process.waitForExit();
    }

    const std::string map =
        mapOf({R"({"address": 1, "size": 8, "count": 4})",
               R"({"address": 40, "size": 32, "count": 1, "type": "cpu_temp"})"});
    Process* service{nullptr};
};

TEST_F(IomapReadWaitTest, AValueThatIsThereAlreadyIsPrintedAtOnce) {
    iomapDone({"write", "2=7"});
    EXPECT_EQ(iomapDone({"read", "--wait", "2=7"}), "7\n");
    EXPECT_EQ(iomapDone({"read", "--wait", "1=0", "--timeout", LONG_TIME}), "0\n");
}

TEST_F(IomapReadWaitTest, AnAnnouncedChangeEndsTheWait) {
    const auto wait = startWait({"--wait", "1=1"});
    iomapDone({"write", "1=2", "1=1"});
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->standardOutput(), "1\n");
    EXPECT_EQ(wait->standardError(), "");
}

TEST_F(IomapReadWaitTest, AShortPulseIsEnough) {
    const auto wait = startWait({"--wait", "1=1"});
    wait->signal(SIGSTOP);
    iomapDone({"write", "1=1", "1=0"});
    wait->signal(SIGCONT);
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->standardOutput(), "1\n");
}

TEST_F(IomapReadWaitTest, WhatIsNeverAnnouncedIsReadAgainAndAgain) {
    const auto wait = startWait({"--wait", "40=2000"});
    writeFile(CPU_FILE, "2000\n");
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->standardOutput(), "2000\n");
}

TEST_F(IomapReadWaitTest, SeveralValuesAreWaitedForUntilAllAreThereAtTheSameTime) {
    const auto wait = startWait({"--wait", "1-2=1", "--wait", "3=3"});
    iomapDone({"write", "1=1", "3=3", "1=0", "2=1"});
    iomapDone({"write", "1=1"});
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->standardOutput(), "1\n1\n3\n");
}

TEST_F(IomapReadWaitTest, RegistersThatAreNamedAreReadAfterTheWait) {
    iomapDone({"write", "4=44"});
    EXPECT_EQ(iomapDone({"read", "--wait", "1=0", "4", "1"}), "44\n0\n");
    EXPECT_EQ(iomapJson({"read", "--json", "--wait", "4=44"}),
              json(R"([{"address": 4, "value": 44}])"));
}

TEST_F(IomapReadWaitTest, ANameIsWaitedForWithItsState) {
    const std::string file = directory.file(
        "labels.json",
        R"({"labels": {"1": {"name": "door", "states": {"0": "closed", "1": "open"}}}})");
    setenv("IO_MAPPING_LABELS", file.c_str(), 1);
    const auto wait = startWait({"--wait", "door=open"});
    iomapDone({"write", "door=open"});
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->standardOutput(), "open\n");
    expectFailure(iomap({"read", "--wait", "door=open", "--wait", "2=5", "--timeout", SHORT_TIME}),
                  1, "the time is up: register 2 (virtual 2) is 0, not 5");
    iomapDone({"write", "door=closed"});
    expectFailure(iomap({"read", "--wait", "door=open", "--timeout", SHORT_TIME}), 1,
                  "the time is up: register 1 (virtual 1) is closed, not open");
    expectFailure(iomap({"read", "--wait", "door=ajar"}), 1,
                  "door: 'ajar' is neither a number nor one of the states closed, open");
}

TEST_F(IomapReadWaitTest, TheEndOfTheTimeIsStatus1AndNamesTheValue) {
    const auto start = std::chrono::steady_clock::now();
    expectFailure(iomap({"read", "--wait", "1=1", "--timeout", SHORT_TIME}), 1,
                  "the time is up: register 1 (virtual 1) is 0, not 1");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    if (SANITIZED) {
        return;  // The last question has 0.4 s, which may be too little for such a build.
    }
    std::filesystem::remove(CPU_FILE);
    expectFailure(iomap({"read", "--wait", "40=1", "--timeout", SHORT_TIME}), 1,
                  std::string("the time is up: register 40 (cpu_temp 1): error opening file '") +
                      CPU_FILE + "' for reading");
}

TEST_F(IomapReadWaitTest, AnUnknownRegisterIsNotWaitedFor) {
    expectFailure(iomap({"read", "--wait", "99=1"}), 1, "register 99: address '99' not found");
}

TEST_F(IomapReadWaitTest, AServiceThatStartsAnewIsWaitedForAndAskedAgain) {
    const auto wait = startLongWait(LONG_TIME);
    end(*service);
    wait->waitForLine("iomap: the service has gone; waiting for it");
    startService(map);
    wait->waitForLine("iomap: the service is back");
    iomapDone({"write", "1=1"});
    EXPECT_EQ(wait->waitForExit(), 0);
}

TEST_F(IomapReadWaitTest, AServiceThatDoesNotComeBackIsStatus3) {
    const auto wait = startLongWait(EMULATED ? "60" : "10");
    end(*service);
    EXPECT_EQ(wait->waitForExit(), 3);
    EXPECT_THAT(wait->standardError(),
                HasSubstr("the time is up, and the service is not running; start iomappingd\n"));
}

TEST_F(IomapReadWaitTest, TheLossOfTheBusIsStatus3) {
    const auto wait = startLongWait(LONG_TIME);
    bus.kill();
    EXPECT_EQ(wait->waitForExit(), 3);
}

TEST_F(IomapReadWaitTest, AServiceThatIsBackAndHangsIsAskedAgain) {
    const auto wait = startLongWait(LONG_TIME);
    wait->signal(SIGSTOP);
    end(*service);
    service = &startService(map);
    service->signal(SIGSTOP);
    wait->signal(SIGCONT);
    wait->waitForLine("iomap: the service has gone; waiting for it");
    wait->waitForLine("iomap: the service does not answer; restart iomappingd");
    service->signal(SIGCONT);
    wait->waitForLine("iomap: the service is back");
    iomapDone({"write", "1=1"});
    EXPECT_EQ(wait->waitForExit(), 0);
}

TEST_F(IomapReadWaitTest, AServiceThatHangsTakesNoLongerByName) {
    const std::string file =
        directory.file("labels.json", R"({"labels": {"1": {"name": "door"}}})");
    setenv("IO_MAPPING_LABELS", file.c_str(), 1);
    service->signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    expectFailure(iomap({"read", "--wait", "door=1", "--timeout", "0.5"}), 3,
                  "the service does not answer; restart iomappingd");
    if (!EMULATED) {
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    }
    service->signal(SIGCONT);
}

}  // namespace
