// SPDX-License-Identifier: MIT
#include "MqttTlsFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

class IomapMqttClockTest : public MqttTlsFixture {};

TEST_F(IomapMqttClockTest, ADeviceWhoseClockIsNotSetYetSaysSoAndConnectsOnceItIs) {
    makeCertificate("IP:127.0.0.1");
    startTlsBroker();
    const std::string isSet = directory.path() / "clock-is-set";
    launchTlsGateway({{"LD_PRELOAD", EARLY_CLOCK}, {"CLOCK_IS_SET", isSet}});
    EXPECT_THAT(gateway->waitForLine("cannot connect to the broker"),
                AllOf(HasSubstr("certificate is not yet valid"),
                      HasSubstr("the clock of this device was never set")));
    writeFile(isSet, "");
    gateway->waitForLine("connected to the broker");
}

}  // namespace
