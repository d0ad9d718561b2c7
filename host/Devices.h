// SPDX-License-Identifier: MIT
#pragma once

#include "DriverManager.h"

/// Registers a driver for each piece of hardware that this device has.
///
/// A board that is there but cannot be used is left out with one line in the log, so that the rest
/// of the device works.
void addDrivers(DriverManager& manager);
