// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>

#include "Mailbox.h"
#include "Settings.h"
#include "Topics.h"
#include "client/Labels.h"
#include "client/RegisterCache.h"
#include "client/ServiceWatch.h"
#include "tesk/ObjectBase.h"

/// Keeps the connection to the service: fills the mailbox with what changes, and carries out the
/// requests in it. Runs in a thread of its own, which runs the default main context: a call of the
/// bus may take 5 seconds, and no broker shall wait for it.
class Gateway : private tesk::ObjectBase {
 public:
    using Clock = std::chrono::steady_clock;

    Gateway(const Settings& configuration, Labels knownLabels, Mailbox& box,
            std::string sessionWord);

    /// Works until the process ends.
    [[noreturn]] void run();

    /// How often run() has looked around: at least once a second, except while it waits for a call.
    unsigned heartbeat() const { return beats; }

 private:
    void serveBus();
    void heed(ServiceWatch::Event event, RegisterCache& cache);
    void tryToLoad(RegisterCache& cache);
    void loseService(RegisterCache& cache, const std::string& reason);
    void tell(const CachedRegister& entry);
    void tellValue(const CachedRegister& entry, bool always);
    void tellAllValues(const RegisterCache& cache);
    void tellInfo(const RegisterCache& cache);
    void carryOut(IoMapping& io, RegisterCache& cache);
    void answer(const Request& request, IoMapping& io, RegisterCache& cache);
    void refuseAll(const std::string& reason);
    void refuse(const Request& request, const std::string& reason);
    std::string answerGet(const Request& request, const RegisterCache& cache);
    std::string answerSet(const Request& request, IoMapping& io, RegisterCache& cache);
    std::string write(IoMapping& io, const CachedRegister& entry, int value,
                      const std::string& token);
    int rawValueOf(const Request& request, const CachedRegister& entry) const;
    int addressOf(const std::string& target) const;
    std::string topicOf(int address, const Label& label) const;

    const Settings& settings;
    Labels labels;
    Mailbox& mailbox;
    Topics topics;
    std::string session;
    std::string boot;
    bool serviceThere{false};
    bool enumerated{false};  ///< Whether the registers are those of the service as it runs.
    bool loaded{false};      ///< Whether their values are those of the service as it runs.
    Clock::time_point loadAt{};
    Clock::time_point tellAllAt{Clock::time_point::max()};
    std::map<int, double>
        shown;  ///< The scaled value of each labelled register that was told last.
    std::atomic<unsigned> beats{0};
};
