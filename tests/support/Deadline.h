// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <chrono>

#include "Build.h"

/// How long a test waits for anything before it fails. This is far above what is ever needed, so
/// that no test fails on a slow machine, not even a sanitizer's build on two busy cores.
constexpr std::chrono::seconds PATIENCE{EMULATED ? 600 : 30};

/// A point in time by which something must have happened.
class Deadline {
 public:
    explicit Deadline(std::chrono::milliseconds patience = PATIENCE)
        : end(std::chrono::steady_clock::now() + patience) {}

    bool passed() const { return std::chrono::steady_clock::now() >= end; }

    /// What is left, for poll(); 0 once it has passed.
    int milliseconds() const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        return left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }

 private:
    std::chrono::steady_clock::time_point end;
};

/// Runs the default main context until a condition holds.
///
/// @return whether it came to hold before the deadline
template <typename Condition>
bool runUntil(const Condition& condition, const Deadline& deadline = Deadline()) {
    // Wakes the iteration below when nothing else does, so that the deadline is seen.
    const guint ticker = g_timeout_add(
        100, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool holds = condition();
    while (!holds && !deadline.passed()) {
        g_main_context_iteration(nullptr, TRUE);
        holds = condition();
    }
    g_source_remove(ticker);
    return holds;
}
