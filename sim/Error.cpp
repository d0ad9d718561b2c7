// SPDX-License-Identifier: MIT
#include "Error.h"

#include <cerrno>
#include <cstring>

namespace sim {

Error openError(const std::filesystem::path& file) {
    if (errno == ENOENT) {
        return Error{"there is no " + file.string() +
                     "; is its board made and not pulled, its sensor plugged?"};
    }
    return Error{"cannot open " + file.string() + ": " + std::strerror(errno)};
}

}  // namespace sim
