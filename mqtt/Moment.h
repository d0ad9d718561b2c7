// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// A point in time as the device knows it. Its clock may be wrong until it is synchronised; the
/// time since the start is always right.
struct Moment {
    std::int64_t wall{0};       ///< Milliseconds since 1970, UTC.
    std::int64_t sinceBoot{0};  ///< Milliseconds since the device started, sleep included.
    bool synchronised{false};   ///< Whether the clock was synchronised with others.

    /// The present.
    static Moment now();
};

/// What bootId() gives when the kernel does not tell.
constexpr const char* UNKNOWN_BOOT = "unknown";

/// The id of this start of the device, as the kernel gives it, or UNKNOWN_BOOT.
std::string bootId();

/// A time in the form of RFC 3339, UTC, with milliseconds: "2026-01-02T03:04:05.678Z".
std::string timeText(std::int64_t wall);
