// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "Deadline.h"
#include "HeardChanges.h"
#include "Process.h"
#include "TemporaryDirectory.h"

/// Clients that listen to all changes, each a process of its own.
class ChangeListeners {
 public:
    /// Starts them and waits until they listen.
    ///
    /// @param program what to run
    /// @param count how many
    ChangeListeners(const std::string& program, int count) {
        for (int i = 0; i < count; ++i) {
            add(program);
        }
    }

    /// Starts one more.
    void add(const std::string& program) {
        const std::string path = directory.path() / std::to_string(all.size());
        all.push_back({HeardChanges::in(path),
                       std::make_unique<Process>(std::vector<std::string>{program, path})});
        all.back().process->waitForLine("listening");
    }

    std::size_t count() const { return all.size(); }

    /// What one of them has heard so far.
    const HeardChanges& heard(std::size_t listener) const { return *all.at(listener).heard; }

    /// How many changes all of them together have heard so far.
    std::uint64_t told() const {
        return std::accumulate(all.begin(), all.end(), std::uint64_t{0},
                               [](std::uint64_t sum, const Listener& listener) {
                                   return sum + listener.heard->count;
                               });
    }

    /// Waits until all have heard of a value; false when they do not.
    bool waitUntilAllHeard(int address, int value,
                           std::chrono::milliseconds patience = PATIENCE) const {
        const Deadline deadline(patience);
        while (!allHeard(address, value) && !deadline.passed()) {
            // Memory that other processes write to raises no event.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return allHeard(address, value);
    }

    /// Whether the last change that each has heard of a register has this value.
    bool allHeard(int address, int value) const { return missing(address, value) == 0; }

    /// How many of them have heard of another value of a register last, or of none.
    std::ptrdiff_t missing(int address, int value) const {
        return std::count_if(all.begin(), all.end(), [&](const Listener& listener) {
            return listener.heard->last.at(static_cast<std::size_t>(address)) != value;
        });
    }

 private:
    struct Listener {
        HeardChanges::Owner heard;
        std::unique_ptr<Process> process;
    };

    TemporaryDirectory directory;
    std::vector<Listener> all;
};
