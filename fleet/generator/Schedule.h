// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

using Clock = std::chrono::steady_clock;

/// When messages are due, whatever became of those before: a broker that is slow is not asked less.
struct Schedule {
    Clock::time_point start;
    std::chrono::nanoseconds interval;  ///< Between two messages of the whole fleet.

    /// @param connections how many devices share the period, each with a place of its own in it
    /// @param period between two messages of one device
    static Schedule of(Clock::time_point start, std::uint64_t connections,
                       std::chrono::nanoseconds period) {
        return {start, period / static_cast<std::int64_t>(connections)};
    }

    /// When a message is due; messages count from 0.
    Clock::time_point at(std::uint64_t message) const {
        return start + interval * static_cast<std::int64_t>(message);
    }

    /// How many messages a time holds.
    std::uint64_t countIn(std::chrono::nanoseconds time) const {
        return static_cast<std::uint64_t>(time / interval);
    }
};
