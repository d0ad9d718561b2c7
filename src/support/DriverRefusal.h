// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>

#include "RegisterType.h"

/// How drivers refuse what they cannot do. All functions may be called from any thread.
namespace DriverRefusal {

/// Refuses a register type that the driver does not serve.
///
/// @throws tesk::UnsupportedException "type '%s' not supported", always
[[noreturn]] void unsupportedType(RegisterType type);

/// Refuses to write a register type that can only be read.
///
/// @throws tesk::UnsupportedException "write not supported for IO type %s", always
[[noreturn]] void unsupportedWrite(RegisterType type);

/// Accepts 0 and 1. Every other value, taken as unsigned, is refused with a log line at error:
/// "invalid value '%?u' for IO type %s".
///
/// @return whether the value is accepted
bool acceptBit(RegisterType type, int value, Poco::Logger& logger);

}  // namespace DriverRefusal
