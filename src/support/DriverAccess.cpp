// SPDX-License-Identifier: MIT
#include "DriverAccess.h"

#include "Pattern.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<int, int> VALUE_INVALID("value %?u is invalid for address %d");

}  // namespace

namespace DriverAccess {

void requireValidValue(const DriverInterface& driver, const Register& reg, int value) {
    if (!driver.isValueValid(reg.getType(), value)) {
        throw tesk::InvalidArgumentsException(VALUE_INVALID(value, reg.getAddress()));
    }
}

}  // namespace DriverAccess
