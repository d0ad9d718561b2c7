// SPDX-License-Identifier: MIT
#include "InfoIo.h"

#include <Poco/NumberParser.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "support/Pattern.h"
#include "support/ValueFile.h"
#include "tesk/Exceptions.h"
#include "tesk/Strings.h"

namespace {

constexpr Pattern<std::string> FILE_NOT_FOUND("file %s not found");

constexpr std::array<std::pair<const char*, std::uint32_t InfoIo::*>, 4> KEYS{{
    {"relays", &InfoIo::relays},
    {"inputs", &InfoIo::inputs},
    {"outputs", &InfoIo::outputs},
    {"analogs", &InfoIo::analogs},
}};

}  // namespace

InfoIo::InfoIo(const std::string& fileName) {
    const auto text = ValueFile::readText(fileName);
    if (!text) {
        throw tesk::NotFoundException(FILE_NOT_FOUND(fileName));
    }
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        const auto pieces = tesk::Strings::split(line, " ", true);
        if (pieces.size() != 2) {
            continue;
        }
        const auto* const key = std::find_if(
            KEYS.begin(), KEYS.end(), [&pieces](const auto& k) { return pieces[0] == k.first; });
        if (key != KEYS.end()) {
            this->*key->second = Poco::NumberParser::parseUnsigned(pieces[1]);
        }
    }
}
