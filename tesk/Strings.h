// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace tesk {

/// Text helpers.
class Strings {
 public:
    /// Cuts a text at every occurrence of a separator. Empty pieces count: a text without the
    /// separator, the empty one included, is one piece.
    ///
    /// @param text what to cut
    /// @param separator what to cut at; must not be empty
    /// @param trim whether blanks around each piece are removed
    /// @return the pieces in order
    static std::vector<std::string> split(const std::string& text, const std::string& separator,
                                          bool trim);
};

}  // namespace tesk
