// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

/// How long to wait before the next attempt to connect. A thousand devices that lose their broker
/// at once come back spread over a time that doubles with each attempt.
class Backoff {
 public:
    using Duration = std::chrono::milliseconds;
    /// @return a number from 0 to 1, evenly spread
    using Random = std::function<double()>;

    static constexpr Duration FIRST{1000};
    static constexpr Duration LONGEST{300'000};
    static constexpr Duration SHORTEST{100};
    static constexpr Duration AFTER_REFUSAL{60'000};

    explicit Backoff(Random source);

    /// The pause after an attempt that failed, or a connection that was lost: anything up to 1 s,
    /// then 2 s, and so on, up to 5 minutes.
    Duration next();

    /// The pause after the broker has refused the login: a minute more. Somebody has to change
    /// something first, and the broker may lock out who tries too often.
    Duration nextAfterRefusal();

    /// The connection has lasted: starts anew.
    void reset() { most = FIRST; }

 private:
    Random random;
    Duration most{FIRST};
};
