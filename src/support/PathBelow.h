// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Whether a path is that of a directory or of anything below the directory.
///
/// @param path compared by its characters; links are not followed
/// @param directory without a slash at its end
inline bool isAtOrBelow(std::string_view path, std::string_view directory) {
    return path.substr(0, directory.size()) == directory &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}
