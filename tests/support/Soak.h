// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

/// How much a long test does: all of it where `./dev soak` runs it, else the part that shows in
/// seconds what the whole shows for certain.
inline int soakOr(int all, int part) {
    return std::getenv("IO_MAPPING_SOAK") != nullptr ? all : part;
}

/// Notes a figure of the running test for the table of `./dev soak`.
///
/// @param name "faults" injected, changes "told", values "lost", or "growth" of memory in kB
template <typename Number>
void recordFigure(const char* name, Number figure) {
    testing::Test::RecordProperty(name, std::to_string(figure));
}
