// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <Poco/JSON/Object.h>

#include <string>

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

/// A JSON document as one line, without a line end.
std::string lineOf(const Poco::Dynamic::Var& document);

/// Prints one JSON document as one line.
void printJson(const Poco::Dynamic::Var& document);
