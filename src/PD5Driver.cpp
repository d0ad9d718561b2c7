// SPDX-License-Identifier: MIT
#include "PD5Driver.h"

#include "FileNotify.h"
#include "support/BoardIo.h"
#include "support/DriverRefusal.h"
#include "support/Log.h"
#include "support/ValueFile.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string, int> BASE_PATH("%s-%d");
constexpr Pattern<std::string, int> INFO_FILE("%s-%d/info_io");
constexpr Pattern<std::string, int> RELAY_FILE("%s/relays/%d/value");
constexpr Pattern<std::string, int> INPUT_FILE("%s/inputs/%d/value");
constexpr Pattern<std::string, int> INPUT_EDGE_FILE("%s/inputs/%d/edge");
constexpr Pattern<std::string, int> COUNTER_FILE("%s/inputs/%d/counter");
constexpr Pattern<std::string, int> COUNTER_EDGE_FILE("%s/inputs/%d/counter_edge");
constexpr Pattern<std::string, int> ANALOG_FILE("%s/analogs/%d/value");
constexpr Pattern<std::string, int> ENABLE_FILE("%s/analogs/%d/enable");

constexpr Pattern<int, std::string> NOT_ENABLED("analog '%d' of type '%s' is not enabled");

constexpr double ANALOG_SCALE = 4.137;

}  // namespace

const std::string PD5Driver::PD5_BASE_PATH = "/sys/kernel/pd5";

PD5Driver::PD5Driver(int index)
    : DriverInterface(PD5, index),
      basePath(BASE_PATH(PD5_BASE_PATH, index)),
      infoIo(INFO_FILE(PD5_BASE_PATH, index)) {}

PD5Driver::~PD5Driver() = default;

bool PD5Driver::driverIsAvailable(int index) {
    return BoardIo::directoryExists(BASE_PATH(PD5_BASE_PATH, index));
}

void PD5Driver::setBasePath(const std::string& path) {
    basePath = BASE_PATH(path, getIndex());
}

void PD5Driver::configureIO(RegisterType type, int index, std::function<void(int)> callback) {
    switch (type) {
        case RegisterType::INPUT_DIGITAL:
            BoardIo::writeEdge(INPUT_EDGE_FILE(basePath, index), "both");
            [[fallthrough]];
        case RegisterType::RELAY:
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

std::string PD5Driver::getIOFileName(RegisterType type, int index) const {
    switch (type) {
        case RegisterType::RELAY:
            BoardIo::requireIndex(index, infoIo.relays);
            return RELAY_FILE(basePath, index);
        case RegisterType::INPUT_DIGITAL:
            BoardIo::requireIndex(index, infoIo.inputs);
            return INPUT_FILE(basePath, index);
        case RegisterType::INPUT_COUNTER:
            BoardIo::requireIndex(index, infoIo.inputs);
            return COUNTER_FILE(basePath, index);
        case RegisterType::INPUT_ANALOG:
            BoardIo::requireIndex(index, infoIo.analogs);
            return ANALOG_FILE(basePath, index);
        case RegisterType::ENABLE_ANALOG:
            BoardIo::requireIndex(index, infoIo.analogs);
            return ENABLE_FILE(basePath, index);
        default:
            DriverRefusal::unsupportedType(type);
    }
}

int PD5Driver::convertValue(RegisterType type, int value, int index) const {
    if (type != RegisterType::INPUT_ANALOG) {
        return value;
    }
    if (ValueFile::read(ENABLE_FILE(basePath, index)) == 0) {
        log(logger, Poco::Message::PRIO_WARNING, NOT_ENABLED, index, getTypeName(type));
        return 0;
    }
    return BoardIo::truncate(value * ANALOG_SCALE);
}

bool PD5Driver::isValueValid(RegisterType type, int value) const {
    switch (type) {
        case RegisterType::RELAY:
        case RegisterType::ENABLE_ANALOG:
            return DriverRefusal::acceptBit(type, value, logger);
        case RegisterType::INPUT_COUNTER:
            return true;
        case RegisterType::INPUT_DIGITAL:
        case RegisterType::INPUT_ANALOG:
            DriverRefusal::unsupportedWrite(type);
        default:
            DriverRefusal::unsupportedType(type);
    }
}

int PD5Driver::getRelaysCount() const {
    return static_cast<int>(infoIo.relays);
}

int PD5Driver::getDigitalOutputsCount() const {
    return static_cast<int>(infoIo.outputs);
}

int PD5Driver::getDigitalInputsCount() const {
    return static_cast<int>(infoIo.inputs);
}

int PD5Driver::getAnalogOutputsCount() const {
    return static_cast<int>(infoIo.analogOutputs);
}

int PD5Driver::getAnalogInputsCount() const {
    return static_cast<int>(infoIo.analogs);
}
