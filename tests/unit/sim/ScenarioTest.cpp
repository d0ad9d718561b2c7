// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryDirectory.h"
#include "sim/Scenario.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using Clock = sim::Scenario::Clock;
using Steps = std::vector<std::string>;

constexpr sim::Scenario::Events ALL{true, true};

bool doNotWait(Clock::time_point /*time*/) {
    return true;
}

class ScenarioTest : public testing::Test {
 protected:
    /// A device with three boards and two sensors.
    class WholeDevice {
     public:
        WholeDevice() {
            device.make();
            for (const char* board : {"kr62", "pd5-1", "pd5-2"}) {
                device.makeBoard(board);
            }
            device.sensors().plug("28-00000a1b2c3d", 0);
            device.sensors().plug("28-031264e5a1ff", 0);
        }

        /// What a fresh scenario does in its first steps.
        Steps steps(int count, std::uint32_t seed, sim::Scenario::Events events = ALL) const {
            sim::Scenario scenario(device, seed, events);
            Steps done;
            for (int step = 0; step < count; ++step) {
                done.push_back(scenario.step());
            }
            return done;
        }

        const TemporaryDirectory directory;
        const sim::Device device{directory.path()};
    };

    const WholeDevice whole;
};

TEST_F(ScenarioTest, TheSameSeedGivesTheSameSteps) {
    const Steps steps = whole.steps(1000, 7);
    EXPECT_EQ(WholeDevice().steps(1000, 7), steps);
    EXPECT_NE(WholeDevice().steps(1000, 8), steps);
}

TEST_F(ScenarioTest, EverythingHappens) {
    const Steps steps = whole.steps(1000, 1);
    for (const char* step :
         {"set kr62/inputs/[1-8] 1", "set kr62/inputs/[1-8] 0", "set pd5-2/inputs/[1-8] 1",
          "set kr62/analogs/[1-4] [0-9]+", "set cpu [0-9]+", "set 28-[0-9a-f]+ [0-9]+",
          "unplug 28-00000a1b2c3d", "plug 28-00000a1b2c3d", "pull kr62", "restore kr62"}) {
        EXPECT_THAT(steps, Contains(MatchesRegex(step)));
    }
}

TEST_F(ScenarioTest, OnlyWhatMayHappenDoes) {
    const Steps steps = whole.steps(1000, 1, {false, false});
    EXPECT_THAT(steps, Not(Contains(MatchesRegex("(un)?plug .*|set 28-.*|pull .*|restore .*"))));
}

TEST_F(ScenarioTest, WhatItTellsIsWhatItDoes) {
    sim::Scenario scenario(whole.device, 3, {false, false});
    for (int number = 0; number < 300; ++number) {
        const std::string step = scenario.step();
        const auto space = step.rfind(' ');
        EXPECT_EQ(whole.device.value(step.substr(4, space - 4)).text(), step.substr(space + 1))
            << step;
    }
}

TEST_F(ScenarioTest, AnalogsMoveInRampsWithinTheirRange) {
    std::map<std::string, int> values;
    for (const std::string& step : whole.steps(5000, 1, {false, false})) {
        const auto space = step.rfind(' ');
        const std::string name = step.substr(0, space);
        if (name.find("/analogs/") != std::string::npos) {
            const int value = std::stoi(step.substr(space + 1));
            EXPECT_EQ(std::abs(value - values[name]), 64) << step;
            EXPECT_GE(value, 0);
            EXPECT_LE(value, 4095);
            values[name] = value;
        }
    }
    EXPECT_THAT(values, SizeIs(12));
}

TEST_F(ScenarioTest, InTheEndEverythingIsBackInItsPlace) {
    for (int count = 1; count < 200; count += 7) {
        whole.steps(count, 5);
        EXPECT_THAT(whole.device.boards(), ElementsAre("kr62", "pd5-1", "pd5-2"));
        EXPECT_THAT(whole.device.sensors().addresses(), SizeIs(2));
    }
}

TEST_F(ScenarioTest, ADeviceWithoutIosLivesToo) {
    const TemporaryDirectory directory;
    const sim::Device device(directory.path());
    device.cpuTemperature().create(0);
    sim::Scenario scenario(device, 1, ALL);
    for (int number = 0; number < 100; ++number) {
        EXPECT_THAT(scenario.step(), MatchesRegex("set cpu [0-9]+"));
    }
}

TEST_F(ScenarioTest, StepsAreDueAtTheRate) {
    sim::Scenario scenario(whole.device, 1, ALL);
    std::vector<Clock::time_point> times;
    int done = 0;
    scenario.run(
        4, std::chrono::seconds(30),
        [&times](Clock::time_point time) {
            times.push_back(time);
            return true;
        },
        [&done](const std::string& /*step*/) { ++done; });
    ASSERT_THAT(times, SizeIs(120));
    EXPECT_EQ(done, 120);
    for (std::size_t number = 1; number < times.size(); ++number) {
        EXPECT_EQ(times[number] - times[0], number * std::chrono::milliseconds(250));
    }
}

TEST_F(ScenarioTest, EndsWhenItIsToldTo) {
    sim::Scenario scenario(whole.device, 1, ALL);
    Steps steps;
    scenario.run(
        1, std::chrono::hours(1), [&steps](Clock::time_point /*time*/) { return steps.size() < 3; },
        [&steps](const std::string& step) { steps.push_back(step); });
    EXPECT_THAT(steps, SizeIs(3));
}

TEST_F(ScenarioTest, EndsInTimeEvenIfItCannotKeepUp) {
    sim::Scenario scenario(whole.device, 1, ALL);
    std::size_t steps = 0;
    scenario.run(1e9, std::chrono::milliseconds(20), doNotWait,
                 [&steps](const std::string& /*step*/) { ++steps; });
    EXPECT_GT(steps, 0U);
    EXPECT_LT(steps, 20'000'000U);
}

TEST_F(ScenarioTest, DoesAllStepsOfTheTimeAtARateThatItCanKeep) {
    sim::Scenario scenario(whole.device, 1, {true, false});
    std::size_t steps = 0;
    const auto start = Clock::now();
    scenario.run(
        100, std::chrono::milliseconds(300),
        [](Clock::time_point time) {
            std::this_thread::sleep_until(time);
            return true;
        },
        [&steps](const std::string& /*step*/) { ++steps; });
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(290));
    // A busy machine may be late with the last ones, which the time cuts off then.
    EXPECT_LE(steps, 30U);
    EXPECT_GE(steps, 1U);
}

}  // namespace
