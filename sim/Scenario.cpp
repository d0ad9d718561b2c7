// SPDX-License-Identifier: MIT
#include "Scenario.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Error.h"

namespace sim {

namespace {

constexpr int HIGHEST_ANALOG = 4095;
constexpr int RAMP_STEP = 64;
constexpr int SENSOR_TEMPERATURE = 20000;

}  // namespace

Scenario::Scenario(Device simulated, std::uint32_t seed, Events mayHappen)
    : device(std::move(simulated)),
      random(seed),
      events(mayHappen),
      boards(device.boards()),
      sensors(device.sensors().isThere() ? device.sensors().addresses()
                                         : std::vector<std::string>()) {
    for (const std::string& board : boards) {
        const IoCounts counts = device.board(board).counts();
        for (int number = 1; number <= counts.inputs; ++number) {
            inputs.emplace_back(board, number);
        }
        for (int number = 1; number <= counts.analogs; ++number) {
            analogs.emplace_back(board, number);
        }
    }
}

Scenario::~Scenario() {
    try {
        if (!pulled.empty()) {
            device.board(pulled).restore();
        }
        if (!unplugged.empty()) {
            device.sensors().plug(unplugged, SENSOR_TEMPERATURE);
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): somebody else has done it
    }
}

std::string Scenario::step() {
    constexpr std::uint32_t PERCENT = 100;
    const std::uint32_t die = below(PERCENT);
    std::string done;
    if (die < 70) {
        done = toggleInput();
    } else if (die < 90) {
        done = moveAnalog();
    } else if (die < 95 && events.sensors) {
        done = changeSensors();
    } else if (die < 97 && events.boards) {
        done = changeBoards();
    }
    return done.empty() ? heatProcessor() : done;
}

void Scenario::run(double rate, std::chrono::duration<double> time,
                   const std::function<bool(Clock::time_point)>& waitUntil,
                   const std::function<void(const std::string&)>& tell) {
    const auto start = Clock::now();
    const auto after = [start](std::chrono::duration<double> passed) {
        return start + std::chrono::duration_cast<Clock::duration>(passed);
    };
    const auto steps = static_cast<std::uint64_t>(std::llround(rate * time.count()));
    for (std::uint64_t number = 0; number < steps; ++number) {
        const auto due = after(std::chrono::duration<double>(static_cast<double>(number) / rate));
        if (!waitUntil(due) || Clock::now() >= after(time)) {
            return;
        }
        tell(step());
    }
}

/// A random number from 0 on. The remainder is a little uneven, but the same with every library.
std::uint32_t Scenario::below(std::size_t limit) {
    return static_cast<std::uint32_t>(random() % limit);
}

template <typename T>
const T& Scenario::anyOf(const std::vector<T>& things) {
    return things[below(things.size())];
}

/// Each returns what it did; nothing when the device lacks what it takes.
std::string Scenario::toggleInput() {
    if (inputs.empty()) {
        return {};
    }
    const auto& [board, number] = anyOf(inputs);
    if (board == pulled) {
        return {};
    }
    const int value = device.board(board).toggleInput(number);
    return "set " + board + "/inputs/" + std::to_string(number) + " " + std::to_string(value);
}

std::string Scenario::moveAnalog() {
    if (analogs.empty()) {
        return {};
    }
    const Io& analog = anyOf(analogs);
    if (analog.first == pulled) {
        return {};
    }
    Ramp& ramp = ramps[analog];
    if (ramp.value + ramp.slope * RAMP_STEP < 0 ||
        ramp.value + ramp.slope * RAMP_STEP > HIGHEST_ANALOG) {
        ramp.slope = -ramp.slope;
    }
    ramp.value += ramp.slope * RAMP_STEP;
    return set(analog.first + "/analogs/" + std::to_string(analog.second), ramp.value);
}

std::string Scenario::heatProcessor() {
    constexpr int COLDEST = 40000;
    constexpr std::size_t SPAN = 30000;
    return set("cpu", COLDEST + static_cast<int>(below(SPAN)));
}

std::string Scenario::changeSensors() {
    constexpr std::size_t SPAN = 5000;
    if (!unplugged.empty()) {
        const std::string sensor = std::exchange(unplugged, {});
        device.sensors().plug(sensor, SENSOR_TEMPERATURE);
        return "plug " + sensor;
    }
    if (sensors.empty()) {
        return {};
    }
    const std::string& sensor = anyOf(sensors);
    if (below(2) == 0) {
        return set(sensor, SENSOR_TEMPERATURE + static_cast<int>(below(SPAN)));
    }
    device.sensors().unplug(sensor);
    unplugged = sensor;
    return "unplug " + sensor;
}

std::string Scenario::changeBoards() {
    if (!pulled.empty()) {
        const std::string board = std::exchange(pulled, {});
        device.board(board).restore();
        return "restore " + board;
    }
    if (boards.empty()) {
        return {};
    }
    const std::string& board = anyOf(boards);
    device.board(board).pull();
    pulled = board;
    return "pull " + board;
}

std::string Scenario::set(const std::string& name, int value) {
    device.set(name, std::to_string(value));
    return "set " + name + " " + std::to_string(value);
}

}  // namespace sim
