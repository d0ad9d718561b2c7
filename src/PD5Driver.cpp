// SPDX-License-Identifier: MIT
#include "PD5Driver.h"

#include "FileNotify.h"
#include "support/BoardIo.h"
#include "support/BoardTable.h"
#include "support/DriverRefusal.h"
#include "support/Log.h"
#include "support/StartOrder.h"
#include "support/ValueFile.h"

namespace {

using namespace BoardTable;
using DriverRefusal::acceptBit;
using Type = RegisterType;

constexpr Pattern<std::string, int> BASE_PATH("%s-%d");
constexpr Pattern<std::string, int> INFO_FILE("%s-%d/info_io");
constexpr Pattern<std::string, int> ENABLE_FILE("%s/analogs/%d/enable");

constexpr Pattern<int, std::string> NOT_ENABLED("analog '%d' of type '%s' is not enabled");

constexpr double ANALOG_SCALE = 4.137;

constexpr Rows ROWS{
    {Type::RELAY, RELAYS, "value", acceptBit, WATCHED},
    {Type::INPUT_DIGITAL, INPUTS, "value", READ_ONLY, WATCHED, BOTH_EDGES},
    {Type::INPUT_COUNTER, INPUTS, "counter", acceptAll, UNWATCHED, COUNTED_EDGE},
    {Type::INPUT_ANALOG, ANALOGS, "value", READ_ONLY},
    {Type::ENABLE_ANALOG, ANALOGS, "enable", acceptBit},
};

}  // namespace

const std::string PD5Driver::PD5_BASE_PATH [[gnu::init_priority(StartOrder::CONSTANTS)]] =
    "/sys/kernel/pd5";

PD5Driver::PD5Driver(int index)
    : DriverInterface(PD5, index),
      basePath(BASE_PATH(PD5_BASE_PATH, index)),
      infoIo(INFO_FILE(PD5_BASE_PATH, index)) {}

PD5Driver::PD5Driver(int index, const InfoIo& counts)
    : DriverInterface(PD5, index), basePath(BASE_PATH(PD5_BASE_PATH, index)), infoIo(counts) {}

PD5Driver::~PD5Driver() = default;

bool PD5Driver::driverIsAvailable(int index) {
    return BoardIo::directoryExists(BASE_PATH(PD5_BASE_PATH, index));
}

bool PD5Driver::isWatched(RegisterType type) {
    return BoardTable::isWatched(ROWS, type);
}

void PD5Driver::setBasePath(const std::string& path) {
    basePath = BASE_PATH(path, getIndex());
}

void PD5Driver::configureIO(RegisterType type, int index, std::function<void(int)> callback) {
    BoardTable::selectEdge(ROWS, type, index, basePath);
    if (isWatched(type)) {
        FileNotify::getInstance()->enableNotifications(getIOFileName(type, index),
                                                       std::move(callback));
    }
}

std::string PD5Driver::getIOFileName(RegisterType type, int index) const {
    return BoardTable::fileName(ROWS, type, index, basePath, infoIo);
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
    return BoardTable::isValueValid(ROWS, type, value, logger);
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
