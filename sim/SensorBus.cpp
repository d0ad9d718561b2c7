// SPDX-License-Identifier: MIT
#include "SensorBus.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "Error.h"
#include "Lock.h"
#include "WholeFile.h"

namespace sim {

namespace {

constexpr const char* LIST = "w1_master_slaves";

}  // namespace

SensorBus::SensorBus(std::filesystem::path directory)
    : devices(std::move(directory)), master(devices / "w1_bus_master1") {}

void SensorBus::make() const {
    std::filesystem::create_directories(master);
    writeList({});
}

bool SensorBus::isThere() const {
    return std::filesystem::is_directory(master);
}

bool SensorBus::isAddress(const std::string& text) {
    constexpr std::size_t LENGTH = 15;
    constexpr std::size_t DASH = 2;
    return text.size() == LENGTH && text[DASH] == '-' && text.rfind('-') == DASH &&
           text.find_first_not_of("-0123456789abcdef") == std::string::npos;
}

std::vector<std::string> SensorBus::addresses() const {
    std::ifstream list(master / LIST);
    if (!list.is_open()) {
        throw Error("no 1-Wire bus at " + master.string());
    }
    std::vector<std::string> sensors;
    for (std::string line; std::getline(list, line);) {
        sensors.push_back(line);
    }
    return sensors;
}

void SensorBus::plug(const std::string& address, int temperature) const {
    if (!isAddress(address)) {
        throw Error("'" + address + "' is no address of a sensor, such as 28-00000a1b2c3d");
    }
    const Lock lock(master);
    auto sensors = addresses();
    if (std::find(sensors.begin(), sensors.end(), address) != sensors.end()) {
        throw Error("the sensor " + address + " is plugged already");
    }
    this->temperature(address).create(temperature);
    sensors.push_back(address);
    writeList(sensors);
}

void SensorBus::unplug(const std::string& address) const {
    const Lock lock(master);
    auto sensors = addresses();
    const auto sensor = std::find(sensors.begin(), sensors.end(), address);
    if (sensor == sensors.end()) {
        throw Error("no sensor " + address + " is plugged");
    }
    sensors.erase(sensor);
    writeList(sensors);
    std::filesystem::remove_all(devices / address);
}

Attribute SensorBus::temperature(const std::string& address) const {
    return Attribute(devices / address / "temperature");
}

void SensorBus::writeList(const std::vector<std::string>& sensors) const {
    std::string text;
    for (const std::string& sensor : sensors) {
        text += sensor + "\n";
    }
    replaceFile(master / LIST, text);
}

}  // namespace sim
