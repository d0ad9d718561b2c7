// SPDX-License-Identifier: MIT
#include "ChangeQueue.h"

#include <set>
#include <utility>

#include "JsonText.h"

namespace {

/// [address, value, age], or [address, null, age, reason].
std::string textOf(const Change& change, std::int64_t now) {
    std::string text = "[" + std::to_string(change.address) + "," +
                       (change.value ? std::to_string(*change.value) : "null") + "," +
                       std::to_string(now - change.sinceBoot);
    return text + (change.value ? "" : "," + quoted(change.reason)) + "]";
}

}  // namespace

void ChangeQueue::push(Change change) {
    waiting.push_back(std::move(change));
    if (waiting.size() > mergeAt) {
        merge();
        mergeAt = waiting.size() + SPARE;
    }
}

void ChangeQueue::merge() {
    std::set<int> seen;
    std::deque<Change> newest;
    for (auto change = waiting.rbegin(); change != waiting.rend(); ++change) {
        if (seen.insert(change->address).second) {
            newest.push_front(std::move(*change));
        }
    }
    mergedCount += waiting.size() - newest.size();
    waiting = std::move(newest);
}

std::string ChangeQueue::take(std::int64_t now, std::size_t mostBytes) {
    std::string text = "[";
    while (!waiting.empty()) {
        const std::string change = textOf(waiting.front(), now);
        if (text.size() > 1 && text.size() + change.size() + 2 > mostBytes) {
            break;
        }
        text += (text.size() > 1 ? "," : "") + change;
        waiting.pop_front();
    }
    return text + "]";
}
