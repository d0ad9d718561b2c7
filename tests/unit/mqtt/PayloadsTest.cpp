// SPDX-License-Identifier: MIT
#include "mqtt/Payloads.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;

const Moment NOW{1'767'323'045'678, 5000, true};

CachedRegister good(int address, int value) {
    return {{address, RegisterType::RELAY, 1, 1},
            {value, CachedValue::Quality::GOOD, "", CachedValue::Clock::now()}};
}

TEST(PayloadsTest, AnAckSaysWhatWasAskedAndWhatBecameOfIt) {
    Request request;
    request.action = Request::Action::SET;
    request.target = "pump";
    request.token = "a\"b";
    EXPECT_EQ(ackOf(request, ""), R"({"token":"a\"b","set":"pump","ok":true})");
    request.token.clear();
    EXPECT_EQ(ackOf(request, "no such register"),
              R"({"set":"pump","ok":false,"error":"no such register"})");
}

TEST(PayloadsTest, AValueIsShownAsItsLabelSays) {
    Label label;
    label.unit = "bar";
    label.scale = 0.1;
    EXPECT_EQ(valueOf(good(1, 215), label, NOW),
              R"({"value":21.5,"text":"21.5 bar","raw":215,"time":"2026-01-02T03:04:05.678Z"})");
    label.states[215] = "full";
    EXPECT_THAT(valueOf(good(1, 215), label, NOW), HasSubstr(R"("value":"full","text":"full")"));
}

TEST(PayloadsTest, WhatIsNotGoodHasNoValueButAReason) {
    CachedRegister entry = good(1, 5);
    entry.state.quality = CachedValue::Quality::UNREADABLE;
    entry.state.reason = "no sensor";
    EXPECT_THAT(valueOf(entry, Label(), NOW), HasSubstr(R"({"value":null,"error":"no sensor",)"));
    EXPECT_THAT(snapshotOf("", {&entry}, NOW).front(), EndsWith(R"(,"unreadable","no sensor"]]})"));
}

TEST(PayloadsTest, AMissingSensorHasNoTemperature) {
    CachedRegister entry = good(1, 4096);
    entry.info.type = RegisterType::SENSOR_TEMP_VALUE;
    Label label;
    label.states[4096] = "missing";
    EXPECT_THAT(valueOf(entry, label, NOW),
                HasSubstr(R"({"value":null,"error":"the sensor is missing",)"));
    EXPECT_THAT(snapshotOf("", {&entry}, NOW).front(), HasSubstr(",4096,")) << "raw stays raw";
    EXPECT_THAT(valueOf(good(1, 4096), Label(), NOW), HasSubstr(R"("value":4096,)"))
        << "it is a number like any other for all other types";
}

TEST(PayloadsTest, WhatWasNeverReadDoesNotBlameTheService) {
    CachedRegister entry = good(1, 5);
    entry.state.quality = CachedValue::Quality::STALE;
    EXPECT_THAT(valueOf(entry, Label(), NOW), HasSubstr(R"("error":"the service does not run")"));
    entry.state.readAt = {};
    EXPECT_THAT(valueOf(entry, Label(), NOW), HasSubstr(R"("error":"not read yet")"));
}

TEST(PayloadsTest, ASnapshotHasOneRowPerRegister) {
    const CachedRegister entry = good(7, 1);
    const auto messages = snapshotOf("t", {&entry}, NOW);
    ASSERT_THAT(messages, SizeIs(1));
    EXPECT_THAT(messages[0], HasSubstr(R"("token":"t","part":1,"parts":1,)"));
    EXPECT_THAT(messages[0], HasSubstr(R"([7,"relay",1,1,1,)"));
    CachedRegister never = entry;
    never.state = {};
    EXPECT_THAT(snapshotOf("t", {&never}, NOW)[0],
                EndsWith(R"([7,"relay",1,1,null,null,"stale"]]})"));
}

TEST(PayloadsTest, ALongSnapshotComesInPartsThatAreShortEnough) {
    const CachedRegister entry = good(7, 1);
    const std::vector<const CachedRegister*> many(10'000, &entry);
    const auto messages = snapshotOf("t", many, NOW);
    EXPECT_GT(messages.size(), 2U);
    std::size_t rows = 0;
    for (const std::string& message : messages) {
        EXPECT_LE(message.size(), LONGEST_MESSAGE);
        for (auto at = message.find("[7,"); at != std::string::npos;
             at = message.find("[7,", at + 1)) {
            ++rows;
        }
    }
    EXPECT_EQ(rows, many.size());
}

TEST(PayloadsTest, TheHashIsThatOfTheFixedProperties) {
    std::map<int, CachedRegister> entries{{7, good(7, 0)}};
    const std::string hash = hashOf(entries);
    entries[7].state.value = 1;
    EXPECT_EQ(hashOf(entries), hash);
    entries[7].info.maximum = 255;
    EXPECT_NE(hashOf(entries), hash);
}

TEST(PayloadsTest, BytesThatAreNoTextDoNotSpoilAMessage) {
    CachedRegister entry = good(1, 5);
    entry.state.quality = CachedValue::Quality::UNREADABLE;
    entry.state.reason = "bad \xFF byte";
    EXPECT_THAT(snapshotOf("", {&entry}, NOW)[0], HasSubstr("bad \xEF\xBF\xBD byte"));
}

}  // namespace
