// SPDX-License-Identifier: MIT
#include "WakeUp.h"

#include <glib.h>

#include <algorithm>
#include <cmath>

void wakeAfter(std::chrono::duration<double> time) {
    const double milliseconds = std::ceil(time.count() * 1000) + 1;
    g_timeout_add(
        static_cast<guint>(std::min(milliseconds, double{G_MAXUINT})),
        [](gpointer /*userData*/) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
}
