// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

/// Lets an event through when it comes first, and then once a minute. Each subject counts for
/// itself. May be used by several threads at once.
class OncePerMinute {
 public:
    using Clock = std::chrono::steady_clock;

    /// How many subjects are remembered at most, which bounds the memory. A device has a third of
    /// this number of files.
    static constexpr std::size_t MOST_SUBJECTS = 4096;

    /// Whether the event of a subject is to go through. While too many other subjects were let
    /// through within the last minute, a new subject is not.
    ///
    /// @param subject what the event is about
    /// @param now when the event happens
    bool allows(const std::string& subject, Clock::time_point now);

 private:
    std::mutex mutex;
    /// When each subject was let through last.
    std::map<std::string, Clock::time_point> allowed;
};
