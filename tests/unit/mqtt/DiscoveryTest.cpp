// SPDX-License-Identifier: MIT
#include "mqtt/Discovery.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using std::chrono::seconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Clock = Discovery::Clock;

constexpr auto NEVER = Clock::time_point::max();

class DiscoveryTest : public testing::Test {
 protected:
    DiscoveryTest() {
        settings.device = "plant.7";
        settings.homeAssistant = HomeAssistantSettings();
    }

    static Entities entityOf(const std::string& key, const std::string& platform) {
        return {{key, {platform, R"({"p":")" + platform + R"(","uniq_id":"x"})"}}};
    }

    /// A connection after which the broker has sent what it keeps.
    void connect(const std::string& kept = "") {
        discovery().begin();
        if (!kept.empty()) {
            EXPECT_TRUE(discovery().hear(TOPIC, kept, true, now));
        }
        discovery().endOfKept();
    }

    Discovery& discovery() {
        if (!made) {
            made = std::make_unique<Discovery>(settings, Topics("iomap", settings.device),
                                               [this] { return random; });
        }
        return *made;
    }

    const std::string TOPIC = "homeassistant/device/plant_7/config";
    const std::string BIRTH = "homeassistant/status";
    const Clock::time_point now = Clock::now();
    double random = 0.5;
    Settings settings;
    std::unique_ptr<Discovery> made;
};

TEST_F(DiscoveryTest, TheTopicHasOnlyCharactersThatHomeAssistantTakes) {
    EXPECT_EQ(discovery().topic(), TOPIC);
    EXPECT_EQ(discovery().statusTopic(), BIRTH);
}

TEST_F(DiscoveryTest, WaitsForTheRegistersAndForWhatTheBrokerKeeps) {
    connect();
    EXPECT_EQ(discovery().dueAt(), NEVER);
    discovery().setEntities(entityOf("sensor-a", "sensor"));
    EXPECT_LE(discovery().dueAt(), now);
    discovery().begin();
    EXPECT_EQ(discovery().dueAt(), NEVER) << "a new connection";
    discovery().endOfKept();
    EXPECT_LE(discovery().dueAt(), now);
    discovery().take();
    EXPECT_EQ(discovery().dueAt(), NEVER) << "told once";
}

TEST_F(DiscoveryTest, WhatAnEarlierStartHasToldAndIsGoneIsRemoved) {
    connect(R"({"cmps":{"sensor-a":{"p":"sensor","x":1},"switch-b":{"p":"switch","x":1},)"
            R"("switch-c":{"p":"switch"}}})");
    discovery().setEntities(entityOf("sensor-a", "sensor"));
    EXPECT_THAT(discovery().take(),
                AllOf(HasSubstr(R"("switch-b":{"p":"switch"})"), Not(HasSubstr("switch-c"))));
    EXPECT_THAT(discovery().takeForgotten(), ElementsAre("b"));
    EXPECT_THAT(discovery().takeForgotten(), IsEmpty());
}

TEST_F(DiscoveryTest, ARegisterThatMayNotBeWrittenAnyMoreKeepsItsValue) {
    connect(R"({"cmps":{"switch-a":{"p":"switch","x":1}}})");
    discovery().setEntities(entityOf("binary_sensor-a", "binary_sensor"));
    EXPECT_THAT(discovery().take(), HasSubstr(R"("switch-a":{"p":"switch"})"));
    EXPECT_THAT(discovery().takeForgotten(), IsEmpty());
}

TEST_F(DiscoveryTest, ARegisterThatGoesWhileTheProgramRunsIsRemoved) {
    connect();
    discovery().setEntities(entityOf("sensor-a", "sensor"));
    discovery().take();
    discovery().setEntities(entityOf("sensor-b", "sensor"));
    EXPECT_THAT(discovery().take(), HasSubstr(R"("sensor-a":{"p":"sensor"})"));
}

TEST_F(DiscoveryTest, TheLastRegisterThatGoesIsRemoved) {
    const std::string kept = R"({"cmps":{"sensor-a":{"p":"sensor","x":1}}})";
    connect(kept);
    EXPECT_EQ(discovery().dueAt(), NEVER) << "nobody has said yet which registers there are";
    discovery().setEntities({});
    EXPECT_LE(discovery().dueAt(), now);
    connect(kept);
    EXPECT_LE(discovery().dueAt(), now) << "the connection may have been lost before";
    EXPECT_THAT(discovery().take(), HasSubstr(R"("sensor-a":{"p":"sensor"})"));
    EXPECT_THAT(discovery().takeForgotten(), ElementsAre("a"));
    connect();
    EXPECT_EQ(discovery().dueAt(), NEVER) << "nothing is left to tell";
}

TEST_F(DiscoveryTest, IsToldAgainARandomTimeAfterHomeAssistantHasStarted) {
    connect();
    discovery().setEntities(entityOf("sensor-a", "sensor"));
    discovery().take();
    EXPECT_TRUE(discovery().hear(BIRTH, "online", false, now));
    EXPECT_EQ(discovery().dueAt(), now + seconds(5));
    random = 1;
    EXPECT_TRUE(discovery().hear(BIRTH, "online", false, now));
    EXPECT_EQ(discovery().dueAt(), now + seconds(10));
}

TEST_F(DiscoveryTest, IsNotToldAgainForAnythingElse) {
    connect();
    discovery().setEntities(entityOf("sensor-a", "sensor"));
    discovery().take();
    EXPECT_TRUE(discovery().hear(BIRTH, "offline", false, now));
    EXPECT_TRUE(discovery().hear(BIRTH, "online", true, now)) << "retained: of an earlier time";
    EXPECT_FALSE(discovery().hear("iomap/plant.7/get", "online", false, now));
    EXPECT_EQ(discovery().dueAt(), NEVER);
}

}  // namespace
