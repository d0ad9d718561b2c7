// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "IoMapping.h"

/// The fixed properties of a register.
struct RegisterInfo {
    int address;
    RegisterType type;
    int index;             ///< Within the register's field of the map, from 1.
    unsigned int maximum;  ///< The highest value that can be written.
};

/// What reading a register gave: its value, or the reason why there is none.
struct Reading {
    int value{0};
    std::string error;
    bool missing{false};  ///< The value stands for a temperature sensor that is not there.
    bool unknown{false};  ///< There is no such register among others that were asked for, too.
};

/// Whether the service announces changes of registers of a type. Virtual registers that stand for
/// others have the type of virtual ones.
bool isAnnounced(RegisterType type);

/// Whether a value stands for a temperature sensor that is not there.
bool isMissing(RegisterType type, int value);

/// Why registers of a type can never be written, in the words of the service; nothing if they can.
std::string writeRefusalOf(RegisterType type);

/// The addresses of all registers of some types, or of all types when none is named.
///
/// @return each address once, in ascending order
/// @throws tesk::InputOutputException the service does not answer
std::vector<int> addressesOf(IoMapping& io, const std::vector<RegisterType>& types);

/// The properties of a register.
///
/// @throws Failure names the register and the reason why the service does not know it
/// @throws tesk::InputOutputException the service does not answer
RegisterInfo infoOf(IoMapping& io, int address);

/// The properties of a register, or nothing if the service does not know it.
///
/// @throws tesk::InputOutputException the service does not answer
std::optional<RegisterInfo> findInfo(IoMapping& io, int address);

/// The properties of several registers, in the order of the addresses.
///
/// @throws Failure, tesk::InputOutputException as infoOf()
std::vector<RegisterInfo> infosOf(IoMapping& io, const std::vector<int>& addresses);

/// Reads registers with as few calls as possible: one when all of them can be read. Many registers
/// take further calls: the one for the addresses of the temperature sensors, and one for each of
/// these, as a sensor may take most of a second.
///
/// @return one reading for each address, in the same order
/// @throws tesk::InputOutputException the service does not answer
std::vector<Reading> readEach(IoMapping& io, const std::vector<int>& addresses);

/// The same for registers whose properties are known. Each temperature sensor takes a call.
std::vector<Reading> readKnown(IoMapping& io, const std::vector<RegisterInfo>& infos);

/// The name of a register for messages: "register 12 (relay 3)", or "register 12" when the service
/// does not know the register or does not answer.
std::string nameOf(IoMapping& io, int address);

/// The same for a register whose properties are known, or are known to be none.
std::string nameOf(int address, const std::optional<RegisterInfo>& info);
