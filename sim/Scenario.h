// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "Device.h"

namespace sim {

/// Lets a device live: inputs toggle, analogs go up and down in ramps, the processor gets warmer
/// and colder, sensors are unplugged and plugged, and boards pulled and put back.
///
/// What happens is chosen at random, but the same seed on an equal device always gives the same.
/// The boards and sensors are those that are there when it is constructed. It is for one thread.
class Scenario {
 public:
    using Clock = std::chrono::steady_clock;

    /// What may happen besides inputs, analogs and temperatures.
    struct Events {
        bool sensors{true};
        bool boards{false};
    };

    Scenario(Device simulated, std::uint32_t seed, Events mayHappen);
    /// Puts back what is pulled or unplugged.
    ~Scenario();
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;

    /// Does the next thing.
    ///
    /// @return what it was, in the words of iomap-sim, such as "set kr62/inputs/3 1"
    /// @throws Error somebody else has taken the thing away
    std::string step();

    /// Does steps at a rate. A step that is late does not delay those behind it.
    ///
    /// @param rate steps per second, above 0
    /// @param time how long it goes on
    /// @param waitUntil waits for the time of the next step; returns whether to go on
    /// @param tell is called with each step done
    void run(double rate, std::chrono::duration<double> time,
             const std::function<bool(Clock::time_point)>& waitUntil,
             const std::function<void(const std::string&)>& tell);

 private:
    /// An IO by the board's name and its number.
    using Io = std::pair<std::string, int>;
    struct Ramp {
        int value{0};
        int slope{1};
    };

    std::uint32_t below(std::size_t limit);
    template <typename T>
    const T& anyOf(const std::vector<T>& things);
    std::string toggleInput();
    std::string moveAnalog();
    std::string heatProcessor();
    std::string changeSensors();
    std::string changeBoards();
    std::string set(const std::string& name, int value);

    Device device;
    std::mt19937 random;
    Events events;
    std::vector<std::string> boards;
    std::vector<std::string> sensors;
    std::vector<Io> inputs;
    std::vector<Io> analogs;
    std::map<Io, Ramp> ramps;
    std::string pulled;
    std::string unplugged;
};

}  // namespace sim
