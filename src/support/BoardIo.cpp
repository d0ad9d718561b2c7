// SPDX-License-Identifier: MIT
#include "BoardIo.h"

#include <Poco/File.h>

#include <algorithm>
#include <limits>

#include "Pattern.h"
#include "ValueFile.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<int> INVALID_INDEX("invalid IO index %d");

}  // namespace

namespace BoardIo {

void requireIndex(int index, std::uint32_t count) {
    if (index < 0 || static_cast<std::uint32_t>(index) > count) {
        throw tesk::InvalidArgumentsException(INVALID_INDEX(index));
    }
}

void writeEdge(const std::string& file, const std::string& edge) {
    // A board may have no edge files, so this is not an error.
    static_cast<void>(ValueFile::replaceText(file, edge));
}

int truncate(double value) {
    constexpr double LOWEST = std::numeric_limits<int>::min();
    constexpr double HIGHEST = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(value, LOWEST, HIGHEST));
}

bool directoryExists(const std::string& path) {
    const Poco::File file(path);
    return file.exists() && file.isDirectory();
}

}  // namespace BoardIo
