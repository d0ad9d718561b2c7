// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "Attribute.h"

namespace sim {

/// How many relays, inputs, outputs and analogs a board has, as its file "info_io" states.
struct IoCounts {
    int relays{0};
    int inputs{0};
    int outputs{0};
    int analogs{0};
};

/// The tree of an IO board or of an expander. IOs are numbered from 1.
///
/// Below the tree of either are info_io, relays/N/value, inputs/N/ with value, edge, counter and
/// counter_edge, and analogs/N/value. An IO board has, in addition, pullups/N/value, analog_ref,
/// analogs/analog_ref, supply_current, supply_voltage, usb_enable, and leds/3 and leds/12 with
/// color and brightness; an expander has analogs/N/enable.
class Board {
 public:
    enum class Type { IO_BOARD, EXPANDER };

    /// Touches nothing; the board may not be there yet.
    Board(std::filesystem::path directory, Type boardType);

    const std::filesystem::path& path() const { return tree; }

    /// Makes the board, which is there at once with all its files: all IOs off, counters 0, edges
    /// "none", references 4096, a supply of 12 volts.
    ///
    /// @throws Error the board is there already
    void make(const IoCounts& counts) const;

    bool isThere() const;

    /// What its info_io states.
    ///
    /// @throws Error the board is not there
    IoCounts counts() const;

    /// Takes the board away at once. Whoever watches its files is told that they have gone.
    ///
    /// @throws Error the board is not there
    void pull() const;

    /// Puts a pulled board back, with the values that it had. Its files are new ones: whoever
    /// watched the old ones does not hear of them.
    ///
    /// @throws Error the board has not been pulled
    void restore() const;

    Attribute relay(int number) const;
    Attribute input(int number) const;
    Attribute counter(int number) const;
    Attribute analog(int number) const;

    /// Sets an input to 0 or 1. If that is the edge that its counter_edge names ("rising",
    /// "falling" or "both"), the counter has counted it before the value changes.
    ///
    /// @throws Error the value is neither 0 nor 1; the board has no such input
    void setInput(int number, int value) const;

    /// The same with the other value than that which the input has.
    ///
    /// @return the new value
    int toggleInput(int number) const;

 private:
    Attribute at(const std::string& file) const;
    std::filesystem::path inputDirectory(int number) const;
    void changeInput(int number, int value) const;

    std::filesystem::path tree;
    std::filesystem::path spare;  ///< Where a board is while it is made, and while it is pulled.
    Type type;
};

}  // namespace sim
