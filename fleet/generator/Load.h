// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Latencies.h"
#include "Link.h"
#include "Schedule.h"
#include "Usage.h"
#include "support/FileDescriptor.h"

struct LoadOptions {
    int port{1883};
    pid_t broker{0};                            ///< Its process, to measure.
    std::size_t connections{1000};              ///< Of devices; one more hears them all.
    std::uint64_t connectRate{500};             ///< Connections that are made in a second.
    std::uint64_t sources{5};                   ///< Addresses of the loopback to connect from.
    std::chrono::milliseconds period{1000};     ///< Between two messages of a device.
    std::chrono::milliseconds warmUp{5000};     ///< Before what is measured.
    std::chrono::milliseconds measured{30000};  ///< The time that is measured.
    std::chrono::milliseconds patience{60000};  ///< Until all has arrived.
};

/// What two processes had used at one moment.
struct Sample {
    Clock::time_point time;
    Usage generator;
    Usage broker;
};

struct LoadFigures {
    std::chrono::nanoseconds connecting{};  ///< Until the broker had accepted the last connection.
    std::uint64_t sent{0};
    std::uint64_t acknowledged{0};
    std::uint64_t delivered{0};
    Latencies lateness;        ///< From when a message is due until it is sent.
    Latencies acknowledgment;  ///< From when a message is due until the broker has taken it.
    Latencies delivery;        ///< From when a message is due until who hears all has it.
    Sample before;             ///< There is no connection yet.
    Sample connected;
    Sample start;  ///< The measured time begins.
    Sample end;
};

/// Many simulated devices that send to one broker, and somebody who hears them all. One thread.
class Load : public FleetListener {
 public:
    /// @throws std::runtime_error the descriptors are too few for the connections
    explicit Load(const LoadOptions& given);

    /// Connects, sends all messages when they are due, and waits until they have arrived.
    ///
    /// @throws std::runtime_error a connection failed or was lost
    LoadFigures run();

 private:
    struct Device {
        std::unique_ptr<Link> link;
        std::string topic;
        std::uint64_t sequence{0};
        /// What the broker has not acknowledged: message and when it was due.
        std::deque<std::pair<int, Clock::time_point>> pending;
    };

    void accepted(Link& link) override;
    void acknowledged(Link& link, int message) override;
    void heard(std::string_view payload) override;

    void connect();
    void addLink(Link& link);
    void send();
    void publish(Device& device, Clock::time_point due);
    void drain();
    bool isMeasured(Clock::time_point due) const;
    /// Serves the connections until a time, and at least once.
    void serve(Clock::time_point until);
    void serve(Link& link, std::uint32_t events);
    void watchForWriting(Link& link);
    Sample now() const;

    LoadOptions options;
    FileDescriptor poll;
    std::unique_ptr<Link> hearer;
    std::vector<Device> devices;
    std::unordered_map<Link*, Device*> owners;
    std::uint64_t open{0};           ///< Connections that the broker has accepted.
    Clock::time_point lastAccepted;  ///< When it accepted the newest of them.
    Clock::time_point firstMeasured{Clock::time_point::max()};
    LoadFigures figures;
};
