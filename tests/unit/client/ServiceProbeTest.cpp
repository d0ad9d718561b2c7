// SPDX-License-Identifier: MIT
#include "client/ServiceProbe.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <string>

#include "Build.h"
#include "PrivateBus.h"
#include "ServiceError.h"
#include "client/Failure.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class ServiceProbeTest : public testing::Test {
 protected:
    /// Why a short probe fails, in words for the user.
    static std::string reason(ServiceStart start) {
        try {
            probeService(milliseconds(EMULATED || SANITIZED ? 3000 : 300), start);
        } catch (const ServiceError& e) {
            EXPECT_EQ(exitStatusOf(e), EXIT_NO_SERVICE);
            return reasonOf(e);
        }
        return "none";
    }

    PrivateBus bus;
};

TEST_F(ServiceProbeTest, AServiceThatIsNotThereIsSaidToBeSo) {
    for (const ServiceStart start : {ServiceStart::ALLOWED, ServiceStart::REFUSED}) {
        EXPECT_EQ(reason(start), "the service is not running; start iomappingd");
    }
}

TEST_F(ServiceProbeTest, TheBusStartsTheServiceOnlyIfAllowed) {
    // A program that never takes the name: the call waits for it.
    bus.startOnDemand("org.mirel.IoMapping", "/bin/sleep 1000");
    EXPECT_EQ(reason(ServiceStart::REFUSED), "the service is not running; start iomappingd");
    EXPECT_EQ(reason(ServiceStart::ALLOWED), "the service does not answer; restart iomappingd");
}

TEST_F(ServiceProbeTest, AStoppedBusIsGivenUpAtTheLimit) {
    bus.signal(SIGSTOP);
    const auto start = steady_clock::now();
    EXPECT_EQ(reason(ServiceStart::REFUSED),
              "cannot reach the D-Bus system bus: Timeout was reached; is dbus-daemon running?");
    EXPECT_LT(steady_clock::now() - start, milliseconds(EMULATED || SANITIZED ? 20000 : 2000));
}

TEST_F(ServiceProbeTest, ABusThatIsNotThereIsSaidToBeSo) {
    bus.kill();
    EXPECT_EQ(reason(ServiceStart::REFUSED),
              "cannot reach the D-Bus system bus: Could not connect: Connection refused; is "
              "dbus-daemon running?");
}

TEST_F(ServiceProbeTest, TheLimitIsWhatIsLeftWithinBounds) {
    const auto now = steady_clock::now();
    EXPECT_EQ(probeLimit(now), milliseconds(400));
    EXPECT_EQ(probeLimit(now + std::chrono::hours(1)), milliseconds(5000));
    EXPECT_EQ(probeLimit(steady_clock::time_point::max()), milliseconds(5000));
    const milliseconds limit = probeLimit(now + milliseconds(4500));
    EXPECT_LE(limit, milliseconds(4500));
    EXPECT_GT(limit, milliseconds(400));
}

}  // namespace
