// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

/// Times that messages took. All of them are kept, so that no figure is an estimate.
class Latencies {
 public:
    void add(std::chrono::nanoseconds latency) { all.push_back(latency); }

    std::size_t count() const { return all.size(); }

    /// The least time that so many of a thousand messages do not exceed; 0 without any message.
    ///
    /// @param perMille 1 to 1000; 500 is the median, 1000 the longest time
    std::chrono::nanoseconds quantile(std::size_t perMille);

 private:
    std::vector<std::chrono::nanoseconds> all;
};
