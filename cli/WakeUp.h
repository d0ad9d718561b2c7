// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Makes IoMapping::run(true) return after this time, and again and again after it, as long as the
/// process lives. For the thread that runs it.
void wakeAfter(std::chrono::duration<double> time);

/// The same, but only once. A time below 0 counts as 0.
void wakeOnceAfter(std::chrono::duration<double> time);
