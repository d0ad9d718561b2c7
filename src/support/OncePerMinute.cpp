// SPDX-License-Identifier: MIT
#include "OncePerMinute.h"

#include <iterator>

bool OncePerMinute::allows(const std::string& subject, Clock::time_point now) {
    constexpr std::chrono::minutes MINUTE{1};
    const std::lock_guard<std::mutex> guard(mutex);
    const auto known = allowed.find(subject);
    if (known != allowed.end()) {
        if (now - known->second < MINUTE) {
            return false;
        }
        known->second = now;
        return true;
    }
    if (allowed.size() >= MOST_SUBJECTS) {
        for (auto entry = allowed.begin(); entry != allowed.end();) {
            entry = now - entry->second < MINUTE ? std::next(entry) : allowed.erase(entry);
        }
    }
    return allowed.size() < MOST_SUBJECTS && allowed.emplace(subject, now).second;
}
