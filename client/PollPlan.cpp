// SPDX-License-Identifier: MIT
#include "PollPlan.h"

using std::chrono::seconds;

PollPlan::PollPlan()
    : intervals{{RegisterType::RELAY, seconds(60)},
                {RegisterType::INPUT_DIGITAL, seconds(60)},
                {RegisterType::PULLUP, seconds(60)},
                {RegisterType::CTS, seconds(60)},
                {RegisterType::INPUT_COUNTER, seconds(1)},
                {RegisterType::INPUT_ANALOG, seconds(1)},
                {RegisterType::RTS, seconds(1)},
                {RegisterType::SENSOR_TEMP_VALUE, seconds(10)},
                // A sensor may leave its line, and another one take it.
                {RegisterType::SENSOR_TEMP_ADDRESS_LOWER, seconds(60)},
                {RegisterType::SENSOR_TEMP_ADDRESS_HIGHER, seconds(60)},
                {RegisterType::DEVICE_CURRENT, seconds(1)},
                {RegisterType::DEVICE_VOLTAGE, seconds(1)},
                {RegisterType::CPU_TEMP, seconds(10)},
                {RegisterType::UPTIME, seconds(60)},
                {RegisterType::USB_ENABLE, seconds(1)},
                {RegisterType::COLOR_LED, seconds(1)},
                {RegisterType::BRIGHTNESS_LED, seconds(1)},
                {RegisterType::ENABLE_ANALOG, seconds(1)}} {}

PollPlan::Interval PollPlan::intervalOf(RegisterType type) const {
    const auto interval = intervals.find(type);
    return interval == intervals.end() ? Interval::zero() : interval->second;
}
