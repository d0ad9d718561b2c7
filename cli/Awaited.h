// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "client/Labels.h"

/// A register that is waited for, and the raw value that it is to have.
struct Awaited {
    int address;
    int value;
};

/// Waits until some registers have certain values, all at the same time. Hears of changes; reads
/// again and again what is never announced. A service that goes away meanwhile is waited for, which
/// standard error says.
///
/// @param labels name the values in messages
/// @param end how long to wait at most; max() to wait without an end
/// @throws Failure the time is up, a register is unknown, or there is no service or no bus
/// @throws ServiceError the service does not answer
void await(const std::vector<Awaited>& awaited, const Labels& labels,
           std::chrono::steady_clock::time_point end);
