// SPDX-License-Identifier: MIT
//
// Reads any bytes as a value file: the number must be the one that a stream of the standard library
// takes from the part of the file that is read.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "MemoryFile.h"
#include "support/ValueFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.replace(data, size);
    int expected = 0;
    std::istringstream(std::string(data, data + std::min(size, ValueFile::MOST_TEXT))) >> expected;
    const int value = ValueFile::read(file.path());
    if (value != expected) {
        std::cerr << "read " << value << ", the standard library " << expected << '\n';
        std::abort();
    }
    return 0;
}
