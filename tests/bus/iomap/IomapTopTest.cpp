// SPDX-License-Identifier: MIT
#include <csignal>
#include <filesystem>
#include <regex>
#include <stdexcept>

#include "Deadline.h"
#include "IomapFixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

/// iomap in a terminal of its own, which a multiplexer draws.
class IomapTopTest : public IomapFixture {
 protected:
    /// Starts a shell in the terminal that runs iomap, tells its exit status, and stays.
    void start(const std::string& arguments) {
        const std::string modes = "stty -g >" + (directory.path() / "modes").string();
        const std::string script = modes + ".before; " + std::string(IOMAP) + " " + arguments +
                                   "; echo ended: $?; " + modes + ".after; exec cat";
        const Deadline deadline;
        // The server makes its socket soon after its start.
        while (tmux({"new-session", "-d", "-x", "90", "-y", "12", script}).status != 0) {
            ASSERT_FALSE(deadline.passed());
        }
    }

    Outcome tmux(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{"tmux", "-N", "-S", socket()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return outcomeOf(command);
    }

    void press(const std::string& key) const { EXPECT_EQ(tmux({"send-keys", key}).status, 0); }

    /// Waits until the screen shows a text.
    ///
    /// @return the screen
    std::string waitFor(const std::string& text) const {
        const Deadline deadline;
        std::string screen;
        while (!deadline.passed()) {
            screen = tmux({"capture-pane", "-p"}).output;
            if (screen.find(text) != std::string::npos) {
                return screen;
            }
        }
        throw std::runtime_error("the screen never shows '" + text + "', but:\n" + screen);
    }

    /// The terminal is as it was before iomap, which has ended with status 0.
    void expectRestored() const {
        EXPECT_THAT(waitFor("ended: 0"), Not(HasSubstr("ADDRESS")));
        const Deadline deadline;
        std::string after;
        while (after.empty() && !deadline.passed()) {
            after = readFile(directory.path() / "modes.after");
        }
        EXPECT_EQ(after, readFile(directory.path() / "modes.before"));
    }

    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 30})",
                                   R"({"address": 60, "size": 32, "count": 1, "type": "uptime"})"});

 private:
    std::string socket() const { return directory.path() / "terminal"; }

    Process server{{"tmux", "-f", "/dev/null", "-S", socket(), "-D"}};
};

TEST_F(IomapTopTest, ValuesChangeInPlace) {
    startService(map);
    start("top");
    waitFor("      2  virtual                         2  0\n");
    iomapDone({"write", "2=77"});
    EXPECT_THAT(waitFor("      2  virtual                         2  77\n"),
                Not(HasSubstr(" 2  0\n")));
    press("q");
    expectRestored();
}

TEST_F(IomapTopTest, AChangedValueStandsOut) {
    startService(map);
    start("top");
    waitFor("ADDRESS");
    // A highlight may be over before a slow machine has looked at it.
    const Deadline deadline;
    bool isSeen = false;
    for (int value = 10; !isSeen && !deadline.passed(); value = value == 99 ? 10 : value + 1) {
        iomapDone({"write", "2=" + std::to_string(value)});
        const std::string screen = tmux({"capture-pane", "-p", "-e"}).output;
        isSeen = std::regex_search(screen, std::regex("\x1b\\[1m *2  virtual +2  [0-9]"));
    }
    EXPECT_TRUE(isSeen);
}

TEST_F(IomapTopTest, ControlCRestoresTheTerminal) {
    startService(map);
    start("top");
    waitFor("ADDRESS");
    press("C-c");
    expectRestored();
}

TEST_F(IomapTopTest, ARegisterIsSwitchedOnlyAfterAYes) {
    startService(map);
    start("top --type virtual");
    waitFor("ADDRESS");
    press("Down");
    press("Space");
    waitFor("write 1 to register 2 (virtual 2)? y/n");
    press("n");
    waitFor("q: end");
    EXPECT_EQ(iomapDone({"read", "2"}), "0\n");
    press("Space");
    waitFor("? y/n");
    press("y");
    waitFor("      2  virtual                         2  1");
    EXPECT_EQ(iomapDone({"read", "2"}), "1\n");
}

TEST_F(IomapTopTest, WhatCannotBeWrittenIsNotSwitched) {
    startService(map);
    start("top --type uptime");
    waitFor(" uptime ");
    press("Space");
    waitFor("only a register that is 0 or 1 and can be written is switched");
}

TEST_F(IomapTopTest, TheTableScrollsAndFollowsTheSizeOfTheTerminal) {
    startService(map);
    start("top");
    EXPECT_THAT(waitFor("     10  virtual"), Not(HasSubstr("     11  virtual")));
    press("End");
    EXPECT_THAT(waitFor(" uptime "), Not(HasSubstr("     10  virtual")));
    EXPECT_EQ(tmux({"resize-window", "-x", "60", "-y", "25"}).status, 0);
    waitFor("      9  virtual");
    press("Home");
    waitFor("      1  virtual");
}

TEST_F(IomapTopTest, AServiceThatGoesAndComesBackIsShown) {
    Process& service = startService(map);
    start("top");
    waitFor("ADDRESS");
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0);
    waitFor("the service has gone; waiting for it");
    press("Space");
    press("End");
    EXPECT_THAT(waitFor(" uptime "), HasSubstr("the service has gone; waiting for it"));
    startService(map);
    waitFor("the service is back");
    press("Home");
    iomapDone({"write", "3=5"});
    waitFor("      3  virtual                         3  5");
}

TEST_F(IomapTopTest, WithoutSuchARegisterTheTerminalIsRestoredAndTheReasonStandsThere) {
    startService(map);
    start("top --group nowhere");
    waitFor("iomap: there is no such register to show");
    waitFor("ended: 1");
}

TEST_F(IomapTopTest, WithoutATerminalItIsRefused) {
    startService(map);
    expectFailure(iomap({"top"}), 1,
                  "standard input and output must be a terminal; use iomap watch");
}

}  // namespace
