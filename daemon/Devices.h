// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "DriverManager.h"

/// Registers a driver for each piece of hardware that this device has, GPIO chips only if the map
/// names them.
///
/// A board that is there but cannot be used, or a chip that cannot be opened, is left out with one
/// line in the log, so that the rest of the device works.
///
/// @param mapFile the path of the map; one with a fault names no chips
/// @return the names of the drivers of boards that were found
std::vector<std::string> addDrivers(DriverManager& manager, const std::string& mapFile);
