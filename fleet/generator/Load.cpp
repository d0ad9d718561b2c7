// SPDX-License-Identifier: MIT
#include "Load.h"

#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Message.h"

namespace {

/// Each connection has a socket and a pair of sockets of libmosquitto.
constexpr rlim_t DESCRIPTORS_EACH = 3;
constexpr rlim_t DESCRIPTORS_BESIDES = 64;

constexpr std::string_view HEARER("fleet-hearer");

void raiseDescriptorLimit(std::size_t connections) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t wanted = static_cast<rlim_t>(connections) * DESCRIPTORS_EACH + DESCRIPTORS_BESIDES;
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(wanted, limit.rlim_max));
    ::setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < wanted) {
        throw std::runtime_error("so many connections need " + std::to_string(wanted) +
                                 " descriptors, and the hard limit is " +
                                 std::to_string(limit.rlim_max));
    }
}

}  // namespace

Load::Load(const LoadOptions& given)
    : options(given), poll(::epoll_create1(EPOLL_CLOEXEC)), devices(given.connections) {
    raiseDescriptorLimit(options.connections);
}

LoadFigures Load::run() {
    figures.before = now();
    connect();
    figures.connected = now();
    send();
    figures.end = now();
    drain();
    return std::move(figures);
}

void Load::connect() {
    const auto start = Clock::now();
    hearer = std::make_unique<Link>(std::string(HEARER), "127.0.0.1", options.port, *this);
    addLink(*hearer);
    const Schedule schedule = Schedule::of(start, options.connectRate, std::chrono::seconds(1));
    for (std::size_t i = 0; i < devices.size(); ++i) {
        serve(schedule.at(i));
        Device& device = devices[i];
        const std::string name = "load-" + std::to_string(i + 1);
        device.topic = "iomap/" + name + "/data";
        device.link = std::make_unique<Link>(
            name, "127.0.1." + std::to_string(1 + i % options.sources), options.port, *this);
        owners[device.link.get()] = &device;
        addLink(*device.link);
    }
    const auto deadline = Clock::now() + options.patience;
    while (open < devices.size() + 1) {
        if (Clock::now() > deadline) {
            throw std::runtime_error("the broker accepted only " + std::to_string(open) +
                                     " connections");
        }
        serve(Clock::now() + std::chrono::milliseconds(100));
    }
    figures.connecting = lastAccepted - start;
}

void Load::addLink(Link& link) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &link;
    if (::epoll_ctl(poll.get(), EPOLL_CTL_ADD, link.socket(), &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    watchForWriting(link);
}

void Load::send() {
    const Schedule schedule = Schedule::of(Clock::now(), devices.size(), options.period);
    const std::uint64_t first = schedule.countIn(options.warmUp);
    const std::uint64_t count = first + schedule.countIn(options.measured);
    firstMeasured = schedule.at(first);
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto due = schedule.at(i);
        serve(due);
        if (i == first) {
            figures.start = now();
        }
        publish(devices[static_cast<std::size_t>(i % devices.size())], due);
    }
    // What is due before the end is a part of the measured time.
    serve(schedule.at(count));
}

void Load::publish(Device& device, Clock::time_point due) {
    if (isMeasured(due)) {
        figures.lateness.add(Clock::now() - due);
    }
    ++figures.sent;
    const std::string message = messageOf(++device.sequence, due);
    device.pending.emplace_back(device.link->publish(device.topic, message), due);
    device.link->keepAlive();
    watchForWriting(*device.link);
    hearer->keepAlive();
}

void Load::drain() {
    const auto deadline = Clock::now() + options.patience;
    while ((figures.acknowledged < figures.sent || figures.delivered < figures.sent) &&
           Clock::now() < deadline) {
        serve(std::min(deadline, Clock::now() + std::chrono::seconds(1)));
    }
}

bool Load::isMeasured(Clock::time_point due) const {
    return due >= firstMeasured;
}

void Load::accepted(Link& link) {
    ++open;
    lastAccepted = Clock::now();
    if (&link == hearer.get()) {
        link.subscribe("iomap/+/data");
    }
}

void Load::acknowledged(Link& link, int message) {
    auto& pending = owners.at(&link)->pending;
    const auto found = std::find_if(pending.begin(), pending.end(), [message](const auto& entry) {
        return entry.first == message;
    });
    if (found == pending.end()) {
        return;
    }
    ++figures.acknowledged;
    if (isMeasured(found->second)) {
        figures.acknowledgment.add(Clock::now() - found->second);
    }
    pending.erase(found);
}

void Load::heard(std::string_view payload) {
    const auto due = dueOf(payload);
    if (!due) {
        return;
    }
    ++figures.delivered;
    if (isMeasured(*due)) {
        figures.delivery.add(Clock::now() - *due);
    }
}

void Load::serve(Clock::time_point until) {
    std::array<epoll_event, 256> events{};
    for (;;) {
        const auto left = std::max(until - Clock::now(), Clock::duration::zero());
        const auto whole = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout{static_cast<time_t>(whole.count()),
                               static_cast<long>((left - whole).count())};
        const int count = ::epoll_pwait2(poll.get(), events.data(), static_cast<int>(events.size()),
                                         &timeout, nullptr);
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "epoll_pwait2");
        }
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events.at(static_cast<std::size_t>(i));
            serve(*static_cast<Link*>(event.data.ptr), event.events);
        }
        if (Clock::now() >= until) {
            return;
        }
    }
}

void Load::serve(Link& link, std::uint32_t events) {
    if ((events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
        link.read();
    }
    if ((events & EPOLLOUT) != 0) {
        link.write();
    }
    watchForWriting(link);
}

void Load::watchForWriting(Link& link) {
    const bool wanted = link.wantsToWrite();
    if (wanted == link.watchedForWriting) {
        return;
    }
    epoll_event event{};
    event.events = wanted ? EPOLLIN | EPOLLOUT : EPOLLIN;
    event.data.ptr = &link;
    ::epoll_ctl(poll.get(), EPOLL_CTL_MOD, link.socket(), &event);
    link.watchedForWriting = wanted;
}

Sample Load::now() const {
    return {Clock::now(), Usage::of(::getpid()), Usage::of(options.broker)};
}
