// SPDX-License-Identifier: MIT
#include "VaduDriver.h"

#include <Poco/NumberParser.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "support/DriverRefusal.h"
#include "support/Log.h"
#include "support/ValueFile.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"
#include "tesk/Strings.h"
#include "tesk/VaduBoard.h"

namespace {

constexpr const char* CPU_TEMP_FILE = "/sys/class/thermal/thermal_zone0/temp";
constexpr const char* SENSOR_LIST_FILE = "/sys/bus/w1/devices/w1_bus_master1/w1_master_slaves";
constexpr Pattern<std::string> SENSOR_TEMP_FILE("/sys/bus/w1/devices/%s/temperature");
constexpr const char* FACTORY_INFO_FILE = "/tmp/factory_info_partition/factory_info_json";

/// What a reader sees in place of the temperature of a sensor that is not there.
constexpr int SENSOR_MISSING = 4096;

constexpr Pattern<std::string> WRITE_NOT_SUPPORTED("write not supported with type '%s'");
constexpr Pattern<std::string> READ_OPEN_FAILED("error opening file '%s' for reading");
constexpr Pattern<int, std::string, int> SENSOR_LINE(
    "line %d from temperature sensor addresses: %s %d");
constexpr Pattern<int> SENSOR_NOT_FOUND("sensor temperature not found on index %d");

constexpr std::array SERVED{
    RegisterType::CPU_TEMP,
    RegisterType::SENSOR_TEMP_VALUE,
    RegisterType::SENSOR_TEMP_ADDRESS_LOWER,
    RegisterType::SENSOR_TEMP_ADDRESS_HIGHER,
    RegisterType::UPTIME,
    RegisterType::HW_TYPE,
    RegisterType::FW_VERSION,
};

void requireServed(RegisterType type) {
    if (std::find(SERVED.begin(), SERVED.end(), type) == SERVED.end()) {
        DriverRefusal::unsupportedType(type);
    }
}

int readUptime() {
    struct sysinfo info {};
    if (::sysinfo(&info) != 0) {
        throw tesk::InputOutputException("error reading uptime from the system");
    }
    return static_cast<int>(info.uptime);
}

int readHardwareType() {
    const auto text = ValueFile::readText(FACTORY_INFO_FILE);
    if (!text) {
        throw tesk::InputOutputException(READ_OPEN_FAILED(FACTORY_INFO_FILE));
    }
    std::istringstream stream(*text);
    const Poco::JSON::Object::Ptr root = tesk::jsonParse(stream);
    const Poco::JSON::Object::Ptr device = root->getObject("HW_DEVICE");
    if (!device || !device->has("Legacy_HW_Type")) {
        throw tesk::NotFoundException("error parsing factory info");
    }
    const auto number = device->get("Legacy_HW_Type").convert<std::string>();
    return static_cast<int>(std::strtoll(number.c_str(), nullptr, 10));
}

/// A number at the start of a text, unsigned so that shifts and sums wrap instead of overflowing.
std::uint32_t leadingNumber(const std::string& text) {
    return static_cast<std::uint32_t>(std::strtol(text.c_str(), nullptr, 10));
}

int readFirmwareVersion() {
    const auto parts = tesk::Strings::split(tesk::VaduBoard::readFwVersion(), ".", false);
    if (parts.size() < 3) {
        throw tesk::InputOutputException("invalid format for firmware version");
    }
    const std::uint32_t major = leadingNumber(parts[0]);
    const std::uint32_t minor = leadingNumber(parts[1]);
    const std::uint32_t patch = leadingNumber(tesk::Strings::split(parts[2], "-", false).front());
    return static_cast<int>((major << 8U) + (minor << 4U) + patch);
}

}  // namespace

VaduDriver::VaduDriver() : DriverInterface(VADU, -1) {}

VaduDriver::~VaduDriver() = default;

void VaduDriver::configureIO(RegisterType /*type*/, int /*index*/,
                             std::function<void(int)> /*callback*/) {}

std::string VaduDriver::getIOFileName(RegisterType type, int /*index*/) const {
    requireServed(type);
    return type == RegisterType::CPU_TEMP ? CPU_TEMP_FILE : "";
}

int VaduDriver::convertValue(RegisterType type, int value, int index) const {
    switch (type) {
        case RegisterType::SENSOR_TEMP_VALUE:
            return readSensorTemperature(index);
        case RegisterType::SENSOR_TEMP_ADDRESS_LOWER:
        case RegisterType::SENSOR_TEMP_ADDRESS_HIGHER:
            return readSensorAddressWord(type, value, index);
        case RegisterType::UPTIME:
            return readUptime();
        case RegisterType::HW_TYPE:
            return readHardwareType();
        case RegisterType::FW_VERSION:
            return readFirmwareVersion();
        default:
            return value;
    }
}

bool VaduDriver::isValueValid(RegisterType type, int /*value*/) const {
    requireServed(type);
    throw tesk::UnsupportedException(WRITE_NOT_SUPPORTED(getTypeName(type)));
}

int VaduDriver::getSerialPortsCount() const {
    return 1;
}

std::string VaduDriver::readTempSensorAddress(int index) const {
    const auto text = ValueFile::readText(SENSOR_LIST_FILE);
    if (!text) {
        throw tesk::InputOutputException("no temperature sensor detected");
    }
    std::istringstream list(*text);
    std::string address;
    for (int line = 1; std::getline(list, address); ++line) {
        log(logger, Poco::Message::PRIO_INFORMATION, SENSOR_LINE, line, address, index);
        if (line == index) {
            return address;
        }
    }
    throw tesk::InputOutputException("no valid temperature sensor addresses found");
}

int VaduDriver::readSensorTemperature(int index) const {
    std::optional<int> temperature;
    try {
        // The kernel gives an empty text when the conversion fails: the sensor has just left the
        // bus, or its cable is bad.
        temperature = ValueFile::readUnlessEmpty(SENSOR_TEMP_FILE(readTempSensorAddress(index)));
    } catch (const tesk::InputOutputException&) {
        temperature.reset();
    }
    if (!temperature) {
        log(logger, Poco::Message::PRIO_NOTICE, SENSOR_NOT_FOUND, index);
    }
    return temperature.value_or(SENSOR_MISSING);
}

int VaduDriver::readSensorAddressWord(RegisterType type, int value, int index) const {
    std::string address;
    try {
        address = readTempSensorAddress(index);
    } catch (const tesk::InputOutputException&) {
        return 0;
    }
    const auto parts = tesk::Strings::split(address, "-", true);
    if (parts.size() != 2) {
        return value;
    }
    const std::uint64_t serial = Poco::NumberParser::parseHex64(parts[1]);
    const unsigned shift = type == RegisterType::SENSOR_TEMP_ADDRESS_HIGHER ? 32 : 0;
    return static_cast<int>(static_cast<std::uint32_t>(serial >> shift));
}
