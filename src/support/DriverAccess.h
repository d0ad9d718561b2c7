// SPDX-License-Identifier: MIT
#pragma once

#include "DriverInterface.h"
#include "Register.h"

/// What the registers on hardware have in common.
namespace DriverAccess {

/// Asks a register's driver whether it takes a value.
///
/// @throws tesk::InvalidArgumentsException "value %?u is invalid for address %d": it does not
/// @throws tesk::UnsupportedException the type cannot be written
void requireValidValue(const DriverInterface& driver, const Register& reg, int value);

}  // namespace DriverAccess
