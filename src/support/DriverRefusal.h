// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>

#include "RegisterType.h"

/// How drivers refuse what they cannot do.
namespace DriverRefusal {

/// @throws tesk::UnsupportedException "type '%s' not supported"
[[noreturn]] void unsupportedType(RegisterType type);

/// @throws tesk::UnsupportedException "write not supported for IO type %s"
[[noreturn]] void unsupportedWrite(RegisterType type);

/// Whether a value, taken as unsigned, is 0 or 1. One that is not is logged at error: "invalid
/// value '%?u' for IO type %s".
bool isBit(RegisterType type, int value, Poco::Logger& logger);

}  // namespace DriverRefusal
