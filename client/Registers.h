// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Object.h>

#include <string>
#include <vector>

#include "IoMapping.h"

/// The fixed properties of a register.
struct RegisterInfo {
    int address;
    RegisterType type;
    int index;
    unsigned int maximum;
};

/// What reading a register gave: its value, or the reason why there is none.
struct Reading {
    int value;
    std::string error;
};

/// The value in decimal, or the reason why there is none.
std::string textOf(const Reading& reading);

/// The addresses of some types of register, ascending; of all types when none is named.
std::vector<int> addressesOf(IoMapping& io, const std::vector<RegisterType>& types);

/// The properties of a register.
///
/// @throws Failure names the register and the reason why the service does not know it
/// @throws tesk::InputOutputException the service does not answer
RegisterInfo infoOf(IoMapping& io, int address);

/// The same for several registers, in the same order.
std::vector<RegisterInfo> infosOf(IoMapping& io, const std::vector<int>& addresses);

/// Reads registers with as few calls as possible: one when all of them can be read.
///
/// @return one reading for each address, in the same order
/// @throws tesk::InputOutputException the service does not answer
std::vector<Reading> readEach(IoMapping& io, const std::vector<int>& addresses);

/// "register 12 (relay 3)", for messages; "register 12" when the service does not know it.
std::string nameOf(IoMapping& io, int address);

/// The properties as a JSON object with the keys address, type, index and maximum.
Poco::JSON::Object::Ptr jsonOf(const RegisterInfo& info);

/// An empty JSON object whose keys stay in the order in which they are set.
Poco::JSON::Object::Ptr newJsonObject();

/// Prints one JSON document as one line.
void printJson(const Poco::Dynamic::Var& document);
