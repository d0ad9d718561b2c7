// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "DriverManager.h"

/// Registers the drivers of a device that is not this one. The drivers have the register types of
/// the real ones, and any number of IOs. They touch no file and no chip.
///
/// @param names the names of the drivers, with commas between them ("kr62,pd5-1"); "vadu" and
///        "special" are always there
/// @throws UsageError a name is not that of a driver, or occurs twice
void addStandIns(DriverManager& manager, const std::string& names);
