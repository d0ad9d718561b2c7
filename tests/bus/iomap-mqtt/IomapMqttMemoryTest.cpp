// SPDX-License-Identifier: MIT
#include "Build.h"
#include "MqttFixture.h"
#include "ProcessFigures.h"

namespace {

using testing::HasSubstr;

class IomapMqttMemoryTest : public MqttFixture {};

TEST_F(IomapMqttMemoryTest, TwelveMegabytesAreEnoughForADeviceFullOfRegisters) {
    startService(mapOf({R"({"address": 1, "size": 32, "count": 1300})",
                        R"({"address": 60001, "size": 32, "count": 101})"}));
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway();
    next("info", R"("registers":1401,)");
    publish("get", R"({"token": "all"})");
    EXPECT_THAT(next("snapshot"), HasSubstr(R"("parts":1,)"));
    // What a sanitizer needs besides is not the program's.
    constexpr double LIMIT_KB = SANITIZED ? 1'000'000 : 12'000'000.0 / 1024;
    EXPECT_LE(kilobytes(gateway->pid(), "status", "VmRSS:"), LIMIT_KB);
}

}  // namespace
