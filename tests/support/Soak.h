// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>

/// How much a long test does: all of it where `./dev soak` runs it, else the part that shows in
/// seconds what the whole shows for certain.
inline int soakOr(int all, int part) {
    return std::getenv("IO_MAPPING_SOAK") != nullptr ? all : part;
}
