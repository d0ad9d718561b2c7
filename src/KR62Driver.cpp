// SPDX-License-Identifier: MIT
#include "KR62Driver.h"

#include "FileNotify.h"
#include "support/BoardIo.h"
#include "support/DriverRefusal.h"
#include "support/Log.h"
#include "support/ValueFile.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> INFO_FILE("%s/info_io");
constexpr Pattern<std::string, int> RELAY_FILE("%s/relays/%d/value");
constexpr Pattern<std::string, int> INPUT_FILE("%s/inputs/%d/value");
constexpr Pattern<std::string, int> INPUT_EDGE_FILE("%s/inputs/%d/edge");
constexpr Pattern<std::string, int> PULLUP_FILE("%s/pullups/%d/value");
constexpr Pattern<std::string, int> COUNTER_FILE("%s/inputs/%d/counter");
constexpr Pattern<std::string, int> COUNTER_EDGE_FILE("%s/inputs/%d/counter_edge");
constexpr Pattern<std::string, int> ANALOG_FILE("%s/analogs/%d/value");
constexpr Pattern<std::string> CURRENT_FILE("%s/supply_current");
constexpr Pattern<std::string> VOLTAGE_FILE("%s/supply_voltage");
constexpr Pattern<std::string> USB_FILE("%s/usb_enable");
constexpr Pattern<std::string, int> LED_COLOR_FILE("%s/leds/%d/color");
constexpr Pattern<std::string, int> LED_BRIGHTNESS_FILE("%s/leds/%d/brightness");
constexpr Pattern<std::string> SUPPLY_REFERENCE_FILE("%s/analog_ref");
constexpr Pattern<std::string> ANALOG_REFERENCE_FILE("%s/analogs/analog_ref");

constexpr Pattern<int> INVALID_LED("invalid led index: %d");
constexpr Pattern<unsigned> INVALID_COLOR("invalid led color '%?u'");
constexpr Pattern<unsigned> INVALID_BRIGHTNESS("invalid led brightness '%?u'");

/// The kernel's number of the LED with an index.
int ledNumber(int index) {
    switch (index) {
        case 1:
            return 3;
        case 2:
            return 12;
        default:
            // The message has always shown a 0, and is matched by its users.
            throw tesk::InvalidArgumentsException(INVALID_LED(0));
    }
}

}  // namespace

const std::string KR62Driver::KR62_BASE_PATH = "/sys/kernel/kr62";

const std::array<std::string, 7> KR62Driver::LED_COLORS{"red",    "green", "yellow", "blue",
                                                        "purple", "cyan",  "white"};

KR62Driver::KR62Driver()
    : DriverInterface(KR62, -1), basePath(KR62_BASE_PATH), infoIo(INFO_FILE(KR62_BASE_PATH)) {}

KR62Driver::~KR62Driver() = default;

bool KR62Driver::driverIsAvailable() {
    return BoardIo::directoryExists(KR62_BASE_PATH);
}

void KR62Driver::setBasePath(const std::string& path) {
    basePath = path;
}

void KR62Driver::configureIO(RegisterType type, int index, std::function<void(int)> callback) {
    switch (type) {
        case RegisterType::INPUT_DIGITAL:
            BoardIo::writeEdge(INPUT_EDGE_FILE(basePath, index), "both");
            [[fallthrough]];
        case RegisterType::RELAY:
        case RegisterType::PULLUP:
            FileNotify::getInstance()->enableNotifications(getIOFileName(type, index),
                                                           std::move(callback));
            break;
        case RegisterType::INPUT_COUNTER:
            BoardIo::writeEdge(COUNTER_EDGE_FILE(basePath, index), "rising");
            break;
        default:
            break;
    }
}

