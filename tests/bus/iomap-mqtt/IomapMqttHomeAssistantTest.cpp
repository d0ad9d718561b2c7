// SPDX-License-Identifier: MIT
#include <csignal>

#include "MqttFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// Home Assistant is a subscriber here: what it does with the messages is its own business.
class IomapMqttHomeAssistantTest : public MqttFixture {
 protected:
    const std::string DISCOVERY{">homeassistant/device/device/config "};
    const std::string CONFIG{R"("writable": ["2"], "home_assistant": {"name": "Pump house"})"};

    void start() {
        startService(map);
        startBroker();
        home = subscribe("homeassistant/#");
        gateway = launchGateway(CONFIG);
    }

    void stop() {
        gateway->signal(SIGTERM);
        EXPECT_EQ(gateway->waitForExit(), 0);
    }

    void sayOnline() const {
        expectSuccess(outcomeOf(
            client("mosquitto_pub", {"-q", "1", "-t", "homeassistant/status", "-m", "online"})));
    }

    std::unique_ptr<Process> home;
};

TEST_F(IomapMqttHomeAssistantTest, OneRetainedMessageTellsOfAllNamedRegisters) {
    start();
    const std::string message = home->waitForLine(DISCOVERY);
    EXPECT_THAT(message, AllOf(HasSubstr(R"("name":"Pump house")"),
                               HasSubstr(R"("avty_t":"iomap/device/status")"),
                               HasSubstr(R"("switch-pump":{"p":"switch",)"),
                               HasSubstr(R"("sensor-level":{"p":"sensor",)"),
                               HasSubstr(R"("exp_aft":900,"unit_of_meas":"cm")")));
    const auto late = subscribe("homeassistant/#");
    EXPECT_THAT(late->waitForLine(DISCOVERY), HasSubstr("config 1 {"));
}

TEST_F(IomapMqttHomeAssistantTest, TheValuesOfNamedRegistersAreRetained) {
    start();
    subscriber = subscribe();
    iomapDone({"write", "20=215"});
    next("r/level", R"("value":21.5,)");
    const auto late = subscribe();
    EXPECT_THAT(late->waitForLine(">iomap/device/r/level"), HasSubstr(R"( 1 {"value":21.5,)"));
}

TEST_F(IomapMqttHomeAssistantTest, ASwitchTakesWhatItsEntitySays) {
    start();
    home->waitForLine(DISCOVERY);
    subscriber = subscribe();
    publish("set/pump", "on");
    next("r/pump", R"("value":"on",)");
    EXPECT_EQ(iomapDone({"read", "2"}), "1\n");
}

TEST_F(IomapMqttHomeAssistantTest, WhoStartsLaterIsToldAgain) {
    start();
    home->waitForLine(DISCOVERY);
    sayOnline();
    home->waitForLine(">homeassistant/status");
    EXPECT_THAT(home->waitForLine(DISCOVERY), HasSubstr("switch-pump"));
}

TEST_F(IomapMqttHomeAssistantTest, ARegisterWithoutItsNameIsRemovedAndItsValueForgotten) {
    start();
    home->waitForLine(DISCOVERY);
    subscriber = subscribe();
    next("r/level");
    stop();
    labels = R"({"labels": {"2": {"name": "pump", "states": {"0": "off", "1": "on"}}}})";
    gateway = launchGateway(CONFIG);
    EXPECT_THAT(home->waitForLine(DISCOVERY), AllOf(HasSubstr(R"("sensor-level":{"p":"sensor"})"),
                                                    HasSubstr(R"("switch-pump":{"p":"switch",)")));
    // An empty message takes away what the broker has kept.
    while (!next("r/level").empty()) {
    }
    stop();
    const auto late = subscribe();
    late->waitForLine(">iomap/device/status");
    EXPECT_THAT(late->standardOutput(), Not(HasSubstr("r/level")));
    gateway = launchGateway(CONFIG);
    EXPECT_THAT(home->waitForLine(DISCOVERY), Not(HasSubstr("sensor-level")));
}

TEST_F(IomapMqttHomeAssistantTest, AValueIsToldAgainBeforeItExpires) {
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("home_assistant": {"expire_after": 10})");
    // At the start, a value is told when it is read, and when the broker is there.
    constexpr int AT_THE_START = 2;
    for (int times = 0; times < AT_THE_START + 2; ++times) {
        EXPECT_THAT(next("r/level"), HasSubstr(R"("value":0,)"));
    }
}

TEST_F(IomapMqttHomeAssistantTest, WithoutItsSectionHomeAssistantHearsNothing) {
    startService(map);
    startBroker();
    home = subscribe("#");
    gateway = launchGateway();
    home->waitForLine(">iomap/device/r/level 0");
    EXPECT_THAT(home->standardOutput(), Not(HasSubstr("homeassistant")));
}

}  // namespace
