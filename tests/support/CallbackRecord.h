// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Deadline.h"

/// Notes the calls of a callback on another thread.
class CallbackRecord {
 public:
    /// The callback. It may be called after this object has gone.
    std::function<void(int)> callback() const {
        return [state = state](int key) {
            const std::lock_guard<std::mutex> lock(state->mutex);
            state->keys.push_back(key);
            state->changed.notify_all();
        };
    }

    /// The arguments of the calls so far, in order.
    std::vector<int> keys() const {
        const std::lock_guard<std::mutex> lock(state->mutex);
        return state->keys;
    }

    /// Waits until there were this many calls.
    ///
    /// @return whether there were before the patience ended
    bool reach(std::size_t count) const {
        std::unique_lock<std::mutex> lock(state->mutex);
        return state->changed.wait_for(lock, PATIENCE,
                                       [this, count] { return state->keys.size() >= count; });
    }

 private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<int> keys;
    };
    std::shared_ptr<State> state = std::make_shared<State>();
};
