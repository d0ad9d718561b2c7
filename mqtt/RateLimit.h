// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Lets an event through at most once in an interval.
class RateLimit {
 public:
    using Clock = std::chrono::steady_clock;

    explicit RateLimit(Clock::duration between) : interval(between) {}

    /// Whether the event may happen now.
    bool allows(Clock::time_point now) const { return now >= next; }

    /// The event happens now.
    void note(Clock::time_point now) { next = now + interval; }

    /// When the event may happen next.
    Clock::time_point nextTime() const { return next; }

 private:
    Clock::duration interval;
    Clock::time_point next{};
};
