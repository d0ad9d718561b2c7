// SPDX-License-Identifier: MIT
#include "Awaited.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>

#include "Output.h"
#include "ServiceFollower.h"
#include "WakeUp.h"
#include "client/Failure.h"
#include "client/PollPlan.h"
#include "client/ServiceProbe.h"
#include "program/Report.h"
#include "tesk/Exceptions.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How often registers are read that are never announced: quick ones, and those that take most of a
/// second each.
constexpr std::chrono::milliseconds QUICK_INTERVAL(100);
constexpr std::chrono::milliseconds SLOW_INTERVAL(1000);

void tell(const std::string& text) {
    std::cerr << "iomap: " + printable(text) + '\n';
}

/// Waits for the values of some registers.
class Waiter {
 public:
    Waiter(const std::vector<Awaited>& whatToAwait, const Labels& deviceLabels,
           Clock::time_point endOfTime)
        : awaited(whatToAwait), labels(deviceLabels), end(endOfTime) {}

    void wait() {
        begin();
        while (!held && Clock::now() < end) {
            io.run(true);
            service.follow();
            pollIfDue();
        }
        if (!held) {
            fail();
        }
    }

 private:
    /// Learns what the registers are and what values they have.
    void begin() {
        std::vector<int> addresses;
        std::transform(awaited.begin(), awaited.end(), std::back_inserter(addresses),
                       [](const Awaited& a) { return a.address; });
        const std::vector<RegisterInfo> found = infosOf(io, addresses);
        infos.clear();
        readings.clear();
        silent.clear();
        for (const RegisterInfo& info : found) {
            infos[info.address] = info;
        }
        std::vector<RegisterInfo> all;
        for (const auto& [address, info] : infos) {
            all.push_back(info);
            if (!isAnnounced(info.type)) {
                silent.push_back(info);
            }
        }
        // First, so that no change is missed before the reading.
        io.enableNotificationsRange(addresses, [this](int address, int value) {
            note(address, {value, {}});
        });
        read(all);
        planPolls();
    }

    void planPolls() {
        if (silent.empty()) {
            nextPoll = Clock::time_point::max();
            return;
        }
        const bool isSlow = std::any_of(silent.begin(), silent.end(), [](const RegisterInfo& info) {
            return PollPlan::isSlow(info.type);
        });
        interval = isSlow ? SLOW_INTERVAL : QUICK_INTERVAL;
        planPoll(Clock::now() + interval);
    }

    void planPoll(Clock::time_point time) {
        nextPoll = time;
        wakeOnceAfter(nextPoll - Clock::now());
    }

    void read(const std::vector<RegisterInfo>& wanted) {
        const std::vector<Reading> found = readKnown(io, wanted);
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            note(wanted[i].address, found[i]);
        }
        trouble.clear();
    }

    void pollIfDue() {
        const auto now = Clock::now();
        if (held || service.isAway() || now < nextPoll) {
            return;
        }
        try {
            probeService(probeLimit(end), ServiceStart::REFUSED);
            read(silent);
        } catch (const tesk::InputOutputException& e) {
            trouble = reasonOf(e);
        }
        planPoll(now + interval);
    }

    /// Notes what a register shows. A value counts even if the next one comes at once.
    void note(int address, const Reading& reading) {
        readings[address] = reading;
        held = held || std::all_of(awaited.begin(), awaited.end(),
                                   [this](const Awaited& a) { return isHeld(a); });
    }

    bool isHeld(const Awaited& a) const {
        const auto reading = readings.find(a.address);
        return reading != readings.end() && reading->second.error.empty() &&
               reading->second.value == a.value;
    }

    /// What the registers showed is no longer so.
    void forget() {
        readings.clear();
        trouble.clear();
    }

    /// The registers may be others now.
    void beginAnew() {
        probeService(probeLimit(end), ServiceStart::ALLOWED);
        begin();
    }

    [[noreturn]] void fail() const {
        if (service.isAway()) {
            const std::string& reason = service.reason();
            throw Failure(reason.empty()
                              ? "the time is up, and the service is not running; start iomappingd"
                              : "the time is up: " + reason,
                          EXIT_NO_SERVICE);
        }
        if (!trouble.empty()) {
            throw Failure("the time is up: " + trouble, EXIT_NO_SERVICE);
        }
        std::string text;
        for (const Awaited& a : awaited) {
            if (!isHeld(a)) {
                text += (text.empty() ? "" : "; ") + nameOf(a.address, infos.at(a.address)) +
                        differenceOf(a);
            }
        }
        throw Failure("the time is up: " + text);
    }

    std::string differenceOf(const Awaited& a) const {
        const auto reading = readings.find(a.address);
        if (reading == readings.end() || !reading->second.error.empty()) {
            return reading == readings.end() ? ": not read yet" : ": " + reading->second.error;
        }
        const Label* const label = labels.find(a.address);
        return " is " + shownText(reading->second, label) + ", not " +
               shownText({a.value, {}}, label);
    }

    const std::vector<Awaited>& awaited;
    const Labels& labels;
    const Clock::time_point end;
    IoMapping io;
    ServiceFollower service{{[this] { forget(); }, [this] { beginAnew(); }, tell}};
    std::map<int, RegisterInfo> infos;
    std::map<int, Reading> readings;
    std::vector<RegisterInfo> silent;  ///< Those that are never announced.
    std::chrono::milliseconds interval{QUICK_INTERVAL};
    Clock::time_point nextPoll{Clock::time_point::max()};
    std::string trouble;  ///< Why the last reading failed.
    bool held{false};
};

}  // namespace

void await(const std::vector<Awaited>& awaited, const Labels& labels, Clock::time_point end) {
    if (end != Clock::time_point::max()) {
        wakeAfter(end - Clock::now());
    }
    Waiter(awaited, labels, end).wait();
}
