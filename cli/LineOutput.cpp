// SPDX-License-Identifier: MIT
#include "LineOutput.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace {

constexpr std::chrono::milliseconds GRACE(300);

/// @return whether all of the text is written
bool writeAll(int descriptor, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

struct LineOutput::State {
    State(int fd, Listener heard) : descriptor(fd), listener(std::move(heard)) {}

    /// Writes what comes until the end.
    void work();

    /// Waits for lines, and takes as many as a pipe takes in one piece.
    ///
    /// @return nothing at the end
    std::string take();

    const int descriptor;
    const Listener listener;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::string> lines;
    std::size_t taken{0};  ///< How many lines are being written.
    std::size_t lost{0};   ///< How many were pushed out and are not told yet.
    bool ended{false};
    bool failed{false};
    bool done{false};
};

void LineOutput::State::work() {
    for (std::string text = take(); !text.empty(); text = take()) {
        const bool written = writeAll(descriptor, text);
        std::unique_lock<std::mutex> lock(mutex);
        if (!written) {
            failed = true;
            break;
        }
        taken = 0;
        const std::size_t told = std::exchange(lost, 0);
        lock.unlock();
        if (told > 0) {
            listener.onResumption(told);
        }
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        done = true;
        changed.notify_all();
    }
    // Nobody else changes this.
    if (failed) {
        listener.onFailure();
    }
}

std::string LineOutput::State::take() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return ended || !lines.empty(); });
    std::string text;
    while (!lines.empty() && (text.empty() || text.size() + lines.front().size() <= PIPE_BUF)) {
        text += lines.front();
        lines.pop_front();
        ++taken;
    }
    return text;
}

LineOutput::LineOutput(int descriptor, Listener listener)
    : state(std::make_shared<State>(descriptor, std::move(listener))),
      writer([working = state] { working->work(); }) {}

LineOutput::~LineOutput() {
    if (writer.joinable()) {
        finish(std::chrono::steady_clock::now() + GRACE);
    }
}

void LineOutput::print(const std::string& line) {
    bool firstLoss = false;
    {
        const std::lock_guard<std::mutex> lock(state->mutex);
        if (state->failed) {
            return;
        }
        if (state->lines.size() == MOST_WAITING) {
            state->lines.pop_front();
            firstLoss = ++state->lost == 1;
        }
        state->lines.push_back(line + '\n');
    }
    state->changed.notify_all();
    if (firstLoss) {
        state->listener.onLoss();
    }
}

bool LineOutput::hasFailed() const {
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->failed;
}

std::size_t LineOutput::finish(const std::optional<std::chrono::steady_clock::time_point>& end) {
    std::unique_lock<std::mutex> lock(state->mutex);
    state->ended = true;
    state->changed.notify_all();
    const auto isDone = [this] { return state->done; };
    if (end) {
        state->changed.wait_until(lock, *end, isDone);
    } else {
        state->changed.wait(lock, isDone);
    }
    const std::size_t left = state->lines.size() + state->taken + state->lost;
    const bool isOver = state->done;
    // What is not written by now is given up, even if it could be written later.
    state->lines.clear();
    lock.unlock();
    if (isOver) {
        writer.join();
    } else {
        writer.detach();
    }
    return left;
}
