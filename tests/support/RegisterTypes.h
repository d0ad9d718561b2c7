// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "RegisterType.h"

/// A number that is no register type: the next free one.
inline RegisterType noType() {
    return static_cast<RegisterType>(static_cast<int>(getAllTypes().back()) + 1);
}

/// All register types, and some numbers that are no register type.
inline std::vector<RegisterType> allTypes() {
    std::vector<RegisterType> types = getAllTypes();
    types.push_back(static_cast<RegisterType>(-1));
    types.push_back(noType());
    return types;
}
