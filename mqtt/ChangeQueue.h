// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

/// A new value of a register, or the reason why there is none.
struct Change {
    int address;
    std::optional<int> value;
    std::string reason;
    std::int64_t sinceBoot;  ///< When it was read, as in Moment.
};

/// Changes that wait to be sent, in order. When they wait for too long, only the newest of each
/// register stays, so that the memory is bounded by the number of registers.
class ChangeQueue {
 public:
    /// As many changes may wait as there are registers, and this many more.
    static constexpr std::size_t SPARE = 2000;

    void push(Change change);

    /// How many changes have given way to newer ones of their registers.
    std::uint64_t merged() const { return mergedCount; }

    bool empty() const { return waiting.empty(); }
    std::size_t size() const { return waiting.size(); }

    /// Takes the oldest changes out, as a JSON array.
    ///
    /// @param now as in Moment; each change is told with its age
    /// @param mostBytes how long the array may be; holds one change at least
    std::string take(std::int64_t now, std::size_t mostBytes);

 private:
    void merge();

    std::deque<Change> waiting;
    std::size_t mergeAt{SPARE};
    std::uint64_t mergedCount{0};
};
