// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <chrono>

/// Whether the bus may start the service when nobody owns its name.
enum class ServiceStart { ALLOWED, REFUSED };

/// Asks the service for something that it always answers, over a connection of its own. The
/// methods of the class IoMapping wait for 5 seconds; this one waits as long as its caller has.
///
/// @param limit how long the connection and the answer may take together
/// @throws ServiceError in the words of the class IoMapping: the bus cannot be reached, or the
///         service is not there or has not answered in time
void probeService(std::chrono::milliseconds limit, ServiceStart start);

/// How long a probe may take for a user who waits until a time: what is left, but no less than
/// what a service needs to answer, and no more than a call of the class IoMapping waits.
std::chrono::milliseconds probeLimit(std::chrono::steady_clock::time_point end);
