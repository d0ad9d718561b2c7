// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace sim {

/// The number of a board or of an IO in a text, as it stands in a path: up to nine digits, without
/// zeros in front; nothing when the text is anything else.
std::optional<int> ioNumber(const std::string& text);

}  // namespace sim
