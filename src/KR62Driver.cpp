// SPDX-License-Identifier: MIT
#include "KR62Driver.h"

#include "FileNotify.h"
#include "support/BoardIo.h"
#include "support/BoardTable.h"
#include "support/DriverRefusal.h"
#include "support/Log.h"
#include "support/StartOrder.h"
#include "support/ValueFile.h"
#include "tesk/Exceptions.h"

namespace {

using namespace BoardTable;
using DriverRefusal::acceptBit;
using Type = RegisterType;

constexpr Pattern<std::string> INFO_FILE("%s/info_io");
constexpr Pattern<std::string> SUPPLY_REFERENCE_FILE("%s/analog_ref");
constexpr Pattern<std::string> ANALOG_REFERENCE_FILE("%s/analogs/analog_ref");

constexpr Pattern<int> INVALID_LED("invalid led index: %d");
constexpr Pattern<unsigned> INVALID_COLOR("invalid led color '%?u'");
constexpr Pattern<unsigned> INVALID_BRIGHTNESS("invalid led brightness '%?u'");

/// The kernel's number of the LED with an index.
int ledNumber(int index, const InfoIo& /*counts*/) {
    switch (index) {
        case 1:
            return 3;
        case 2:
            return 12;
        default:
            // The message has always shown a 0, and its users match the 0.
            throw tesk::InvalidArgumentsException(INVALID_LED(0));
    }
}

bool acceptColor(RegisterType /*type*/, int value, Poco::Logger& logger) {
    const auto color = static_cast<unsigned>(value);
    if (color >= 1 && color <= KR62Driver::LED_COLORS.size()) {
        return true;
    }
    log(logger, Poco::Message::PRIO_ERROR, INVALID_COLOR, color);
    return false;
}

bool acceptBrightness(RegisterType /*type*/, int value, Poco::Logger& logger) {
    const auto brightness = static_cast<unsigned>(value);
    if (brightness <= 15) {
        return true;
    }
    log(logger, Poco::Message::PRIO_ERROR, INVALID_BRIGHTNESS, brightness);
    return false;
}

constexpr Folder PULLUPS{"pullups", upTo<&InfoIo::inputs>};
constexpr Folder LEDS{"leds", ledNumber};

constexpr Rows ROWS{
    {Type::RELAY, RELAYS, "value", acceptBit, WATCHED},
    {Type::INPUT_DIGITAL, INPUTS, "value", READ_ONLY, WATCHED, BOTH_EDGES},
    {Type::PULLUP, PULLUPS, "value", acceptBit, WATCHED},
    {Type::INPUT_COUNTER, INPUTS, "counter", acceptAll, UNWATCHED, COUNTED_EDGE},
    {Type::INPUT_ANALOG, ANALOGS, "value", READ_ONLY},
    {Type::DEVICE_CURRENT, WHOLE_BOARD, "supply_current", READ_ONLY},
    {Type::DEVICE_VOLTAGE, WHOLE_BOARD, "supply_voltage", READ_ONLY},
    {Type::USB_ENABLE, WHOLE_BOARD, "usb_enable", acceptBit},
    {Type::COLOR_LED, LEDS, "color", acceptColor},
    {Type::BRIGHTNESS_LED, LEDS, "brightness", acceptBrightness},
};

}  // namespace

const std::string KR62Driver::KR62_BASE_PATH [[gnu::init_priority(StartOrder::CONSTANTS)]] =
    "/sys/kernel/kr62";

const std::array<std::string, 7> KR62Driver::LED_COLORS
    [[gnu::init_priority(StartOrder::CONSTANTS)]]{"red",    "green", "yellow", "blue",
                                                  "purple", "cyan",  "white"};

KR62Driver::KR62Driver()
    : DriverInterface(KR62, -1), basePath(KR62_BASE_PATH), infoIo(INFO_FILE(KR62_BASE_PATH)) {}

KR62Driver::KR62Driver(const InfoIo& counts)
    : DriverInterface(KR62, -1), basePath(KR62_BASE_PATH), infoIo(counts) {}

KR62Driver::~KR62Driver() = default;

bool KR62Driver::driverIsAvailable() {
    return BoardIo::directoryExists(KR62_BASE_PATH);
}

bool KR62Driver::isWatched(RegisterType type) {
    return BoardTable::isWatched(ROWS, type);
}

void KR62Driver::setBasePath(const std::string& path) {
    basePath = path;
}

void KR62Driver::configureIO(RegisterType type, int index, std::function<void(int)> callback) {
    BoardTable::selectEdge(ROWS, type, index, basePath);
    if (isWatched(type)) {
        FileNotify::getInstance()->enableNotifications(getIOFileName(type, index),
                                                       std::move(callback));
    }
}

std::string KR62Driver::getIOFileName(RegisterType type, int index) const {
    return BoardTable::fileName(ROWS, type, index, basePath, infoIo);
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
    return BoardTable::isValueValid(ROWS, type, value, logger);
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
