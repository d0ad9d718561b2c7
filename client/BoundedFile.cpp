// SPDX-License-Identifier: MIT
#include "BoundedFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "Failure.h"

std::optional<std::string> readBoundedFile(const std::string& path, std::size_t most) {
    const auto fail = [&path](const std::string& reason) -> std::optional<std::string> {
        throw Failure("cannot read '" + path + "': " + reason);
    };
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? std::nullopt : fail(std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return fail("this is not a regular file");
    }
    std::ifstream file(path);
    if (!file) {
        return fail(std::strerror(errno));
    }
    // A file may grow while it is read, and only the file tells where it ends.
    const auto expected = static_cast<std::size_t>(status.st_size);
    std::string text(std::min(expected, most) + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (expected > most || text.size() > most) {
        return fail("the file is longer than " + std::to_string(most) + " bytes");
    }
    return text;
}
