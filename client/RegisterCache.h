// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "PollPlan.h"
#include "Registers.h"

/// What is known of the value of a register.
struct CachedValue {
    enum class Quality {
        GOOD,       ///< The value is that of the last reading, and the service stands for it.
        STALE,      ///< The service has gone since the last reading, or there was none yet.
        UNREADABLE  ///< The last reading failed.
    };
    using Clock = std::chrono::steady_clock;

    int value{0};
    Quality quality{Quality::STALE};
    std::string reason;          ///< Why the register is unreadable.
    Clock::time_point readAt{};  ///< When it was read last, with or without success.
};

/// A register with what is known of it.
struct CachedRegister {
    RegisterInfo info{};
    CachedValue state;
};

/// All registers of the device, with their last values, for a program that tells others of them.
///
/// The registers are enumerated once for each start of the service. Announced changes arrive while
/// IoMapping::run() runs. Registers are read in groups by type, each at its interval. A register of
/// any type that could not be read is tried again every 10 seconds.
/// For the thread that runs IoMapping::run().
class RegisterCache {
 public:
    using Clock = CachedValue::Clock;
    /// Hears of each register whose value or quality is another one.
    using Listener = std::function<void(const CachedRegister&)>;

    /// Knows no register yet.
    ///
    /// @param service outlives the cache
    RegisterCache(IoMapping& service, PollPlan plan, Listener listener);
    ~RegisterCache();
    RegisterCache(const RegisterCache&) = delete;
    RegisterCache& operator=(const RegisterCache&) = delete;

    /// Enumerates the registers and reads them, as enumerate() and readAll() do.
    ///
    /// @throws Failure, tesk::InputOutputException the service does not answer; nothing is good
    /// then
    void load();

    /// Asks the service which registers there are. Nothing is known of their values then. To be
    /// called when the service has come to the bus: the registers stay the same until it goes.
    ///
    /// @throws Failure, tesk::InputOutputException the service does not answer
    void enumerate();

    /// Reads all registers but the slow ones: poll() reads these. To be called after enumerate(),
    /// and again when the service answers after it did not.
    ///
    /// @throws tesk::InputOutputException the service does not answer; nothing is good then
    void readAll();

    /// From now on all values are stale, and none is polled: the service has gone or does not
    /// answer. The listener hears of each.
    void invalidate();

    /// Reads what is due: at most one group, or one slow register, so that announced changes need
    /// not wait for long.
    ///
    /// @throws tesk::InputOutputException the service does not answer
    void poll(Clock::time_point now);

    /// When poll() is to be called next; the far future if never.
    Clock::time_point nextPoll() const;

    /// Reads a register at once. An address without a register is ignored.
    ///
    /// @throws tesk::InputOutputException the service does not answer
    void refresh(int address);

    /// All registers, by address.
    const std::map<int, CachedRegister>& registers() const { return entries; }

 private:
    /// The registers of one type that are read again and again.
    struct Group {
        std::vector<int> addresses;
        PollPlan::Interval interval;
        bool slow;
        Clock::time_point due;
        std::size_t next{0};  ///< Of a slow group: which register is read next.
    };

    void subscribe();
    void makeGroups(Clock::time_point now);
    void readGroup(Group& group, Clock::time_point now);
    void readSlow(Group& group, Clock::time_point now);
    void retry(int first, Clock::time_point now);
    void read(const std::vector<int>& addresses, Clock::time_point now);
    bool isSlow(int address) const;
    void take(int address, const Reading& reading);
    void change(CachedRegister& entry, const CachedValue& state);

    IoMapping& io;
    PollPlan intervals;
    Listener onChange;
    std::map<int, CachedRegister> entries;
    std::vector<Group> groups;
    std::map<int, Clock::time_point> retries;  ///< What could not be read, and when to try again.
};
