// SPDX-License-Identifier: MIT
#include "Latencies.h"

#include <algorithm>
#include <cstdint>

std::chrono::nanoseconds Latencies::quantile(std::size_t perMille) {
    if (all.empty()) {
        return {};
    }
    const std::uint64_t rank = (std::uint64_t{all.size()} * perMille + 999) / 1000;
    const auto place =
        all.begin() + static_cast<std::ptrdiff_t>(std::max<std::uint64_t>(rank, 1) - 1);
    std::nth_element(all.begin(), place, all.end());
    return *place;
}
