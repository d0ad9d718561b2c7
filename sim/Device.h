// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Attribute.h"
#include "Board.h"
#include "SensorBus.h"

namespace sim {

/// The files of a whole device, below a directory that stands for the root of its file system. With
/// "/" they are where the service looks for them.
class Device {
 public:
    /// What boards have unless told otherwise; it suits the map data/maps/device.json.
    static constexpr IoCounts IO_BOARD{4, 8, 0, 4};
    static constexpr IoCounts EXPANDER{8, 8, 0, 4};

    /// Touches nothing; the device may not be there yet.
    explicit Device(std::filesystem::path directory);

    /// Makes what every device has: the thermal zone, the 1-Wire bus without sensors, and the
    /// factory information. What is there already stays as it is.
    void make() const;

    /// Makes a board with the counts above.
    ///
    /// @param name as for board()
    /// @throws Error there is no such name; the board is there already
    void makeBoard(const std::string& name) const;

    /// A board by name, be it there or not: "kr62" is the IO board, "pd5-N" the expander N.
    ///
    /// @throws Error there is no such name
    Board board(const std::string& name) const;

    /// The names of the boards that are there, in alphabetical order.
    std::vector<std::string> boards() const;

    SensorBus sensors() const;

    /// The temperature of the processor, in thousandths of a degree.
    Attribute cpuTemperature() const;

    /// Writes the factory information with a type of the hardware.
    void setHardwareType(int type) const;

    /// A value by the name that users give it: "cpu" for the temperature of the processor, the
    /// address of a sensor for its temperature, or else its path below sys/kernel, such as
    /// "kr62/inputs/3/counter"; "/value" at the end may be left off.
    ///
    /// @throws Error the name leads elsewhere
    Attribute value(const std::string& name) const;

    /// Sets a value by its name. An input is set with Board::setInput().
    ///
    /// @throws Error the text is no value for it; the file cannot be written
    void set(const std::string& name, const std::string& text) const;

 private:
    std::filesystem::path root;
};

}  // namespace sim
