// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// What to change in a map that the service refuses with a message. Never empty.
std::string remedyFor(const std::string& message);

/// The word of a list that differs least from a misspelt one. Letters may be missing, too many,
/// wrong, exchanged, or in the wrong case.
///
/// @return empty if no word is as near as a misspelling is
std::string nearest(const std::string& misspelt, const std::vector<std::string>& words);
