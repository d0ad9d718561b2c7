// SPDX-License-Identifier: MIT
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

/// Reads what users write for registers and values. Numbers are decimal, or hexadecimal after "0x".
/// All of them throw UsageError for what they do not understand.

/// Addresses from texts of the form "12" or "12-15", in the order given.
std::vector<int> parseAddresses(const std::vector<std::string>& texts);

/// An assignment "12=1". Values from -2147483648 to 4294967295 are taken; those above 2147483647
/// are the bit patterns of negative ones.
Assignment parseAssignment(const std::string& text);

/// A register type by name.
RegisterType parseType(const std::string& name);

/// The names of all register types, in the order of their numbers.
std::vector<std::string> typeNames();

/// A time "2.5", from 0 to 1000000000 seconds.
std::chrono::duration<double> parseSeconds(const std::string& text);
