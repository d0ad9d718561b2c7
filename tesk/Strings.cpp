// SPDX-License-Identifier: MIT
#include "tesk/Strings.h"

#include <Poco/String.h>

namespace tesk {

std::vector<std::string> Strings::split(const std::string& text, const std::string& separator,
                                        bool trim) {
    std::vector<std::string> pieces;
    std::string::size_type begin = 0;
    std::string::size_type end = 0;
    do {
        end = text.find(separator, begin);
        std::string piece = text.substr(begin, end - begin);
        pieces.push_back(trim ? Poco::trim(piece) : piece);
        begin = end + separator.size();
    } while (end != std::string::npos);
    return pieces;
}

}  // namespace tesk
