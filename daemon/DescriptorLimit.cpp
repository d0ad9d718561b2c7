// SPDX-License-Identifier: MIT
#include "DescriptorLimit.h"

#include <sys/resource.h>

#include <algorithm>

namespace {

constexpr rlim_t DESCRIPTORS = 8192;

}  // namespace

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= DESCRIPTORS) {
        return;
    }
    // Where nobody has raised it, the kernel's own hard limit is 4096; root may go beyond it.
    const rlimit wanted{DESCRIPTORS, std::max(limit.rlim_max, DESCRIPTORS)};
    if (::setrlimit(RLIMIT_NOFILE, &wanted) != 0) {
        limit.rlim_cur = std::min(limit.rlim_max, DESCRIPTORS);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}
