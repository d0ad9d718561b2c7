// SPDX-License-Identifier: MIT
#include "Mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "client/Failure.h"

using Lock = std::lock_guard<std::mutex>;

namespace {

template <typename Item>
std::optional<Item> takeFirst(std::deque<Item>& queue) {
    if (queue.empty()) {
        return std::nullopt;
    }
    Item first = std::move(queue.front());
    queue.pop_front();
    return first;
}

}  // namespace

Mailbox::Mailbox(std::function<void()> whenRequested)
    : wakeBus(std::move(whenRequested)), event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!event.isOpen()) {
        throw Failure("there are no file descriptors left");
    }
}

void Mailbox::notify() const {
    const std::uint64_t one = 1;
    // It fails only if it is notified already.
    [[maybe_unused]] const ssize_t written = ::write(event.get(), &one, sizeof(one));
}

void Mailbox::clearEvent() const {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(event.get(), &count, sizeof(count));
}

void Mailbox::addChange(Change change) {
    {
        const Lock lock(mutex);
        changes.push(std::move(change));
    }
    notify();
}

void Mailbox::setValue(const std::string& topic, std::string payload) {
    {
        const Lock lock(mutex);
        values[topic] = std::move(payload);
    }
    notify();
}

void Mailbox::addReply(Reply reply) {
    {
        const Lock lock(mutex);
        replies.push_back(std::move(reply));
    }
    notify();
}

void Mailbox::setInfo(DeviceInfo newest) {
    {
        const Lock lock(mutex);
        info = std::move(newest);
    }
    notify();
}

bool Mailbox::hasChanges() const {
    const Lock lock(mutex);
    return !changes.empty();
}

std::string Mailbox::takeChanges(std::int64_t now, std::size_t mostBytes) {
    const Lock lock(mutex);
    return changes.take(now, mostBytes);
}

std::optional<std::pair<std::string, std::string>> Mailbox::takeValue() {
    const Lock lock(mutex);
    if (values.empty()) {
        return std::nullopt;
    }
    // In turn, so that a register that changes all the time lets the others pass.
    const auto next = values.upper_bound(lastValue);
    auto node = values.extract(next != values.end() ? next : values.begin());
    lastValue = node.key();
    return std::pair(std::move(node.key()), std::move(node.mapped()));
}

std::optional<Reply> Mailbox::takeReply() {
    const Lock lock(mutex);
    return takeFirst(replies);
}

std::optional<DeviceInfo> Mailbox::takeInfo() {
    const Lock lock(mutex);
    return std::exchange(info, std::nullopt);
}

void Mailbox::dropReplies() {
    const Lock lock(mutex);
    replies.clear();
}

bool Mailbox::hasMessages() const {
    const Lock lock(mutex);
    return !values.empty() || !replies.empty() || info;
}

void Mailbox::askForValues() {
    {
        const Lock lock(mutex);
        valuesWanted = true;
    }
    wakeBus();
}

bool Mailbox::takeValuesWanted() {
    const Lock lock(mutex);
    return std::exchange(valuesWanted, false);
}

bool Mailbox::addRequest(Request request) {
    {
        const Lock lock(mutex);
        if (requests.size() + replies.size() >= MOST_REQUESTS) {
            return false;
        }
        requests.push_back(std::move(request));
    }
    wakeBus();
    return true;
}

std::optional<Request> Mailbox::takeRequest() {
    const Lock lock(mutex);
    return takeFirst(requests);
}
