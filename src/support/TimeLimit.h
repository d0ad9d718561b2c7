// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <chrono>
#include <future>

#include "GLibOwners.h"

/// Carries out work that waits for the bus, for a limited time. The work gets a cancellable and
/// hands it to each call of GIO. At the limit the calls end with G_IO_ERROR_CANCELLED. For one, a
/// connection to a bus that has been stopped has no time-out of its own.
///
/// The work runs on a thread of its own, which has no main context of its own: what GDBus ties to
/// the thread's main context, such as a subscription, belongs to the process's default one.
///
/// @param limit from when on the calls of the work are cancelled
/// @param work is called with a GCancellable*
/// @return what the work returns; what it throws is thrown here
template <typename Work>
auto withinTimeLimit(std::chrono::milliseconds limit, const Work& work) {
    const ObjectOwner<GCancellable> cancellable(g_cancellable_new());
    auto result = std::async(std::launch::async, work, cancellable.get());
    if (result.wait_for(limit) == std::future_status::timeout) {
        g_cancellable_cancel(cancellable.get());
    }
    return result.get();
}
