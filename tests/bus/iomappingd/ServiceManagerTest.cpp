// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "BusFixture.h"
#include "NotifyListener.h"
#include "WatchedFiles.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds LIMIT{EMULATED ? 8000 : 1200};
constexpr const char* ALIVE = "WATCHDOG=1";

class ServiceManagerTest : public BusFixture {
 protected:
    std::unique_ptr<Process> launchWatched(const std::string& text) {
        return launch(text, {},
                      {{"NOTIFY_SOCKET", socketPath},
                       {"WATCHDOG_USEC", std::to_string(LIMIT.count() * 1000)}});
    }

    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 7})"});
    const std::string socketPath = directory.path() / "notify";
    const NotifyListener listener{socketPath};
};

TEST_F(ServiceManagerTest, TheStatusHasTheNumberOfRegisters) {
    const auto service = launch(map, {}, {{"NOTIFY_SOCKET", socketPath}});
    EXPECT_EQ(listener.next(), "STATUS=serving 7 registers");
}

TEST_F(ServiceManagerTest, WithoutAWatchdogNothingElseIsTold) {
    const auto service = launch(map, {}, {{"NOTIFY_SOCKET", socketPath}});
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    EXPECT_TRUE(listener.untilSilent(2 * LIMIT));
}

TEST_F(ServiceManagerTest, TheWatchdogHearsThatTheServiceIsAliveWellInTime) {
    const auto service = launchWatched(map);
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(listener.next(LIMIT), ALIVE);
    }
}

TEST_F(ServiceManagerTest, AServiceThatWatchesFilesIsAliveToo) {
    const WatchedFiles files(1);
    const auto service = launchWatched(mapOf({files.field()}));
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(listener.next(LIMIT), ALIVE);
    }
}

TEST_F(ServiceManagerTest, TheWatchdogHearsNothingOfAMainLoopThatHangs) {
    const auto service = launchWatched(map);
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    service->signal(SIGSTOP);
    EXPECT_TRUE(listener.untilSilent(2 * LIMIT));
    service->signal(SIGCONT);
    EXPECT_EQ(listener.next(), ALIVE);
}

TEST_F(ServiceManagerTest, TheWatchdogHearsNothingWhileTheNotifierHangs) {
    const WatchedFiles files(2);
    const auto service = launchWatched(mapOf({files.field()}));
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    EXPECT_EQ(listener.next(), ALIVE);
    // After some signals the notifier waits for the bus. The main loop does not.
    bus.signal(SIGSTOP);
    for (int value = 1; value <= 1000; ++value) {
        files.set(1, value);
        files.set(2, value);
    }
    EXPECT_TRUE(listener.untilSilent(2 * LIMIT));
    bus.signal(SIGCONT);
    EXPECT_EQ(listener.next(), ALIVE);
}

}  // namespace
