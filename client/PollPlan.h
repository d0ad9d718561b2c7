// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>

#include "RegisterType.h"

/// How often the registers of each type are read. What never changes while the service runs is read
/// only once. What the service announces is read now and then: a board that is gone announces
/// nothing.
class PollPlan {
 public:
    using Interval = std::chrono::milliseconds;

    /// The intervals that fit most devices.
    PollPlan();

    /// Reads the registers of a type this often from now on.
    void set(RegisterType type, Interval interval) { intervals[type] = interval; }

    /// @return zero if the type is read only once
    Interval intervalOf(RegisterType type) const;

    /// Whether each register of a type takes a call of its own, because its hardware takes long.
    static bool isSlow(RegisterType type) { return type == RegisterType::SENSOR_TEMP_VALUE; }

 private:
    std::map<RegisterType, Interval> intervals;
};
