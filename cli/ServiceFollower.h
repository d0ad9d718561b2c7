// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "client/ServiceWatch.h"

/// Follows the service through its ends and starts, for a subcommand that outlives it. For the
/// thread that runs the default main context.
class ServiceFollower {
 public:
    struct Listener {
        std::function<void()> onLoss;    ///< The service has gone: what was read is of no use.
        std::function<void()> onReturn;  ///< Asks the service anew, which may be another one.
        std::function<void(const std::string& text)> tell;  ///< Tells the user something.
    };

    /// Waits until the bus has said whether the service is there, 5 seconds at most.
    ///
    /// @throws Failure there is no bus, or it does not answer
    explicit ServiceFollower(Listener listenerOfEvents);

    /// Takes in what has happened since the last call. A service that is back and does not answer
    /// is asked again every second; IoMapping::run(true) returns in time for that.
    ///
    /// @throws Failure the bus has gone
    /// @throws std::exception what onReturn() throws, unless it means that there is no service
    void follow();

    /// Whether the service has gone and has not answered since.
    bool isAway() const { return away; }

    /// Why a service that is back has not answered; empty if it was not asked.
    const std::string& reason() const { return lastReason; }

 private:
    using Clock = std::chrono::steady_clock;

    void heed(ServiceWatch::Event event);
    void tryToReturn();

    Listener listener;
    ServiceWatch service;
    bool away{false};
    std::optional<Clock::time_point> retryAt;
    std::string lastReason;
};
