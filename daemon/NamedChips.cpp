// SPDX-License-Identifier: MIT
#include "NamedChips.h"

#include <charconv>

#include "DriverInterface.h"
#include "MapFile.h"

std::set<int> gpioChipsNamedIn(const std::string& mapFile) {
    const std::string prefix =
        DriverInterface::driverToStringMap.at(DriverInterface::GPIOCHIP) + "-";
    std::set<int> numbers;
    for (const std::string& name : MapFile::driversNamedIn(mapFile, prefix)) {
        int number = -1;
        std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number);
        // The driver's own name has no other form, such as one with leading zeros.
        if (number >= 0 && prefix + std::to_string(number) == name) {
            numbers.insert(number);
        }
    }
    return numbers;
}
