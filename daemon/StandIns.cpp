// SPDX-License-Identifier: MIT
#include "StandIns.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include "KR62Driver.h"
#include "MapFile.h"
#include "PD5Driver.h"
#include "SpecialDriver.h"
#include "VaduDriver.h"
#include "program/UsageError.h"
#include "tesk/Exceptions.h"

namespace {

/// A GPIO chip without the chip. Serves the same register types.
class ChipStandIn : public DriverInterface {
 public:
    explicit ChipStandIn(int number) : DriverInterface(GPIOCHIP, number) {}

    std::string getIOFileName(RegisterType type, int /*index*/) const override {
        if (type != RegisterType::RTS && type != RegisterType::CTS) {
            throw tesk::UnsupportedException("type '" + getTypeName(type) + "' not supported");
        }
        return {};
    }

    void configureIO(RegisterType /*type*/, int /*index*/,
                     std::function<void(int)> /*callback*/) override {}
    int convertValue(RegisterType /*type*/, int value, int /*index*/) const override {
        return value;
    }
    bool isValueValid(RegisterType /*type*/, int /*value*/) const override { return false; }
};

InfoIo anyNumber() {
    constexpr std::uint32_t MANY = std::numeric_limits<int>::max();
    InfoIo counts;
    counts.relays = counts.outputs = counts.inputs = counts.analogs = MANY;
    return counts;
}

std::shared_ptr<DriverInterface> makeStandIn(const std::string& name) {
    if (const auto expander = MapFile::driverNumber(name, "pd5-")) {
        return std::make_shared<PD5Driver>(*expander, anyNumber());
    }
    if (const auto chip = MapFile::driverNumber(name, "gpiochip-")) {
        return std::make_shared<ChipStandIn>(*chip);
    }
    if (name == "kr62") {
        return std::make_shared<KR62Driver>(anyNumber());
    }
    throw UsageError("there is no driver '" + name + "'");
}

}  // namespace

void addStandIns(DriverManager& manager, const std::string& names) {
    manager.addDriver(std::make_shared<SpecialDriver>());
    manager.addDriver(std::make_shared<VaduDriver>());
    std::size_t start = 0;
    while (start < names.size()) {
        const std::size_t end = std::min(names.find(',', start), names.size());
        const std::string name = names.substr(start, end - start);
        start = end + 1;
        if (name == "vadu" || name == "special") {
            continue;
        }
        try {
            manager.addDriver(makeStandIn(name));
        } catch (const tesk::AlreadyExistsException&) {
            throw UsageError("the driver '" + name + "' is named twice");
        }
    }
}
