// SPDX-License-Identifier: MIT
#include "WakeUp.h"

#include <glib.h>

#include <algorithm>
#include <cmath>

namespace {

/// No earlier than after this time.
guint millisecondsOf(std::chrono::duration<double> time) {
    const double milliseconds = std::ceil(std::max(time.count(), 0.0) * 1000) + 1;
    return static_cast<guint>(std::min(milliseconds, double{G_MAXUINT}));
}

}  // namespace

void wakeAfter(std::chrono::duration<double> time) {
    g_timeout_add(
        millisecondsOf(time), [](gpointer /*userData*/) -> gboolean { return G_SOURCE_CONTINUE; },
        nullptr);
}

void wakeOnceAfter(std::chrono::duration<double> time) {
    g_timeout_add(
        millisecondsOf(time), [](gpointer /*userData*/) -> gboolean { return G_SOURCE_REMOVE; },
        nullptr);
}
