// SPDX-License-Identifier: MIT
/// @file Messages like those that iomap-mqtt sends: ten changes in a batch.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Schedule.h"

/// The batch of a device.
///
/// @param sequence its number, from 1
/// @param due when it is to be sent; the batch carries this time
std::string messageOf(std::uint64_t sequence, Clock::time_point due);

/// When a batch was due; nothing if the text is no batch of messageOf().
std::optional<Clock::time_point> dueOf(std::string_view message);
