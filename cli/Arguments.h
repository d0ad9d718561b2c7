// SPDX-License-Identifier: MIT
/// @file
/// Reads what users write for registers, values and times. Numbers of registers and values are
/// decimal, or hexadecimal after "0x".
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "RegisterType.h"

/// A register and the value to write to it.
struct Assignment {
    int address;
    int value;
};

/// Addresses from texts of the form "12" or "12-15", in the order given.
///
/// @throws UsageError a text has another form
std::vector<int> parseAddresses(const std::vector<std::string>& texts);

/// An assignment "12=1". Values from -2147483648 to 4294967295 are taken; those above 2147483647
/// are the bit patterns of negative ones.
///
/// @throws UsageError the text has another form
Assignment parseAssignment(const std::string& text);

/// Register types from their names, in the order given.
///
/// @throws UsageError there is no such type; the text names all types
std::vector<RegisterType> parseTypes(const std::vector<std::string>& names);

/// The names of all register types, in the order of their numbers.
std::vector<std::string> typeNames();

/// A time "2.5", from 0 to 1000000000 seconds.
///
/// @throws UsageError the text has another form
std::chrono::duration<double> parseSeconds(const std::string& text);
