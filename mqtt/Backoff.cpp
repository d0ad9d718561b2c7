// SPDX-License-Identifier: MIT
#include "Backoff.h"

#include <algorithm>
#include <utility>

Backoff::Backoff(Random source) : random(std::move(source)) {}

Backoff::Duration Backoff::next() {
    const Duration pause(static_cast<Duration::rep>(static_cast<double>(most.count()) * random()));
    most = std::min(most * 2, LONGEST);
    return std::max(pause, SHORTEST);
}

Backoff::Duration Backoff::nextAfterRefusal() {
    return AFTER_REFUSAL + next();
}
