// SPDX-License-Identifier: MIT
#include "DriverRefusal.h"

#include "Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> TYPE_NOT_SUPPORTED("type '%s' not supported");
constexpr Pattern<std::string> WRITE_NOT_SUPPORTED("write not supported for IO type %s");
constexpr Pattern<unsigned, std::string> INVALID_VALUE("invalid value '%?u' for IO type %s");

}  // namespace

namespace DriverRefusal {

void unsupportedType(RegisterType type) {
    throw tesk::UnsupportedException(TYPE_NOT_SUPPORTED(getTypeName(type)));
}

void unsupportedWrite(RegisterType type) {
    throw tesk::UnsupportedException(WRITE_NOT_SUPPORTED(getTypeName(type)));
}

bool acceptBit(RegisterType type, int value, Poco::Logger& logger) {
    const auto number = static_cast<unsigned>(value);
    if (number <= 1) {
        return true;
    }
    log(logger, Poco::Message::PRIO_ERROR, INVALID_VALUE, number, getTypeName(type));
    return false;
}

}  // namespace DriverRefusal
