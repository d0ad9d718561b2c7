// SPDX-License-Identifier: MIT
#include "Device.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

#include "Error.h"
#include "IoNumber.h"
#include "WholeFile.h"

namespace sim {

namespace {

constexpr const char* BOARDS = "sys/kernel";
constexpr const char* FACTORY_INFO = "tmp/factory_info_partition/factory_info_json";
constexpr int CPU_TEMPERATURE = 48312;
constexpr int HARDWARE_TYPE = 12;

bool isExpander(const std::string& name) {
    const std::string prefix = "pd5-";
    return name.compare(0, prefix.size(), prefix) == 0 && ioNumber(name.substr(prefix.size()));
}

bool isEdge(const std::string& text) {
    static const std::set<std::string> edges{"none", "rising", "falling", "both"};
    return edges.count(text) != 0;
}

bool isNumber(const std::string& text) {
    int number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    return error == std::errc() && end == last;
}

void requireValue(const std::string& name, const std::string& text, const std::string& file) {
    const bool isForEdges = file == "edge" || file == "counter_edge";
    if (isForEdges && !isEdge(text)) {
        throw Error(name + " is none, rising, falling or both, not '" + text + "'");
    }
    if (!isForEdges && !isNumber(text)) {
        throw Error(name + " is a number of 32 bits, not '" + text + "'");
    }
}

}  // namespace

Device::Device(std::filesystem::path directory) : root(std::move(directory)) {}

void Device::make() const {
    if (!std::filesystem::exists(cpuTemperature().path())) {
        cpuTemperature().create(CPU_TEMPERATURE);
    }
    if (!sensors().isThere()) {
        sensors().make();
    }
    if (!std::filesystem::exists(root / FACTORY_INFO)) {
        setHardwareType(HARDWARE_TYPE);
    }
}

void Device::makeBoard(const std::string& name) const {
    board(name).make(isExpander(name) ? EXPANDER : IO_BOARD);
}

Board Device::board(const std::string& name) const {
    if (name != "kr62" && !isExpander(name)) {
        throw Error("no board is called '" + name + "'; kr62 is the IO board, pd5-1 an expander");
    }
    return {root / BOARDS / name, isExpander(name) ? Board::Type::EXPANDER : Board::Type::IO_BOARD};
}

std::vector<std::string> Device::boards() const {
    std::vector<std::string> names;
    if (std::filesystem::is_directory(root / BOARDS)) {
        for (const auto& entry : std::filesystem::directory_iterator(root / BOARDS)) {
            const std::string name = entry.path().filename();
            if (name == "kr62" || isExpander(name)) {
                names.push_back(name);
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

SensorBus Device::sensors() const {
    return SensorBus(root / "sys/bus/w1/devices");
}

Attribute Device::cpuTemperature() const {
    return Attribute(root / "sys/class/thermal/thermal_zone0/temp");
}

void Device::setHardwareType(int type) const {
    const auto file = root / FACTORY_INFO;
    std::filesystem::create_directories(file.parent_path());
    replaceFile(file,
                R"({ "HW_DEVICE": { "Legacy_HW_Type": ")" + std::to_string(type) + "\" } }\n");
}

Attribute Device::value(const std::string& name) const {
    if (name == "cpu") {
        return cpuTemperature();
    }
    if (SensorBus::isAddress(name)) {
        return sensors().temperature(name);
    }
    const auto slash = name.find('/');
    board(name.substr(0, slash));
    const auto path = root / BOARDS / name;
    if (slash == std::string::npos || path.lexically_normal().string() != path.string()) {
        throw Error("'" + name + "' is no value; kr62/relays/1 is one, for instance");
    }
    return Attribute(std::filesystem::is_directory(path) ? path / "value" : path);
}

void Device::set(const std::string& name, const std::string& text) const {
    const Attribute attribute = value(name);
    requireValue(name, text, attribute.path().filename());
    const auto io = attribute.path().parent_path();
    const auto number = ioNumber(io.filename());
    if (number && attribute.path().filename() == "value" &&
        io.parent_path().filename() == "inputs") {
        board(name.substr(0, name.find('/'))).setInput(*number, std::stoi(text));
    } else {
        attribute.set(text);
    }
}

}  // namespace sim
