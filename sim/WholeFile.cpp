// SPDX-License-Identifier: MIT
#include "WholeFile.h"

#include <fstream>

#include "Error.h"

namespace sim {

void replaceFile(const std::filesystem::path& path, const std::string& text) {
    const auto fresh = path.parent_path() / ("." + path.filename().string() + ".new");
    std::ofstream file(fresh);
    file << text;
    file.close();
    if (!file) {
        throw Error("cannot write " + fresh.string());
    }
    std::filesystem::rename(fresh, path);
}

}  // namespace sim
