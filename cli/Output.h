// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <Poco/JSON/Object.h>

#include <string>
#include <vector>

#include "client/Labels.h"
#include "client/Registers.h"

/// The value in decimal, "missing" for a temperature sensor that is not there, or the reason why
/// there is no value.
std::string textOf(const Reading& reading);

/// An empty JSON object whose keys stay in the order in which they are set.
Poco::JSON::Object::Ptr newJsonObject();

/// The properties as a JSON object with the keys address, type, index and maximum.
Poco::JSON::Object::Ptr jsonOf(const RegisterInfo& info);

/// Sets one of two keys of a JSON object: the first to the value, or the second to the reason why
/// there is none. With the value of a temperature sensor that is not there comes a key "missing".
void setReading(Poco::JSON::Object& object, const Reading& reading,
                const std::string& valueKey = "value", const std::string& errorKey = "error");

/// The labels of the device. Faulty ones are told on standard error, and none is used then: by its
/// address, every register stays within reach.
Labels deviceLabels();

/// What a reading shows with a label: "open" or "21.5 bar". Without a label as textOf().
///
/// @param label may be null
std::string shownText(const Reading& reading, const Label* label);

/// Sets what a label says of a reading: name, shown, scaled and unit, as far as there is such.
///
/// @param label may be null
void setLabel(Poco::JSON::Object& object, const Reading& reading, const Label* label);

/// Fields as a line of comma-separated values, without a line end: RFC 4180 tells which ones stand
/// between quotes.
std::string csvLine(const std::vector<std::string>& fields);

/// A JSON document as one line, without a line end.
std::string lineOf(const Poco::Dynamic::Var& document);

/// Prints one JSON document as one line.
void printJson(const Poco::Dynamic::Var& document);
