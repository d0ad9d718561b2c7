// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// Creates a file and the directories above it, or replaces its text.
inline void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

/// The whole text of a file.
inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// An empty directory that goes with its owner, contents included.
class TemporaryDirectory {
 public:
    TemporaryDirectory() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "iomapping-XXXXXX").string();
        place = mkdtemp(pattern.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(place, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return place; }

    /// Creates a file in the directory.
    ///
    /// @return its path
    std::string file(const std::string& name, const std::string& text) const {
        writeFile(place / name, text);
        return place / name;
    }

 private:
    std::filesystem::path place;
};
