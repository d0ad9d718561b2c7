// SPDX-License-Identifier: MIT
#include "Signals.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "EndProcess.h"

namespace {

std::atomic<void (*)() noexcept> work{nullptr};  // NOLINT(*-avoid-non-const-global-variables)

}  // namespace

void endOnSignals(void (*lastWork)() noexcept) {
    work = lastWork;
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) {
        work.load()();
        endProcess(EXIT_SUCCESS);
    };
    for (const int signal : {SIGTERM, SIGINT}) {
        sigaction(signal, &action, nullptr);
    }
}
