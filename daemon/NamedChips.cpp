// SPDX-License-Identifier: MIT
#include "NamedChips.h"

#include "DriverInterface.h"
#include "MapFile.h"

std::set<int> gpioChipsNamedIn(const std::string& mapFile) {
    const std::string prefix =
        DriverInterface::driverToStringMap.at(DriverInterface::GPIOCHIP) + "-";
    std::set<int> numbers;
    for (const std::string& name : MapFile::driversNamedIn(mapFile, prefix)) {
        if (const auto number = MapFile::driverNumber(name, prefix)) {
            numbers.insert(*number);
        }
    }
    return numbers;
}
