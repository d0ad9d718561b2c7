// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

/// What people call a register, and how they want its value shown. The service knows nothing of it:
/// on the bus a register has an address and an integer.
struct Label {
    std::string name;                   ///< A word that no other register has; may be empty.
    std::string description;            ///< A phrase for people; may be empty.
    std::string unit;                   ///< Of the shown value, such as "bar"; may be empty.
    std::string group;                  ///< A word that several registers share; may be empty.
    double scale{1};                    ///< The shown value is raw value x scale + offset; never 0.
    double offset{0};                   ///< In the unit of the shown value.
    double deadband{0};                 ///< A change of the shown value up to this one is no news.
    std::map<int, std::string> states;  ///< Names of raw values, such as "closed" for 0.

    /// The value to show for a raw one, without the name of a state: raw x scale + offset.
    double scaled(int raw) const;

    /// The same in decimal, with as many decimals as scale and offset need, at most 9.
    std::string scaledText(int raw) const;

    /// A raw value in words: the name of its state, or the scaled value in decimal with its unit.
    ///
    /// @return for example "closed", "21.5 bar" or "42"
    std::string shown(int raw) const;

    /// The raw value for what a user has written: the name of a state, or a scaled value in decimal
    /// without the unit.
    ///
    /// @param maximum the register's highest raw value; 4294967295 admits the negative ones, too
    /// @throws Failure the text is neither, or the value is out of range or lies between two raw
    ///         values; the message names what is possible
    int rawOf(const std::string& text, unsigned int maximum) const;

 private:
    std::string decimal(double value) const;
    std::string statesText() const;
    int rawOfScaled(const std::string& text, double value, unsigned int maximum) const;
};
