// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Attribute.h"

namespace sim {

/// The 1-Wire bus with its temperature sensors. A sensor's address is its family code and its
/// serial number, "28-00000a1b2c3d".
class SensorBus {
 public:
    /// Touches nothing; the bus may not be there yet.
    explicit SensorBus(std::filesystem::path directory);

    /// Makes the bus, without sensors.
    void make() const;

    bool isThere() const;

    /// Whether a text has the form of an address.
    static bool isAddress(const std::string& text);

    /// The addresses of the sensors, in their order on the bus.
    ///
    /// @throws Error there is no bus
    std::vector<std::string> addresses() const;

    /// Adds a sensor behind those that are there.
    ///
    /// @param temperature in thousandths of a degree
    /// @throws Error the address has not the form above, or is there already
    void plug(const std::string& address, int temperature) const;

    /// @throws Error there is no such sensor
    void unplug(const std::string& address) const;

    /// A sensor's temperature, in thousandths of a degree.
    Attribute temperature(const std::string& address) const;

 private:
    void writeList(const std::vector<std::string>& sensors) const;

    std::filesystem::path devices;
    std::filesystem::path master;
};

}  // namespace sim
