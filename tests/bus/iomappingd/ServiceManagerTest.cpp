// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <fstream>

#include "BusFixture.h"
#include "Deadline.h"
#include "WatchedFiles.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds LIMIT{EMULATED ? 8000 : 1200};
constexpr const char* ALIVE = "WATCHDOG=1";

/// The service manager's end of what a service tells.
class Listener {
 public:
    explicit Listener(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }

    /// The next message; empty when none comes in time.
    std::string next(milliseconds patience = PATIENCE) const {
        pollfd entry{socket.get(), POLLIN, 0};
        std::array<char, 4096> text{};
        const bool isThere = poll(&entry, 1, static_cast<int>(patience.count())) > 0;
        const ssize_t size = isThere ? recv(socket.get(), text.data(), text.size(), 0) : 0;
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    /// Waits until nothing has come for twice the watchdog's limit.
    bool untilSilent() const {
        const Deadline deadline;
        while (!deadline.passed()) {
            if (next(2 * LIMIT).empty()) {
                return true;
            }
        }
        return false;
    }

 private:
    FileDescriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

class ServiceManagerTest : public BusFixture {
 protected:
    std::unique_ptr<Process> launchWatched(const std::string& text) {
        return launch(text, {},
                      {{"NOTIFY_SOCKET", socketPath},
                       {"WATCHDOG_USEC", std::to_string(LIMIT.count() * 1000)}});
    }

    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 7})"});
    const std::string socketPath = directory.path() / "notify";
    const Listener listener{socketPath};
};

TEST_F(ServiceManagerTest, TheStatusHasTheNumberOfRegisters) {
    const auto service = launch(map, {}, {{"NOTIFY_SOCKET", socketPath}});
    EXPECT_EQ(listener.next(), "STATUS=serving 7 registers");
}

TEST_F(ServiceManagerTest, WithoutAWatchdogNothingElseIsTold) {
    const auto service = launch(map, {}, {{"NOTIFY_SOCKET", socketPath}});
    EXPECT_THAT(listener.next(), HasSubstr("STATUS="));
    EXPECT_TRUE(listener.untilSilent());
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
    EXPECT_TRUE(listener.untilSilent());
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
    EXPECT_TRUE(listener.untilSilent());
    bus.signal(SIGCONT);
    EXPECT_EQ(listener.next(), ALIVE);
}

}  // namespace
