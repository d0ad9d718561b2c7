// SPDX-License-Identifier: MIT
#include "Gateway.h"

#include <glib.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <thread>
#include <utility>

#include "Memory.h"
#include "client/Failure.h"
#include "support/Log.h"
#include "tesk/Exceptions.h"

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

using Quality = CachedValue::Quality;

constexpr Pattern<std::string> TRYING_AGAIN("%s; trying again");
constexpr Pattern<std::string> SERVICE_LOST("%s");
constexpr Pattern<std::size_t> SERVICE_FOUND("the service has %z registers");
constexpr Pattern<> SERVICE_ANSWERS("the service answers again");
constexpr Pattern<std::string, std::string, std::string> SET_REFUSED(
    "set '%s' to '%s' refused: %s");
constexpr Pattern<std::string, int, std::string, std::string> WRITTEN("write %s = %d%s%s");

/// How long to wait before the bus, or a service that does not answer, is tried again.
constexpr seconds RETRY_PAUSE(2);

/// How often run() looks at the clock.
constexpr guint TICK_MS = 100;

/// A raw value as the network has it: -2147483648 to 4294967295, in decimal.
int parseRaw(const std::string& text) {
    std::int64_t number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || end != last || number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::uint32_t>::max()) {
        throw Failure("'" + text + "' is no value from -2147483648 to 4294967295");
    }
    return static_cast<int>(number);
}

std::int64_t sinceBootOf(const CachedValue& state) {
    const auto age =
        std::chrono::duration_cast<milliseconds>(CachedValue::Clock::now() - state.readAt);
    return Moment::now().sinceBoot - age.count();
}

std::string nameOf(const CachedRegister& entry) {
    return "register " + std::to_string(entry.info.address) + " (" + getTypeName(entry.info.type) +
           " " + std::to_string(entry.info.index) + ")";
}

}  // namespace

Gateway::Gateway(const Settings& configuration, Labels knownLabels, Mailbox& box,
                 std::string sessionWord)
    : ObjectBase(SharedLogger(), "iomap-mqtt"),
      settings(configuration),
      labels(std::move(knownLabels)),
      mailbox(box),
      topics(configuration.prefix, configuration.device),
      session(std::move(sessionWord)),
      boot(bootId()) {}

