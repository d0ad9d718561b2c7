// SPDX-License-Identifier: MIT
#include "EndProcess.h"

#include <cstdlib>

void endProcess(int status) noexcept {
    std::_Exit(status);
}
