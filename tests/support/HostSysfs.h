// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

/// Where the sandbox shows the sysfs of the kernel that the tests run on, beside the empty /sys.
/// Tests only read there.
inline const std::string HOST_SYSFS = "/tmp/host-sys";

/// Whether a file has one decimal integer that stays as it is, with or without a line end.
inline bool hasOneInteger(const std::filesystem::path& path) {
    const std::string text = readFile(path);
    const std::size_t end = text.find_last_not_of('\n') + 1;
    return end > 0 && end <= 9 &&
           std::all_of(text.begin(), text.begin() + static_cast<long>(end),
                       [](unsigned char c) { return std::isdigit(c) != 0; }) &&
           readFile(path) == text;
}

/// The attributes of the host's kernel that have one integer, in the order of their paths, none of
/// which has a symbolic link.
inline std::vector<std::string> integerAttributes() {
    namespace fs = std::filesystem;
    struct stat sysfs {};
    ::stat(HOST_SYSFS.c_str(), &sysfs);
    std::vector<std::string> found;
    for (const char* const folder : {"/module", "/kernel"}) {
        const auto skip = fs::directory_options::skip_permission_denied;
        for (auto entry = fs::recursive_directory_iterator(HOST_SYSFS + folder, skip);
             entry != fs::recursive_directory_iterator(); ++entry) {
            struct stat status {};
            if (::lstat(entry->path().c_str(), &status) != 0 || status.st_dev != sysfs.st_dev) {
                // Other file systems are mounted in sysfs, and have files that are read once.
                entry.disable_recursion_pending();
            } else if (S_ISREG(status.st_mode) && (status.st_mode & S_IROTH) != 0 &&
                       hasOneInteger(entry->path())) {
                found.push_back(entry->path());
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

/// A descriptor of this process and the file it is open at.
struct OpenFile {
    int fd;
    std::string path;
};

/// The files in sysfs that this process has open.
inline std::vector<OpenFile> openAttributes() {
    namespace fs = std::filesystem;
    std::vector<OpenFile> found;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string path = fs::read_symlink(entry.path(), gone);
        if (path.rfind(HOST_SYSFS, 0) == 0) {
            found.push_back({std::stoi(entry.path().filename()), path});
        }
    }
    return found;
}
