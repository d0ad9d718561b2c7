// SPDX-License-Identifier: MIT
#include "client/RegisterCache.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

#include "BusClient.h"
#include "Deadline.h"
#include "FakeService.h"
#include "PrivateBus.h"
#include "tesk/Exceptions.h"

namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Quality = CachedValue::Quality;

std::string textOf(const CachedRegister& entry) {
    const std::string address = std::to_string(entry.info.address) + " ";
    switch (entry.state.quality) {
        case Quality::GOOD:
            return address + std::to_string(entry.state.value);
        case Quality::STALE:
            return address + "stale";
        default:
            return address + entry.state.reason;
    }
}

class RegisterCacheTest : public testing::Test {
 protected:
    std::vector<std::string> takeNews() { return std::exchange(news, {}); }

    void load() {
        cache.load();
        start = RegisterCache::Clock::now();
        takeNews();
        service.forgetCalls();
    }

    /// Until everything that is due at a time has been read.
    void pollAll(RegisterCache::Clock::time_point now) {
        while (cache.nextPoll() <= now) {
            cache.poll(now);
        }
    }

    PrivateBus bus;
    FakeService service{{{1, {RegisterType::RELAY, 1, 1, 0}},
                         {2, {RegisterType::INPUT_DIGITAL, 1, 1, 1}},
                         {10, {RegisterType::INPUT_COUNTER, 1, -1, 100}},
                         {11, {RegisterType::INPUT_COUNTER, 2, -1, 200}},
                         {20, {RegisterType::SENSOR_TEMP_VALUE, 1, -1, 21500}},
                         {21, {RegisterType::SENSOR_TEMP_VALUE, 2, -1, 22500}},
                         {30, {RegisterType::HW_TYPE, 1, 255, 7}}}};
    IoMapping io;
    std::vector<std::string> news;
    RegisterCache cache{io, PollPlan(),
                        [this](const CachedRegister& entry) { news.push_back(textOf(entry)); }};
    RegisterCache::Clock::time_point start;  ///< When everything had been read.
};

TEST_F(RegisterCacheTest, LoadingReadsAllButTheSlowRegistersInOneCall) {
    cache.load();
    EXPECT_THAT(takeNews(), ElementsAre("1 0", "2 1", "10 100", "11 200", "30 7"));
    EXPECT_THAT(service.calls(), Contains("ReadList (<[1, 2, 10, 11, 30]>,)"));
    EXPECT_EQ(cache.registers().at(21).info.index, 2);
    EXPECT_EQ(cache.registers().at(21).state.quality, Quality::STALE);
}

TEST_F(RegisterCacheTest, SlowRegistersAreReadOneByOne) {
    load();
    cache.poll(RegisterCache::Clock::now());
    EXPECT_THAT(takeNews(), ElementsAre("20 21500"));
    cache.poll(RegisterCache::Clock::now());
    EXPECT_THAT(takeNews(), ElementsAre("21 22500"));
    EXPECT_THAT(service.calls(), ElementsAre("Read (20,)", "Read (21,)"));
}

TEST_F(RegisterCacheTest, SlowRegistersLetTheOthersPass) {
    load();
    const auto late = RegisterCache::Clock::now() + seconds(2);
    cache.poll(late);
    cache.poll(late);
    EXPECT_THAT(service.calls(), ElementsAre("Read (20,)", "ReadList (<[10, 11]>,)"));
    pollAll(late);
    EXPECT_THAT(service.calls(), Contains("Read (21,)"));
}

TEST_F(RegisterCacheTest, PropertiesAreAskedForOnlyWhenLoading) {
    load();
    for (int second = 1; second <= 30; ++second) {
        pollAll(start + seconds(second));
    }
    EXPECT_THAT(service.calls(), Not(Contains(StartsWith("GetParams"))));
    EXPECT_THAT(service.calls(), Not(Contains(StartsWith("GetAddrsPerType"))));
}

