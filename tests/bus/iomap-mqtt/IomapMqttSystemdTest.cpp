// SPDX-License-Identifier: MIT
#include <csignal>

#include "MqttFixture.h"
#include "NotifyListener.h"

namespace {

/// What systemd hears of the program. Neither broker nor service is there: none of it depends on
/// them.
class IomapMqttSystemdTest : public MqttFixture {
 protected:
    const std::string socketPath = directory.path() / "notify";
    const NotifyListener systemd{socketPath};
};

TEST_F(IomapMqttSystemdTest, HearsThatTheProgramIsReadyAndThatItEnds) {
    gateway = launchGateway("", {{"NOTIFY_SOCKET", socketPath}});
    EXPECT_EQ(systemd.next(), "READY=1");
    gateway->signal(SIGTERM);
    EXPECT_EQ(systemd.next(), "STOPPING=1");
    EXPECT_EQ(gateway->waitForExit(), 0);
}

TEST_F(IomapMqttSystemdTest, HearsAgainAndAgainThatItLivesIfThereIsAWatchdog) {
    gateway = launchGateway("", {{"NOTIFY_SOCKET", socketPath}, {"WATCHDOG_USEC", "300000"}});
    EXPECT_EQ(systemd.next(), "READY=1");
    EXPECT_EQ(systemd.next(), "WATCHDOG=1");
    EXPECT_EQ(systemd.next(), "WATCHDOG=1");
}

}  // namespace
