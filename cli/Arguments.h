// SPDX-License-Identifier: MIT
/// @file
/// Reads what users write for registers, values and times. Numbers of registers and values are
/// decimal, or hexadecimal after "0x".
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "RegisterType.h"
#include "client/AddressRanges.h"
#include "client/Labels.h"

/// A register and the value to write to it.
struct Assignment {
    int address;
    int value;
};

/// What a user means by one word: a register, or all registers of a range.
struct Selection {
    AddressRanges::Range range;
    bool isRange;  ///< Whether the word is a range; a range may have gaps.
};

/// An assignment as the user has written it.
struct NamedAssignment {
    AddressRanges::Range target;
    std::string value;  ///< For Label::rawOf(), or a raw value, as `isByName` tells.
    bool isByName;      ///< Whether the register was named, not given by its address.
};

/// What is meant by texts of the form "12", "12-15", or the name of a register, in the order given.
///
/// @throws UsageError a text has another form, or no register has the name
std::vector<Selection> parseSelections(const std::vector<std::string>& texts,
                                       const Labels& labels = {});

/// All addresses of parseSelections(), in the order given.
///
/// @throws UsageError as parseSelections()
std::vector<int> parseAddresses(const std::vector<std::string>& texts, const Labels& labels = {});

/// The two sides of an assignment "12=1", "12-15=1" or "door=open".
///
/// @throws UsageError the text has another form, or no register has the name
NamedAssignment splitAssignment(const std::string& text, const Labels& labels);

/// The raw value of an assignment. Values from -2147483648 to 4294967295 are taken; those above
/// 2147483647 are the bit patterns of negative ones.
///
/// @param text the whole assignment, for the message
/// @throws UsageError the value has another form
int rawValueOf(const NamedAssignment& assignment, const std::string& text);

/// The assignments of a raw value to an address or to each address of a range: "12=1", "12-15=1".
///
/// @throws UsageError as splitAssignment() and rawValueOf()
std::vector<Assignment> parseAssignment(const std::string& text);

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
