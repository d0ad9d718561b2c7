// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ChangeQueue.h"
#include "Payloads.h"
#include "Request.h"
#include "support/FileDescriptor.h"

/// A message that answers a request.
struct Reply {
    bool isSnapshot;
    std::string payload;
};

/// What the thread of the bus and the thread of the network hand each other. Neither ever waits for
/// the other one: each part is bounded. All methods may be called from any thread.
class Mailbox {
 public:
    /// How many requests and replies may wait.
    static constexpr std::size_t MOST_REQUESTS = 100;

    /// @param whenRequested wakes the thread of the bus
    /// @throws Failure there are no descriptors left
    explicit Mailbox(std::function<void()> whenRequested);

    // ---- from the bus to the network

    void addChange(Change change);
    /// The newest value of a labelled register.
    void setValue(const std::string& topic, std::string payload);
    void addReply(Reply reply);
    void setInfo(DeviceInfo newest);

    /// Has something to read when there is something new for the network.
    int descriptor() const { return event.get(); }

    /// Takes the descriptor's event.
    void clearEvent() const;

    bool hasChanges() const;
    /// As ChangeQueue::take().
    std::string takeChanges(std::int64_t now, std::size_t mostBytes);
    std::optional<std::pair<std::string, std::string>> takeValue();
    std::optional<Reply> takeReply();
    /// The newest info, if it was set since the last call.
    std::optional<DeviceInfo> takeInfo();
    /// Forgets the replies: whoever asked is not connected any more.
    void dropReplies();
    /// Anything that does not depend on the time waits.
    bool hasMessages() const;

    // ---- from the network to the bus

    /// @return false if too many requests and replies wait already; the request is dropped
    bool addRequest(Request request);
    std::optional<Request> takeRequest();

    /// Asks for all values of labelled registers: the broker may have forgotten them.
    void askForValues();
    bool takeValuesWanted();

 private:
    void notify() const;

    std::function<void()> wakeBus;
    FileDescriptor event;
    mutable std::mutex mutex;
    ChangeQueue changes;
    std::map<std::string, std::string> values;
    std::string lastValue;
    bool valuesWanted{false};
    std::deque<Reply> replies;
    std::optional<DeviceInfo> info;
    std::deque<Request> requests;
};