void Gateway::run() {
    g_timeout_add(
        TICK_MS, [](gpointer /*userData*/) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    for (;;) {
        try {
            serveBus();
        } catch (const std::exception& e) {
            const std::string reason = reasonOf(e);
            log(logger, Poco::Message::PRIO_WARNING, TRYING_AGAIN, reason);
            refuseAll(reason);
        }
        ++beats;
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
}

/// Until the bus is lost.
void Gateway::serveBus() {
    IoMapping io;
    ServiceWatch service;
    RegisterCache cache(io, settings.plan, [this](const CachedRegister& entry) { tell(entry); });
    serviceThere = false;
    enumerated = false;
    loaded = false;
    for (;;) {
        ++beats;
        // What is due does not wait for the next tick.
        io.run(!(loaded && cache.nextPoll() <= Clock::now()));
        for (const ServiceWatch::Event event : service.takeEvents()) {
            heed(event, cache);
        }
        tryToLoad(cache);
        if (mailbox.takeValuesWanted() || (loaded && Clock::now() >= tellAllAt)) {
            tellAllValues(cache);
        }
        carryOut(io, cache);
        if (loaded) {
            try {
                cache.poll(Clock::now());
            } catch (const tesk::InputOutputException& e) {
                loseService(cache, reasonOf(e));
            }
        }
    }
}

void Gateway::heed(ServiceWatch::Event event, RegisterCache& cache) {
    switch (event) {
        case ServiceWatch::Event::CAME:
            serviceThere = true;
            enumerated = false;
            loadAt = Clock::now();
            break;
        case ServiceWatch::Event::WENT:
            serviceThere = false;
            loseService(cache, "the service has gone");
            break;
        case ServiceWatch::Event::BUS_LOST:
            loseService(cache, "the D-Bus system bus has gone");
            throw Failure("the D-Bus system bus has gone");
    }
}

void Gateway::loseService(RegisterCache& cache, const std::string& reason) {
    loaded = false;
    loadAt = Clock::now() + RETRY_PAUSE;
    cache.invalidate();
    log(logger, Poco::Message::PRIO_WARNING, SERVICE_LOST, reason);
    tellInfo(cache);
}

void Gateway::tryToLoad(RegisterCache& cache) {
    if (loaded || !serviceThere || Clock::now() < loadAt) {
        return;
    }
    try {
        const bool isNew = !enumerated;
        if (isNew) {
            cache.enumerate();
            enumerated = true;
            log(logger, Poco::Message::PRIO_NOTICE, SERVICE_FOUND, cache.registers().size());
        }
        cache.readAll();
        loaded = true;
        if (!isNew) {
            log(logger, Poco::Message::PRIO_NOTICE, SERVICE_ANSWERS);
        }
        tellInfo(cache);
        giveBackMemory();
    } catch (const std::exception& e) {
        loseService(cache, reasonOf(e));
    }
}

void Gateway::tell(const CachedRegister& entry) {
    const CachedValue& state = entry.state;
    Change change{entry.info.address, state.value, "", sinceBootOf(state)};
    if (state.quality != Quality::GOOD) {
        change.value.reset();
        change.reason =
            state.quality == Quality::STALE ? "the service does not answer" : state.reason;
        change.sinceBoot = Moment::now().sinceBoot;
    }
    mailbox.addChange(std::move(change));
    tellValue(entry, false);
}

void Gateway::tellValue(const CachedRegister& entry, bool always) {
    const int address = entry.info.address;
    const Label* const label = labels.find(address);
    if (label == nullptr) {
        return;
    }
    const double value = label->scaled(entry.state.value);
    const auto before = shown.find(address);
    const bool good = faultOf(entry).empty();
    if (!always && good && before != shown.end() &&
        std::abs(value - before->second) <= label->deadband) {
        return;
    }
    if (good) {
        shown[address] = value;
    } else {
        shown.erase(address);
    }
    mailbox.setValue(topicOf(address, *label), valueOf(entry, *label, Moment::now()));
}

std::string Gateway::topicOf(int address, const Label& label) const {
    return label.name.empty() ? std::to_string(address) : label.name;
}

/// Home Assistant takes a value that is not told again for unknown.
void Gateway::tellAllValues(const RegisterCache& cache) {
    for (const auto& [address, entry] : cache.registers()) {
        tellValue(entry, true);
    }
    if (settings.homeAssistant) {
        tellAllAt = Clock::now() + seconds(settings.homeAssistant->expireAfter) / 3;
    }
}

void Gateway::tellInfo(const RegisterCache& cache) {
    DeviceInfo info{settings.device,
                    session,
                    boot,
                    loaded,
                    cache.registers().size(),
                    hashOf(cache.registers()),
                    labelsText(labels),
                    settings.writable,
                    {}};
    if (settings.homeAssistant) {
        info.entities = entitiesOf(cache.registers(), labels, settings, topics);
    }
    mailbox.setInfo(std::move(info));
}

void Gateway::carryOut(IoMapping& io, RegisterCache& cache) {
    while (const auto request = mailbox.takeRequest()) {
        ++beats;
        answer(*request, io, cache);
    }
}

void Gateway::answer(const Request& request, IoMapping& io, RegisterCache& cache) {
    if (!request.fault.empty()) {
        refuse(request, request.fault);
        return;
    }
    const bool isSet = request.action == Request::Action::SET;
    const std::string error = isSet ? answerSet(request, io, cache) : answerGet(request, cache);
    if (isSet || !error.empty()) {
        mailbox.addReply({false, ackOf(request, error)});
    }
}

/// Without the bus, nobody shall wait for an answer.
void Gateway::refuseAll(const std::string& reason) {
    while (const auto request = mailbox.takeRequest()) {
        refuse(*request, request->fault.empty() ? reason : request->fault);
    }
}

void Gateway::refuse(const Request& request, const std::string& reason) {
    if (request.action == Request::Action::SET) {
        log(logger, Poco::Message::PRIO_NOTICE, SET_REFUSED, request.target, request.value, reason);
    }
    mailbox.addReply({false, ackOf(request, reason)});
}

/// @return why there is no answer; empty if there is
std::string Gateway::answerGet(const Request& request, const RegisterCache& cache) {
    std::vector<const CachedRegister*> entries;
    AddressRanges ranges = request.ranges;
    try {
        for (const std::string& name : request.names) {
            const int address = addressOf(name);
            ranges.add({address, address});
        }
    } catch (const Failure& e) {
        return e.what();
    }
    for (const auto& [address, entry] : cache.registers()) {
        if (request.everything || ranges.contains(address)) {
            entries.push_back(&entry);
        }
    }
    for (std::string& payload : snapshotOf(request.token, entries, Moment::now())) {
        mailbox.addReply({true, std::move(payload)});
    }
    return "";
}

int Gateway::addressOf(const std::string& target) const {
    if (const auto named = labels.addressOf(target)) {
        return *named;
    }
    const auto range = AddressRanges::parse(target);
    if (!range || range->first != range->last) {
        throw Failure("there is no register '" + target + "'");
    }
    return range->first;
}

/// @return why nothing was written; empty if it was
std::string Gateway::answerSet(const Request& request, IoMapping& io, RegisterCache& cache) {
    std::string error;
    try {
        const int address = addressOf(request.target);
        if (!settings.writable.contains(address)) {
            throw Failure("register " + std::to_string(address) +
                          " may not be written over the network");
        }
        const auto entry = cache.registers().find(address);
        if (!loaded || entry == cache.registers().end()) {
            throw Failure(loaded ? "there is no register " + std::to_string(address)
                                 : "the service does not answer");
        }
        return write(io, entry->second, rawValueOf(request, entry->second), request.token);
    } catch (const Failure& e) {
        error = e.what();
    }
    log(logger, Poco::Message::PRIO_NOTICE, SET_REFUSED, request.target, request.value, error);
    return error;
}

/// A name takes what its values are shown as, an address takes a raw value.
int Gateway::rawValueOf(const Request& request, const CachedRegister& entry) const {
    if (!labels.addressOf(request.target)) {
        return parseRaw(request.value);
    }
    return labels.find(entry.info.address)->rawOf(request.value, entry.info.maximum);
}

std::string Gateway::write(IoMapping& io, const CachedRegister& entry, int value,
                           const std::string& token) {
    std::string error;
    try {
        io.writeValue(entry.info.address, value);
    } catch (const tesk::InputOutputException& e) {
        error = reasonOf(e);
    }
    log(logger, Poco::Message::PRIO_NOTICE, WRITTEN, nameOf(entry), value,
        token.empty() ? "" : ", token '" + token + "'", error.empty() ? "" : ", failed: " + error);
    return error;
}
