// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

/// Writes lines to a descriptor from a thread of its own. The caller never waits for whoever reads
/// them: at most MOST_WAITING lines wait, and more of them push out the oldest.
///
/// The methods are for one thread.
class LineOutput {
 public:
    static constexpr std::size_t MOST_WAITING = 4'000;

    /// What to do about what happens. Each may be called from the thread of the output.
    struct Listener {
        /// The first line has been pushed out since lines could be written.
        std::function<void()> onLoss = [] {};
        /// Lines can be written again; so many were pushed out.
        std::function<void(std::size_t lost)> onResumption = [](std::size_t /*lost*/) {};
        /// A line cannot be written. No more are.
        std::function<void()> onFailure = [] {};
    };

    /// @param descriptor borrowed; must stay open as long as the process lives
    LineOutput(int descriptor, Listener listener);
    /// Waits 0.3 s at most for what is not written yet.
    ~LineOutput();
    LineOutput(const LineOutput&) = delete;
    LineOutput& operator=(const LineOutput&) = delete;

    /// Has a line written, to which a line end is added.
    void print(const std::string& line);

    /// Whether a line could not be written.
    bool hasFailed() const;

    /// Waits until all lines are written; without an end, however long that takes. Nothing may be
    /// printed any more.
    ///
    /// @return how many lines have not been written by the end, and never will be
    std::size_t finish(const std::optional<std::chrono::steady_clock::time_point>& end);

 private:
    struct State;
    // Whoever does not read may keep the thread for ever. It keeps its state then.
    std::shared_ptr<State> state;
    std::thread writer;
};
