// SPDX-License-Identifier: MIT
#include "Register.h"

#include <limits>

#include "support/Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<int, unsigned> VALUE_TOO_HIGH("value %?u is higher than max value %?u");
constexpr Pattern<int, int> READ_VALUE("read value for address %d -> %?u");
constexpr Pattern<int, int> WRITE_VALUE("write address %d, value %?u");
constexpr Pattern<int, std::string, int, unsigned> DESCRIPTION(
    "address %d, type '%s', index '%d', max value '%?u'");

unsigned int maxValueOfSize(unsigned int size) {
    constexpr unsigned int ALL_ONES = std::numeric_limits<unsigned int>::max();
    const unsigned int shift = size & 0xFFU;
    return shift < 32 ? ~(ALL_ONES << shift) : ALL_ONES;
}

}  // namespace

Register::Register(int registerAddress, RegisterType registerType, int registerIndex,
                   unsigned int size, const std::function<void(Register*)>& changeCallback)
    : ObjectBase("register-" + std::to_string(registerAddress)),
      address(registerAddress),
      type(registerType),
      index(registerIndex),
      maxValue(maxValueOfSize(size)),
      onChange(changeCallback) {}

Register::~Register() = default;

bool Register::isValueAboveLimits(int candidate) const {
    return maxValue >= static_cast<unsigned int>(candidate);
}

int Register::readValue() {
    logRead(value);
    return value;
}

void Register::writeValue(int newValue) {
    if (!isValueAboveLimits(newValue)) {
        throw tesk::InvalidArgumentsException(VALUE_TOO_HIGH(newValue, maxValue));
    }
    log(logger, Poco::Message::PRIO_INFORMATION, WRITE_VALUE, address, newValue);
    value = newValue;
    if (onChange) {
        onChange(this);
    }
}

std::string Register::toString() const {
    return DESCRIPTION(address, getTypeName(type), index, maxValue);
}

void Register::logRead(int readResult) const {
    log(logger, Poco::Message::PRIO_INFORMATION, READ_VALUE, address, readResult);
}
