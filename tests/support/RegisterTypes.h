// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "RegisterType.h"

/// All register types, and some numbers that are no register type.
inline std::vector<RegisterType> allTypes() {
    std::vector<RegisterType> types;
    for (int number = -1; number <= 31; ++number) {
        types.push_back(static_cast<RegisterType>(number));
    }
    return types;
}
