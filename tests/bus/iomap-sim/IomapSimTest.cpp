// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include "Outcome.h"
#include "Process.h"
#include "TemporaryDirectory.h"
#include "sim/Device.h"

namespace {

using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* SENSOR = "28-00000a1b2c3d";

/// The command iomap-sim.
class IomapSimTest : public testing::Test {
 protected:
    std::vector<std::string> commandOf(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{IOMAP_SIM, "--root", directory.path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    /// A run in which nothing may go wrong.
    ///
    /// @return what it printed
    std::string done(const std::vector<std::string>& arguments) const {
        return expectSuccess(outcomeOf(commandOf(arguments)));
    }

    /// A failure that is reported on one line, and nothing on standard output.
    void expectFailure(const std::vector<std::string>& arguments, int status,
                       const std::string& reason) const {
        ::expectFailure(outcomeOf(commandOf(arguments)), "iomap-sim", status, reason);
    }

    std::string path(const std::string& file) const { return directory.path() / file; }

    TemporaryDirectory directory;
    sim::Device device{directory.path()};
};

TEST_F(IomapSimTest, MakesADevice) {
    done({"make"});
    EXPECT_EQ(done({"get", "cpu"}), "48312\n");
    done({"make", "kr62", "pd5-1"});
    EXPECT_THAT(device.boards(), testing::ElementsAre("kr62", "pd5-1"));
    EXPECT_EQ(device.board("kr62").counts().relays, 4);
    EXPECT_EQ(device.board("pd5-1").counts().relays, 8);
    done({"make", "pd5-2", "pd5-3", "--relays", "1", "--inputs", "2", "--outputs", "3", "--analogs",
          "0"});
    EXPECT_EQ(readFile(path("sys/kernel/pd5-3/info_io")),
              "relays 1\ninputs 2\noutputs 3\nanalogs 0\n");
    expectFailure({"make", "kr62"}, 1, path("sys/kernel/kr62") + " is there already");
}

TEST_F(IomapSimTest, SetsAndPrintsValues) {
    done({"make", "kr62"});
    done({"set", "kr62/analogs/2", "2048"});
    done({"set", "cpu", "-5000"});
    EXPECT_EQ(done({"get", "kr62/analogs/2"}), "2048\n");
    EXPECT_EQ(done({"get", "cpu"}), "-5000\n");
    expectFailure({"set", "kr62/relays/1", "on"}, 1,
                  "kr62/relays/1 is a number of 32 bits, not 'on'");
    expectFailure({"get", "kr62/relays/5"}, 1,
                  "there is no " + path("sys/kernel/kr62/relays/5") +
                      "; is its board made and not pulled, its sensor plugged?");
}

TEST_F(IomapSimTest, PushesButtons) {
    done({"make", "kr62", "pd5-1"});
    done({"set", "kr62/inputs/3/counter_edge", "both"});
    done({"press", "3", "--for", "0"});
    EXPECT_EQ(done({"get", "kr62/inputs/3/counter"}), "2\n");
    EXPECT_EQ(done({"get", "kr62/inputs/3"}), "0\n");
    done({"toggle", "pd5-1/8"});
    EXPECT_EQ(done({"get", "pd5-1/inputs/8"}), "1\n");
    done({"toggle", "pd5-1/8"});
    EXPECT_EQ(done({"get", "pd5-1/inputs/8"}), "0\n");
}

TEST_F(IomapSimTest, AButtonIsHeldForAWhile) {
    done({"make", "kr62"});
    const Process press(commandOf({"press", "1", "--for", "60"}));
    EXPECT_TRUE(device.value("kr62/inputs/1").waitFor("1", std::chrono::seconds(30)));
}

TEST_F(IomapSimTest, RefusesWhatIsNoInput) {
    done({"make", "kr62"});
    for (const std::string input : {"x", "", "-", "kr62/", "99999999999"}) {
        expectFailure(
            {"press", input}, 1,
            "'" + input + "' is no input; 3 is one of the IO board, pd5-1/3 one of an expander");
    }
    expectFailure({"toggle", "9"}, 1,
                  "there is no " + path("sys/kernel/kr62/inputs/9") +
                      "; is its board made and not pulled, its sensor plugged?");
    expectFailure({"press", "3/1"}, 1,
                  "no board is called '3'; kr62 is the IO board, pd5-1 an expander");
    expectFailure({"press", "pd6-1/1"}, 1,
                  "no board is called 'pd6-1'; kr62 is the IO board, pd5-1 an expander");
}

TEST_F(IomapSimTest, PlugsAndUnplugsSensors) {
    done({"make"});
    done({"plug", SENSOR});
    EXPECT_EQ(done({"get", SENSOR}), "20000\n");
    done({"unplug", SENSOR});
    done({"plug", SENSOR, "-4250"});
    EXPECT_EQ(done({"get", SENSOR}), "-4250\n");
    expectFailure({"plug", SENSOR}, 1, "the sensor 28-00000a1b2c3d is plugged already");
    expectFailure({"plug", "28-1"}, 1, "'28-1' is no address of a sensor, such as 28-00000a1b2c3d");
    expectFailure({"unplug", "28-1"}, 1, "no sensor 28-1 is plugged");
}

TEST_F(IomapSimTest, PullsABoardAndPutsItBack) {
    done({"make", "kr62"});
    done({"set", "kr62/relays/1", "1"});
    done({"pull", "kr62"});
    EXPECT_FALSE(std::filesystem::exists(path("sys/kernel/kr62")));
    done({"restore", "kr62"});
    EXPECT_EQ(done({"get", "kr62/relays/1"}), "1\n");
    expectFailure({"restore", "kr62"}, 1,
                  "no board has been pulled from " + path("sys/kernel/kr62"));
    expectFailure({"pull", "pd5-1"}, 1, "no board at " + path("sys/kernel/pd5-1"));
}

TEST_F(IomapSimTest, WaitsForAValue) {
    done({"make", "kr62"});
    expectFailure({"expect", "kr62/relays/1", "1", "--within", "0.05"}, 1,
                  "kr62/relays/1 is '0', not '1', after 0.05 s");
    Process expectation(commandOf({"expect", "kr62/relays/1", "1", "--within", "30"}));
    writeFile(path("sys/kernel/kr62/relays/1/value"), "1");
    EXPECT_EQ(expectation.waitForExit(), 0);
    EXPECT_EQ(expectation.standardOutput(), "");
    done({"expect", "kr62/inputs/1/edge", "none", "--within", "0"});
}

TEST_F(IomapSimTest, LetsTheDeviceLive) {
    done({"make", "kr62", "pd5-1"});
    const std::vector<std::string> command{"run", "--rate", "1000", "--seconds", "0.1"};
    const auto steps = Process::lines(done(command));
    EXPECT_THAT(steps, SizeIs(testing::Gt(1U)));
    EXPECT_THAT(steps, Each(MatchesRegex("set [^ ]+ [0-9]+")));
    EXPECT_EQ(
        done({"run", "--rate", "1000", "--seconds", "0.1", "--seed", "2", "--boards", "--quiet"}),
        "");
    EXPECT_EQ(device.boards().size(), 2U);
}

TEST_F(IomapSimTest, TheSameSeedGivesTheSameStepsAndCommands) {
    const auto stepsOn = [](const std::filesystem::path& root) {
        const sim::Device other(root);
        other.make();
        other.makeBoard("kr62");
        Process process(
            {IOMAP_SIM, "run", "--seconds", "0.3", "--root", root, "--seed", "5", "--rate", "20"});
        EXPECT_EQ(process.waitForExit(), 0);
        return Process::lines(process.standardOutput());
    };
    auto one = stepsOn(path("one"));
    auto other = stepsOn(path("other"));
    // A run on a busy machine may be cut off earlier than the other.
    one.resize(std::min(one.size(), other.size()));
    other.resize(one.size());
    EXPECT_THAT(one, SizeIs(testing::Ge(1U)));
    EXPECT_EQ(one, other);
}

TEST_F(IomapSimTest, ASignalEndsTheRunInGoodOrder) {
    done({"make", "kr62"});
    for (const int signal : {SIGINT, SIGTERM}) {
        Process process(commandOf({"run", "--rate", "200", "--boards"}));
        process.waitForLine("pull kr62");
        process.signal(signal);
        EXPECT_EQ(process.waitForExit(), 0);
        EXPECT_TRUE(device.board("kr62").isThere());
    }
}

TEST_F(IomapSimTest, TheDeviceIsNamedByTheEnvironmentToo) {
    Process process({IOMAP_SIM, "make"}, {{"IOMAP_SIM_ROOT", directory.path()}});
    EXPECT_EQ(process.waitForExit(), 0);
    EXPECT_EQ(done({"get", "cpu"}), "48312\n");
}

TEST_F(IomapSimTest, AWrongCommandLineIsRefusedInOneLine) {
    const auto expectRefusal = [](const std::vector<std::string>& command) {
        Process process(command);
        EXPECT_EQ(process.waitForExit(), 2);
        const auto lines = Process::lines(process.standardError());
        ASSERT_THAT(lines, SizeIs(1));
        EXPECT_THAT(lines[0], StartsWith("iomap-sim: "));
        EXPECT_THAT(lines[0], HasSubstr("see iomap-sim --help"));
    };
    expectRefusal({IOMAP_SIM});
    expectRefusal({IOMAP_SIM, "make"});
    expectRefusal(commandOf({}));
    expectRefusal(commandOf({"break"}));
    expectRefusal(commandOf({"set", "cpu"}));
    expectRefusal(commandOf({"press"}));
    expectRefusal(commandOf({"make", "kr62", "--relays", "-1"}));
    expectRefusal(commandOf({"run", "--rate", "0"}));
    expectRefusal(commandOf({"expect", "cpu", "1", "--within", "soon"}));
}

TEST_F(IomapSimTest, HelpNamesEverySubcommand) {
    const std::string help = done({"--help"});
    for (const char* name : {"make", "pull", "restore", "plug", "unplug", "press", "toggle", "set",
                             "get", "expect", "run"}) {
        EXPECT_THAT(help, HasSubstr(std::string("\n  ") + name + " "));
        EXPECT_THAT(done({name, "--help"}), HasSubstr(std::string("Usage: iomap-sim ") + name));
    }
    EXPECT_THAT(done({"--version"}), MatchesRegex("iomap-sim [0-9.]+\n"));
}

}  // namespace
