// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && std::getenv("IO_MAPPING_SANDBOX") == nullptr) {
        std::cerr << argv[0]
                  << ": writes to fixed paths such as /sys; run it through tests/support/sandbox\n";
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
