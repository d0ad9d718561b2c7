// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "FakeService.h"
#include "IoMapping.h"
#include "OddService.h"
#include "PrivateBus.h"
#include "client/Failure.h"

namespace {

/// reasonOf() knows errors by their words: here they are those that GLib, the bus and the class
/// IoMapping really use.
class FailureOnBusTest : public testing::Test {
 protected:
    static std::string reasonOfCall(const std::function<void()>& call) {
        try {
            call();
        } catch (const std::exception& e) {
            return reasonOf(e);
        }
        return "no failure";
    }

    static std::string reasonOfRead(IoMapping& io) {
        return reasonOfCall([&io] { io.readValue(1); });
    }

    PrivateBus bus;
};

TEST_F(FailureOnBusTest, WithoutAServiceItIsToBeStarted) {
    IoMapping io;
    EXPECT_EQ(reasonOfRead(io), "the service is not running; start iomappingd");
}

TEST_F(FailureOnBusTest, AServiceThatEndsInTheCallIsToBeStarted) {
    const OddService service("");
    IoMapping io;
    EXPECT_EQ(reasonOfRead(io), "the service has ended before it answered; start iomappingd");
}

TEST_F(FailureOnBusTest, ARefusalIsTheServicesOwnWords) {
    const FakeService service({{1, {RegisterType::RELAY, 1, 1, {}}}});
    IoMapping io;
    EXPECT_EQ(reasonOfRead(io), "cannot read 1");
}

TEST_F(FailureOnBusTest, ABusThatHasGoneIsToBeStarted) {
    IoMapping io;
    bus.kill();
    EXPECT_EQ(reasonOfRead(io), "the D-Bus system bus has gone; start it and iomappingd");
}

TEST_F(FailureOnBusTest, ABusThatIsNotThereIsToldWithTheReason) {
    bus.kill();
    EXPECT_THAT(reasonOfCall([] { IoMapping io; }),
                testing::AllOf(testing::StartsWith("cannot reach the D-Bus system bus: "),
                               testing::EndsWith("; is dbus-daemon running?")));
}

}  // namespace
