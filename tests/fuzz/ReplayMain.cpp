// SPDX-License-Identifier: MIT
//
// Runs a fuzz target once over every file of the given directories, so that its corpus is a test
// in builds without a fuzzer.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "TemporaryDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
    // The last name printed is the culprit of a crash.
    std::cout << file.string() << std::endl;
    const std::string text = readFile(file);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::size_t replayAll(const std::filesystem::path& directory) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            replay(entry.path());
            ++count;
        }
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << argv[0] << ": no directory given; usage: " << argv[0] << " DIRECTORY...\n";
        return EXIT_FAILURE;
    }
    try {
        for (int i = 1; i < argc; ++i) {
            const std::size_t count = replayAll(argv[i]);
            if (count == 0) {
                std::cerr << argv[0] << ": " << argv[i] << " holds no file to replay\n";
                return EXIT_FAILURE;
            }
            std::cout << argv[i] << ": " << count << " files replayed\n";
        }
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
