// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Object.h>

#include <istream>

namespace tesk {

/// Parses one JSON document.
///
/// @param in the document; read to its end
/// @return the root object, or an empty pointer when the root is valid JSON but no object
/// @throws tesk::ParseException the text is not JSON; carries the parser's words and the line
///         (counted from 1) at which it gave up
Poco::JSON::Object::Ptr jsonParse(std::istream& in);

}  // namespace tesk
