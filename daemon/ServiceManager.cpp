// SPDX-License-Identifier: MIT
#include "ServiceManager.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>

#include "program/ServiceNotice.h"

namespace {

/// Becomes ready when the server has its registers, tells of them, and goes.
struct StatusSource {
    GSource base;
    const Server* server;
};

std::size_t registersOf(GSource* source) {
    return reinterpret_cast<StatusSource*>(source)->server->registerCount();
}

gboolean isServing(GSource* source) {
    return registersOf(source) > 0 ? TRUE : FALSE;
}

gboolean isServingWithoutWaiting(GSource* source, gint* timeout) {
    *timeout = -1;
    return isServing(source);
}

gboolean tellStatus(GSource* source, GSourceFunc /*callback*/, gpointer /*userData*/) {
    notifySupervisor("STATUS=serving " + std::to_string(registersOf(source)) + " registers");
    return G_SOURCE_REMOVE;
}

// NOLINTNEXTLINE(*-avoid-non-const-global-variables): GLib takes no constant one
GSourceFuncs statusFunctions{
    isServingWithoutWaiting, isServing, tellStatus, nullptr, nullptr, nullptr};

GSource* statusSource(const Server& server) {
    GSource* const source = g_source_new(&statusFunctions, sizeof(StatusSource));
    reinterpret_cast<StatusSource*>(source)->server = &server;
    return source;
}

gboolean feedWatchdog(gpointer /*userData*/) {
    if (Server::notifierAnswers()) {
        notifySupervisor("WATCHDOG=1");
    }
    return G_SOURCE_CONTINUE;
}

GSource* watchdogSource(std::chrono::microseconds limit) {
    // An answer is seen at the next time, so that two times have to fit in well.
    const auto milliseconds = std::clamp<std::chrono::microseconds::rep>(
        limit.count() / 4 / 1000, 1, std::numeric_limits<guint>::max());
    GSource* const source = g_timeout_source_new(static_cast<guint>(milliseconds));
    g_source_set_callback(source, feedWatchdog, nullptr, nullptr);
    return source;
}

void endSource(const SourceOwner& source) {
    if (source) {
        g_source_destroy(source.get());
    }
}

}  // namespace

ServiceManager::ServiceManager(const Server& server) {
    if (!isSupervised()) {
        return;
    }
    status.reset(statusSource(server));
    g_source_attach(status.get(), nullptr);
    if (const auto limit = watchdogLimit()) {
        watchdog.reset(watchdogSource(*limit));
        g_source_attach(watchdog.get(), nullptr);
    }
}

ServiceManager::~ServiceManager() {
    endSource(status);
    endSource(watchdog);
}
