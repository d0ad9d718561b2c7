// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Object.h>

#include <cstddef>
#include <istream>

namespace tesk {

/// Parses one JSON document.
///
/// @param in the document; read to its end
/// @param gaveUpAt gets the number of the byte, counted from 0, at which the parser gave up, unless
///        it is null; set only when the text is not JSON
/// @return the root object, or an empty pointer when the root is valid JSON but no object
/// @throws tesk::ParseException the text is not JSON; carries the parser's words and the line
///         (counted from 1) at which it gave up
Poco::JSON::Object::Ptr jsonParse(std::istream& in, std::size_t* gaveUpAt = nullptr);

}  // namespace tesk
