// SPDX-License-Identifier: MIT
#include "NamedChips.h"

#include <Poco/JSON/Array.h>

#include <charconv>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

#include "DriverInterface.h"
#include "tesk/Json.h"

namespace {

std::string prefixOfChips() {
    return DriverInterface::driverToStringMap.at(DriverInterface::GPIOCHIP) + "-";
}

/// Whether a look into the map is worth its time, which for a large one is long. A name may also be
/// written with escapes.
bool mayNameChips(const std::string& text) {
    return text.find(prefixOfChips()) != std::string::npos || text.find('\\') != std::string::npos;
}

std::optional<int> chipNumber(const std::string& driver) {
    const std::string prefix = prefixOfChips();
    if (driver.rfind(prefix, 0) != 0) {
        return {};
    }
    int number = -1;
    std::from_chars(driver.data() + prefix.size(), driver.data() + driver.size(), number);
    // The driver's own name has no other form, such as one with leading zeros.
    if (number < 0 || prefix + std::to_string(number) != driver) {
        return {};
    }
    return number;
}

/// The name of a field's driver; empty where there is none.
std::string driverOf(const Poco::JSON::Object::Ptr& field) {
    if (field.isNull()) {
        return {};
    }
    const Poco::Dynamic::Var name = field->get("driver");
    return name.isString() ? name.convert<std::string>() : std::string();
}

}  // namespace

std::set<int> gpioChipsNamedIn(const std::string& mapFile) {
    std::set<int> numbers;
    try {
        std::ifstream file(mapFile);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!mayNameChips(text)) {
            return numbers;
        }
        std::istringstream json(text);
        const auto map = tesk::jsonParse(json);
        const auto fields = map.isNull() ? nullptr : map->getArray("io_mapping");
        for (unsigned i = 0; !fields.isNull() && i < fields->size(); ++i) {
            if (const auto number = chipNumber(driverOf(fields->getObject(i)))) {
                numbers.insert(*number);
            }
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): not ours to tell
    }
    return numbers;
}
