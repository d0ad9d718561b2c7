// SPDX-License-Identifier: MIT
#include "ServedBoards.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/Log.h"

namespace {

constexpr Pattern<std::string, std::string> NOT_WRITTEN(
    "cannot write %s: %s; a board that comes later is served only after a restart of the service");

void writeLines(const std::filesystem::path& file, const std::vector<std::string>& lines) {
    std::ofstream stream;
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.open(file);
    for (const std::string& line : lines) {
        stream << line << '\n';
    }
    stream.close();
    // The service may have a umask that leaves its files to itself. Every user may read the list.
    std::filesystem::permissions(
        file, std::filesystem::perms::group_read | std::filesystem::perms::others_read,
        std::filesystem::perm_options::add);
}

}  // namespace

void listServedBoards(const std::vector<std::string>& boards) {
    const char* const directory = std::getenv("RUNTIME_DIRECTORY");
    if (directory == nullptr) {
        return;
    }
    const std::filesystem::path list = std::filesystem::path(directory) / "boards";
    const std::filesystem::path unfinished = list.string() + ".new";
    try {
        writeLines(unfinished, boards);
        std::filesystem::rename(unfinished, list);
    } catch (const std::exception& e) {
        log(Poco::Logger::get("iomappingd"), Poco::Message::PRIO_WARNING, NOT_WRITTEN,
            list.string(), e.what());
    }
}