std::string KR62Driver::getIOFileName(RegisterType type, int index) const {
    switch (type) {
        case RegisterType::RELAY:
            BoardIo::requireIndex(index, infoIo.relays);
            return RELAY_FILE(basePath, index);
        case RegisterType::INPUT_DIGITAL:
            BoardIo::requireIndex(index, infoIo.inputs);
            return INPUT_FILE(basePath, index);
        case RegisterType::PULLUP:
            BoardIo::requireIndex(index, infoIo.inputs);
            return PULLUP_FILE(basePath, index);
        case RegisterType::INPUT_COUNTER:
            BoardIo::requireIndex(index, infoIo.inputs);
            return COUNTER_FILE(basePath, index);
        case RegisterType::INPUT_ANALOG:
            BoardIo::requireIndex(index, infoIo.analogs);
            return ANALOG_FILE(basePath, index);
        case RegisterType::DEVICE_CURRENT:
            return CURRENT_FILE(basePath);
        case RegisterType::DEVICE_VOLTAGE:
            return VOLTAGE_FILE(basePath);
        case RegisterType::USB_ENABLE:
            return USB_FILE(basePath);
        case RegisterType::COLOR_LED:
            return LED_COLOR_FILE(basePath, ledNumber(index));
        case RegisterType::BRIGHTNESS_LED:
            return LED_BRIGHTNESS_FILE(basePath, ledNumber(index));
        default:
            DriverRefusal::unsupportedType(type);
    }
}

// The factors stay apart and in this order: merged, some results would differ by one.
int KR62Driver::convertValue(RegisterType type, int value, int /*index*/) const {
    const double v = value;
    switch (type) {
        case RegisterType::DEVICE_CURRENT: {
            const int ref = readReference(SUPPLY_REFERENCE_FILE(basePath));
            return BoardIo::truncate(v * 1.2 / ref / 50.0 / 0.1 * 1000.0);
        }
        case RegisterType::DEVICE_VOLTAGE: {
            const int ref = readReference(SUPPLY_REFERENCE_FILE(basePath));
            return BoardIo::truncate(v * 1.2 / ref * 110.0 / 10.0 * 1000.0);
        }
        case RegisterType::INPUT_ANALOG: {
            const int ref = readReference(ANALOG_REFERENCE_FILE(basePath));
            return BoardIo::truncate(v * 1.2 / ref * 101.0 / 33.0 * 1000.0);
        }
        default:
            return value;
    }
}

bool KR62Driver::isValueValid(RegisterType type, int value) const {
    const auto number = static_cast<unsigned>(value);
    switch (type) {
        case RegisterType::RELAY:
        case RegisterType::PULLUP:
        case RegisterType::USB_ENABLE:
            return DriverRefusal::acceptBit(type, value, logger);
        case RegisterType::INPUT_COUNTER:
            return true;
        case RegisterType::COLOR_LED:
            if (number < 1 || number > LED_COLORS.size()) {
                log(logger, Poco::Message::PRIO_ERROR, INVALID_COLOR, number);
                return false;
            }
            return true;
        case RegisterType::BRIGHTNESS_LED:
            if (number > 15) {
                log(logger, Poco::Message::PRIO_ERROR, INVALID_BRIGHTNESS, number);
                return false;
            }
            return true;
        case RegisterType::INPUT_DIGITAL:
        case RegisterType::INPUT_ANALOG:
        case RegisterType::DEVICE_CURRENT:
        case RegisterType::DEVICE_VOLTAGE:
            DriverRefusal::unsupportedWrite(type);
        default:
            DriverRefusal::unsupportedType(type);
    }
}

int KR62Driver::getRelaysCount() const {
    return static_cast<int>(infoIo.relays);
}

int KR62Driver::getDigitalOutputsCount() const {
    return static_cast<int>(infoIo.outputs);
}

int KR62Driver::getDigitalInputsCount() const {
    return static_cast<int>(infoIo.inputs);
}

int KR62Driver::getAnalogOutputsCount() const {
    return static_cast<int>(infoIo.analogOutputs);
}

int KR62Driver::getAnalogInputsCount() const {
    return static_cast<int>(infoIo.analogs);
}

int KR62Driver::readReference(const std::string& file) const {
    const int reference = ValueFile::read(file);
    if (reference == 0) {
        throw tesk::InputOutputException("analog ref is zero");
    }
    return reference;
}
