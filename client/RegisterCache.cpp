// SPDX-License-Identifier: MIT
#include "RegisterCache.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

/// One call reads at most this many registers, so that it ends well within its 5 seconds.
constexpr std::size_t MOST_AT_ONCE = 512;

/// Each register that fails costs several calls, so it is not tried at every interval. A register
/// that is never polled is tried again, too.
constexpr std::chrono::seconds RETRY_INTERVAL(10);

std::vector<int> keysOf(const std::map<int, CachedRegister>& entries) {
    std::vector<int> addresses;
    std::transform(entries.begin(), entries.end(), std::back_inserter(addresses),
                   [](const auto& entry) { return entry.first; });
    return addresses;
}

/// What is to be tried again first.
auto earliestOf(const std::map<int, CachedValue::Clock::time_point>& retries) {
    return std::min_element(retries.begin(), retries.end(),
                            [](const auto& a, const auto& b) { return a.second < b.second; });
}

}  // namespace

RegisterCache::RegisterCache(IoMapping& service, PollPlan plan, Listener listener)
    : io(service), intervals(std::move(plan)), onChange(std::move(listener)) {}

RegisterCache::~RegisterCache() {
    io.disableNotificationsRange(keysOf(entries));
}

void RegisterCache::load() {
    enumerate();
    readAll();
}

void RegisterCache::enumerate() {
    io.disableNotificationsRange(keysOf(entries));
    entries.clear();
    groups.clear();
    retries.clear();
    for (const RegisterInfo& info : infosOf(io, addressesOf(io, {}))) {
        entries[info.address] = {info, {}};
    }
    subscribe();
}

void RegisterCache::subscribe() {
    // Types that are not announced, too: a register in the place of missing hardware announces.
    io.enableNotificationsRange(keysOf(entries), [this](int address, int value) {
        take(address, {value, {}});
    });
}

void RegisterCache::readAll() {
    std::vector<int> quick;
    for (const auto& [address, entry] : entries) {
        if (!isSlow(address)) {
            quick.push_back(address);
        }
    }
    groups.clear();
    retries.clear();
    try {
        read(quick, Clock::now());
    } catch (...) {
        invalidate();
        throw;
    }
    makeGroups(Clock::now());
}

void RegisterCache::makeGroups(Clock::time_point now) {
    std::map<RegisterType, std::vector<int>> byType;
    for (const auto& [address, entry] : entries) {
        byType[entry.info.type].push_back(address);
    }
    for (auto& [type, addresses] : byType) {
        const PollPlan::Interval interval = intervals.intervalOf(type);
        const bool slow = PollPlan::isSlow(type);
        if (interval > PollPlan::Interval::zero()) {
            groups.push_back({std::move(addresses), interval, slow, slow ? now : now + interval});
        }
    }
}

void RegisterCache::invalidate() {
    groups.clear();
    retries.clear();
    for (auto& [address, entry] : entries) {
        CachedValue state = entry.state;
        state.quality = CachedValue::Quality::STALE;
        state.reason.clear();
        change(entry, state);
    }
}

void RegisterCache::poll(Clock::time_point now) {
    const auto group = std::min_element(
        groups.begin(), groups.end(), [](const Group& a, const Group& b) { return a.due < b.due; });
    const auto failed = earliestOf(retries);
    const auto groupDue = group == groups.end() ? Clock::time_point::max() : group->due;
    const auto retryDue = failed == retries.end() ? Clock::time_point::max() : failed->second;
    if (std::min(groupDue, retryDue) > now) {
        return;
    }
    if (retryDue < groupDue) {
        retry(failed->first, now);
    } else if (group->slow) {
        readSlow(*group, now);
    } else {
        readGroup(*group, now);
    }
}

void RegisterCache::readSlow(Group& group, Clock::time_point now) {
    const int address = group.addresses[group.next];
    group.next = (group.next + 1) % group.addresses.size();
    // The next one waits until the other groups that are due have had their turn.
    group.due = group.next == 0 ? now + group.interval : now;
    if (retries.count(address) == 0) {
        read({address}, now);
    }
}

void RegisterCache::readGroup(Group& group, Clock::time_point now) {
    // From now on and not from when it was due: a device that cannot keep up must not try to.
    group.due = now + group.interval;
    std::vector<int> addresses;
    std::copy_if(group.addresses.begin(), group.addresses.end(), std::back_inserter(addresses),
                 [this](int address) { return retries.count(address) == 0; });
    read(addresses, now);
}

/// Tries what could not be read: one slow register, or all others that are due.
void RegisterCache::retry(int first, Clock::time_point now) {
    std::vector<int> addresses{first};
    for (const auto& [address, due] : retries) {
        if (address != first && due <= now && !isSlow(first) && !isSlow(address)) {
            addresses.push_back(address);
        }
    }
    read(addresses, now);
}

void RegisterCache::read(const std::vector<int>& addresses, Clock::time_point now) {
    for (auto first = addresses.begin(); first != addresses.end();) {
        const auto left = static_cast<std::size_t>(addresses.end() - first);
        const auto last = first + static_cast<std::ptrdiff_t>(std::min(left, MOST_AT_ONCE));
        std::vector<RegisterInfo> part;
        std::transform(first, last, std::back_inserter(part),
                       [this](int address) { return entries.at(address).info; });
        const std::vector<Reading> readings = readKnown(io, part);
        for (std::size_t i = 0; i < part.size(); ++i) {
            take(part[i].address, readings[i]);
            if (!readings[i].error.empty()) {
                retries[part[i].address] = now + RETRY_INTERVAL;
            }
        }
        first = last;
    }
}

bool RegisterCache::isSlow(int address) const {
    return PollPlan::isSlow(entries.at(address).info.type);
}

void RegisterCache::refresh(int address) {
    if (entries.count(address) > 0) {
        read({address}, Clock::now());
    }
}

RegisterCache::Clock::time_point RegisterCache::nextPoll() const {
    auto due = Clock::time_point::max();
    for (const Group& group : groups) {
        due = std::min(due, group.due);
    }
    const auto failed = earliestOf(retries);
    if (failed != retries.end()) {
        due = std::min(due, failed->second);
    }
    return due;
}

void RegisterCache::take(int address, const Reading& reading) {
    CachedRegister& entry = entries.at(address);
    CachedValue state{reading.value, CachedValue::Quality::GOOD, reading.error, Clock::now()};
    retries.erase(address);
    if (!reading.error.empty()) {
        state.value = entry.state.value;
        state.quality = CachedValue::Quality::UNREADABLE;
    }
    change(entry, state);
}

void RegisterCache::change(CachedRegister& entry, const CachedValue& state) {
    const CachedValue before = std::exchange(entry.state, state);
    if (before.value != state.value || before.quality != state.quality ||
        before.reason != state.reason) {
        onChange(entry);
    }
}
