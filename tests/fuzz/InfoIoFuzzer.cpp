// SPDX-License-Identifier: MIT
//
// Reads any bytes as a board's info_io. The counts must be those of the last line for each key.
// Only a count that is no number may be refused.

#include <Poco/Exception.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>

#include "InfoIo.h"
#include "MemoryFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string trimmed(const std::string& text) {
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && isBlank(text[first])) {
        ++first;
    }
    while (last > first && isBlank(text[last - 1])) {
        --last;
    }
    return text.substr(first, last - first);
}

/// The last text that stands for each key on a line with one blank.
std::map<std::string, std::string> lastOfEach(const std::string& text) {
    std::map<std::string, std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = line.find(' ');
        if (blank != std::string::npos && line.find(' ', blank + 1) == std::string::npos) {
            found[trimmed(line.substr(0, blank))] = trimmed(line.substr(blank + 1));
        }
    }
    return found;
}

[[noreturn]] void fail(const std::string& what) {
    std::cerr << what << '\n';
    std::abort();
}

void requireCount(const std::map<std::string, std::string>& stated, const std::string& key,
                  std::uint32_t count) {
    const auto entry = stated.find(key);
    if (entry == stated.end()) {
        if (count != 0) {
            fail(key + " is not stated");
        }
        return;
    }
    std::uint64_t expected = 0;
    // The parser of numbers sees a C string: a zero byte ends it.
    for (const char c : entry->second.substr(0, entry->second.find('\0'))) {
        // A sign and thousands separators may stand among the digits.
        const bool isDigit = c >= '0' && c <= '9';
        expected = isDigit ? expected * 10 + static_cast<std::uint64_t>(c - '0') : expected;
    }
    if (expected != count) {
        fail(key + " is " + std::to_string(count) + " instead of " + entry->second);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.replace(data, size);
    try {
        const InfoIo counts(file.path());
        const auto stated = lastOfEach(std::string(data, data + size));
        requireCount(stated, "relays", counts.relays);
        requireCount(stated, "inputs", counts.inputs);
        requireCount(stated, "outputs", counts.outputs);
        requireCount(stated, "analogs", counts.analogs);
    } catch (const Poco::SyntaxException&) {
        // The board states a number that is none.
    }
    return 0;
}