TEST_F(RegisterCacheTest, WhatIsNotAnnouncedIsReadInAGroupPerType) {
    load();
    pollAll(RegisterCache::Clock::now());
    takeNews();
    service.forgetCalls();
    service.set(11, 201);
    pollAll(RegisterCache::Clock::now() + seconds(2));
    EXPECT_THAT(takeNews(), ElementsAre("11 201"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[10, 11]>,)"));
}

TEST_F(RegisterCacheTest, ARegisterThatCannotBeReadTakesNoOtherWithIt) {
    load();
    service.set(10, {});
    service.set(11, 201);
    pollAll(start + seconds(9));
    EXPECT_THAT(takeNews(), Contains("10 cannot read 10"));
    EXPECT_EQ(cache.registers().at(10).state.value, 100) << "the last value that was read";
    EXPECT_EQ(cache.registers().at(11).state.value, 201);
    service.forgetCalls();
    pollAll(start + seconds(13));
    EXPECT_THAT(service.calls(), Contains("ReadList (<[11]>,)")) << "the other one is left alone";
    service.set(10, 101);
    pollAll(start + seconds(30));
    EXPECT_THAT(takeNews(), Contains("10 101")) << "but not for ever";
}

TEST_F(RegisterCacheTest, ABoardThatGoesIsNoticedThoughItsRegistersAreAnnounced) {
    load();
    service.set(1, {});
    pollAll(start + seconds(61));
    EXPECT_THAT(takeNews(), Contains("1 cannot read 1"));
    service.set(1, 1);
    pollAll(start + seconds(75));
    EXPECT_THAT(takeNews(), Contains("1 1")) << "it need not wait for a minute";
}

TEST_F(RegisterCacheTest, AConstantThatCouldNotBeReadIsTriedAgainUntilItCan) {
    service.set(30, {});
    load();
    pollAll(start + seconds(30));
    EXPECT_THAT(service.calls(), Contains("ReadList (<[30]>,)"));
    service.set(30, 7);
    pollAll(start + seconds(60));
    EXPECT_THAT(takeNews(), Contains("30 7"));
    service.forgetCalls();
    pollAll(start + seconds(90));
    EXPECT_THAT(service.calls(), Not(Contains("ReadList (<[30]>,)")));
}

TEST_F(RegisterCacheTest, ASlowRegisterThatFailsIsTriedAgainByItself) {
    load();
    service.set(20, {});
    pollAll(start + seconds(5));
    EXPECT_THAT(takeNews(), Contains("20 cannot read 20"));
    service.forgetCalls();
    service.set(20, 21000);
    pollAll(start + seconds(20));
    EXPECT_THAT(takeNews(), Contains("20 21000"));
    EXPECT_THAT(service.calls(), Contains("Read (20,)"));
}

TEST_F(RegisterCacheTest, AnAnnouncedChangeIsHeardOfWithoutACall) {
    load();
    service.announce(1, 1);
    EXPECT_TRUE(runUntil([this] { return !news.empty(); }));
    EXPECT_THAT(takeNews(), ElementsAre("1 1"));
    EXPECT_THAT(service.calls(), IsEmpty());
}

TEST_F(RegisterCacheTest, TheSameValueIsNoNews) {
    load();
    service.announce(1, 0);
    service.announce(2, 0);
    EXPECT_TRUE(runUntil([this] { return !news.empty(); }));
    EXPECT_THAT(takeNews(), ElementsAre("2 0"));
}

TEST_F(RegisterCacheTest, WithoutTheServiceEachValueIsStaleAndNothingIsRead) {
    load();
    cache.invalidate();
    EXPECT_THAT(takeNews(), ElementsAre("1 stale", "2 stale", "10 stale", "11 stale", "30 stale"));
    pollAll(start + seconds(100));
    EXPECT_THAT(service.calls(), IsEmpty());
    cache.load();
    EXPECT_THAT(takeNews(), ElementsAre("1 0", "2 1", "10 100", "11 200", "30 7"))
        << "what has not changed is news, too";
}

TEST_F(RegisterCacheTest, AServiceThatAnswersAgainIsReadAnewButNotEnumerated) {
    load();
    cache.invalidate();
    takeNews();
    cache.readAll();
    EXPECT_THAT(takeNews(), ElementsAre("1 0", "2 1", "10 100", "11 200", "30 7"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[1, 2, 10, 11, 30]>,)"));
    cache.poll(RegisterCache::Clock::now());
    EXPECT_THAT(takeNews(), ElementsAre("20 21500")) << "what is due is polled again";
}

TEST_F(RegisterCacheTest, ALoadThatFailsLeavesNothingGood) {
    load();
    bus.kill();
    EXPECT_THROW(cache.load(), tesk::InputOutputException);
    for (const auto& [address, entry] : cache.registers()) {
        EXPECT_NE(entry.state.quality, Quality::GOOD) << address;
    }
}

TEST_F(RegisterCacheTest, ARegisterIsReadAgainOnRequest) {
    load();
    service.set(30, 8);
    cache.refresh(30);
    cache.refresh(999);
    EXPECT_THAT(takeNews(), ElementsAre("30 8"));
}

}  // namespace
