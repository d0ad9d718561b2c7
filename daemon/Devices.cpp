// SPDX-License-Identifier: MIT
#include "Devices.h"

#include <Poco/Exception.h>

#include <memory>
#include <string>
#include <utility>

#include "GpioDriver.h"
#include "KR62Driver.h"
#include "PD5Driver.h"
#include "Server.h"
#include "SpecialDriver.h"
#include "VaduDriver.h"
#include "support/Log.h"

namespace {

/// Expanders are looked for under the numbers from 0 to this one.
constexpr int LAST_EXPANDER = 15;

constexpr Pattern<std::string, std::string, std::string> BOARD_BROKEN(
    "the board at %s is left out: %s; see %s/info_io");

constexpr Pattern<int, std::string, int> CHIP_BROKEN(
    "the driver gpiochip-%d is left out: %s; see whether /dev/gpiochip%d is there and may be "
    "opened");

constexpr Pattern<std::string, std::string> NO_IO_STATED(
    "the board at %s states no relay, output, input or analog input; a line of %s/info_io must be "
    "a "
    "key, one blank and a number (relays 4)");

void reportBrokenBoard(const std::string& path, const std::string& reason) {
    log(Poco::Logger::get("iomappingd"), Poco::Message::PRIO_ERROR, BOARD_BROKEN, path, reason,
        path);
}

void warnIfNothingIsStated(const DriverInterface& driver, const std::string& path) {
    if (driver.getRelaysCount() == 0 && driver.getDigitalOutputsCount() == 0 &&
        driver.getDigitalInputsCount() == 0 && driver.getAnalogInputsCount() == 0) {
        log(Poco::Logger::get("iomappingd"), Poco::Message::PRIO_WARNING, NO_IO_STATED, path, path);
    }
}

void addGpioChip(DriverManager& manager, int number) {
    try {
        manager.addDriver(std::make_shared<GpioDriver>(number));
    } catch (const std::exception& e) {
        log(Poco::Logger::get("iomappingd"), Poco::Message::PRIO_ERROR, CHIP_BROKEN, number,
            e.what(), number);
    }
}

/// Adds drivers to the manager and their IOs to the counts of the device.
class Wiring {
 public:
    explicit Wiring(DriverManager& driverManager)
        : manager(driverManager), counts(std::make_shared<SpecialDriver>()) {
        manager.addDriver(counts);
    }

    void add(const std::shared_ptr<DriverInterface>& driver) {
        manager.addDriver(driver);
        counts->addIoCount(driver);
    }

    /// @param make makes the driver, or throws when the board at `path` is broken
    template <typename Make>
    void addBoard(const std::string& path, const Make& make) {
        try {
            const std::shared_ptr<DriverInterface> driver = make();
            add(driver);
            boards.push_back(driver->getName());
            warnIfNothingIsStated(*driver, path);
        } catch (const Poco::Exception& e) {
            reportBrokenBoard(path, e.displayText());
        } catch (const std::exception& e) {
            reportBrokenBoard(path, e.what());
        }
    }

    /// The names of the drivers that addBoard() has added so far.
    std::vector<std::string> boardNames() && { return std::move(boards); }

 private:
    DriverManager& manager;
    std::shared_ptr<SpecialDriver> counts;
    std::vector<std::string> boards;
};

}  // namespace

std::vector<std::string> addDrivers(DriverManager& manager, const std::string& mapFile) {
    Wiring wiring(manager);
    wiring.add(std::make_shared<VaduDriver>());
    if (KR62Driver::driverIsAvailable()) {
        wiring.addBoard(KR62Driver::KR62_BASE_PATH, [] { return std::make_shared<KR62Driver>(); });
    }
    for (int number = 0; number <= LAST_EXPANDER; ++number) {
        if (PD5Driver::driverIsAvailable(number)) {
            wiring.addBoard(PD5Driver::PD5_BASE_PATH + "-" + std::to_string(number),
                            [number] { return std::make_shared<PD5Driver>(number); });
        }
    }
    for (const int number : Server::gpioChipsNamedIn(mapFile)) {
        addGpioChip(manager, number);
    }
    return std::move(wiring).boardNames();
}
