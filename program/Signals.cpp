// SPDX-License-Identifier: MIT
#include "Signals.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "EndProcess.h"

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) { endProcess(EXIT_SUCCESS); };
    for (const int signal : {SIGTERM, SIGINT}) {
        sigaction(signal, &action, nullptr);
    }
}
