// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>

/// The numbers N of all drivers "gpiochip-N" that the fields of a map file name.
///
/// Passes over whatever is wrong with the file or a field: that is told by whoever loads the map.
std::set<int> gpioChipsNamedIn(const std::string& mapFile);
