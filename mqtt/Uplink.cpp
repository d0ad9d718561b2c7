// SPDX-License-Identifier: MIT
#include "Uplink.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>
#include <vector>

#include "Memory.h"
#include "support/Log.h"

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr Pattern<std::string, int> CONNECTED("connected to the broker %s:%d");
constexpr Pattern<std::string, int, std::string, std::string> LOST(
    "the connection to the broker %s:%d is lost: %s; next attempt in %s");
constexpr Pattern<std::string, int, std::string, std::string> NOT_CONNECTED(
    "cannot connect to the broker %s:%d: %s; next attempt in %s");
constexpr Pattern<std::string> RETAINED("a retained message of '%s' is ignored");
constexpr Pattern<> TOO_MANY_REQUESTS("more requests come than can be answered; some are dropped");
constexpr Pattern<std::string> OUTAGE_TOO_LONG(
    "the broker was away for too long: %s messages are lost until now");
constexpr Pattern<std::size_t> LEFT_OUT(
    "Home Assistant is told of fewer registers: the message has no room for %z");

/// A connection that lasts this long was a good one: the next pause is short again. Two clients of
/// one id throw each other out sooner.
constexpr seconds LASTING(30);

/// How long after the start changes wait for the first connection before they count as of an
/// outage.
constexpr seconds START_GRACE(10);

/// How long the end waits for the broker.
constexpr seconds GOODBYE_LIMIT(2);

constexpr seconds LONGEST_LOOK(10);
/// Keep-alive needs somebody who looks at the clock.
constexpr seconds LONGEST_LOOK_CONNECTED(1);

/// What a batch has besides its changes.
constexpr std::size_t BATCH_FRAME = 1024;

double randomPart() {
    static std::mt19937 generator{std::random_device{}()};
    return std::uniform_real_distribution<double>(0, 1)(generator);
}

/// A name begins with a letter.
bool isAddress(const std::string& target) {
    return target.front() >= '0' && target.front() <= '9';
}

std::string secondsText(milliseconds time) {
    const auto tenths = (time.count() + 99) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

}  // namespace

Uplink::Uplink(const Settings& configuration, Credentials secrets, Mailbox& box,
               const std::string& stateDirectory, std::string sessionWord)
    : ObjectBase(SharedLogger(), "iomap-mqtt"),
      settings(configuration),
      credentials(std::move(secrets)),
      mailbox(box),
      topics(configuration.prefix, configuration.device),
      session(std::move(sessionWord)),
      boot(bootId()),
      store(stateDirectory, settings.outage.memory, settings.outage.files),
      backoff(randomPart),
      stopEvent(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (settings.homeAssistant) {
        discovery.emplace(settings, topics, randomPart);
    }
}

void Uplink::stop() {
    stopping = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopEvent.get(), &one, sizeof(one));
}

void Uplink::run() {
    while (!stopping) {
        look();
    }
    sayGoodbye();
    link.reset();
    keepUnacknowledged();
    if (mailbox.hasChanges()) {
        store.push(makeBatch());
    }
    store.flush();
}

/// One round: what has happened, what is due, and a wait for the next event.
void Uplink::look() {
    ++beats;
    const auto now = Clock::now();
    try {
        collect(now);
        if (!link && now >= retryAt) {
            connect();
        }
        if (welcomeDue) {
            welcome(now);
        }
        sendDue(now);
        wait(now);
    } catch (const LinkFailure& e) {
        lose(e, Clock::now());
    }
}

void Uplink::connect() {
    // The resolver may take longer than the end of the program waits.
    store.flush();
    wasAccepted = false;
    LinkListener& listener = *this;
    link = std::make_unique<BrokerLink>(settings.broker, credentials, topics, listener);
}

void Uplink::onAccepted() {
    // libmosquitto is still busy with the broker's answer.
    welcomeDue = true;
}

void Uplink::welcome(Clock::time_point now) {
    welcomeDue = false;
    wasAccepted = true;
    acceptedAt = now;
    log(logger, Poco::Message::PRIO_NOTICE, CONNECTED, settings.broker.host, settings.broker.port);
    link->subscribe(topics.get);
    link->subscribe(topics.set + "#");
    if (discovery) {
        discovery->begin();
        link->subscribe(discovery->topic());
        link->subscribe(discovery->statusTopic());
    }
    helloId = link->publish(topics.status, "online", true, true);
    unacknowledged[helloId] = {};
    infoDue = infoKnown;
    mailbox.askForValues();
    giveBackMemory();
}

void Uplink::lose(const LinkFailure& failure, Clock::time_point now) {
    link.reset();
    welcomeDue = false;
    if (wasAccepted && now - acceptedAt >= LASTING) {
        backoff.reset();
    }
    keepUnacknowledged();
    mailbox.dropReplies();
    const milliseconds pause = failure.isRefusal() ? backoff.nextAfterRefusal() : backoff.next();
    retryAt = now + pause;
    log(logger, Poco::Message::PRIO_WARNING, wasAccepted ? LOST : NOT_CONNECTED,
        settings.broker.host, settings.broker.port, failure.what(), secondsText(pause));
}

void Uplink::keepUnacknowledged() {
    std::vector<Batch> kept;
    for (auto& [id, sent] : unacknowledged) {
        // What was replayed is still in the store.
        if (sent.batch && !sent.replayed) {
            kept.push_back(std::move(*sent.batch));
        }
    }
    unacknowledged.clear();
    // Ids start anew after 65,535.
    std::sort(kept.begin(), kept.end(),
              [](const Batch& a, const Batch& b) { return a.sequence < b.sequence; });
    for (const Batch& batch : kept) {
        store.push(batch);
    }
}

void Uplink::onAcknowledged(int id) {
    if (discovery && id == helloId) {
        // The broker has sent what it keeps before it has taken this message.
        discovery->endOfKept();
    }
    const auto sent = unacknowledged.find(id);
    if (sent == unacknowledged.end()) {
        return;
    }
    if (sent->second.replayed) {
        store.remove(*sent->second.batch);
    }
    unacknowledged.erase(sent);
}

void Uplink::onMessage(const std::string& topic, std::string_view payload, bool retained) {
    if (discovery && discovery->hear(topic, payload, retained, Clock::now())) {
        return;
    }
    if (retained) {
        log(logger, Poco::Message::PRIO_WARNING, RETAINED, topic);
        return;
    }
    if (topic == topics.get) {
        takeRequest(parseRequest(std::nullopt, payload));
    } else if (topic.rfind(topics.set, 0) == 0) {
        takeRequest(parseRequest(topic.substr(topics.set.size()), payload));
    }
}

void Uplink::takeRequest(Request request) {
    const auto now = Clock::now();
    if (request.fault.empty() && request.action == Request::Action::GET) {
        if (snapshots.allows(now)) {
            snapshots.note(now);
        } else {
            request.fault = "values are sent every 5 s at most";
        }
    }
    if (!mailbox.addRequest(std::move(request)) && complaints.allows(now)) {
        complaints.note(now);
        log(logger, Poco::Message::PRIO_WARNING, TOO_MANY_REQUESTS);
    }
}

/// Without a broker, changes go to the store.
void Uplink::collect(Clock::time_point now) {
    if (auto newest = mailbox.takeInfo()) {
        info = std::move(*newest);
        infoKnown = true;
        infoDue = true;
        if (discovery && info.serviceRuns) {
            discovery->setEntities(std::move(info.entities));
        }
    }
    if (!isUp() && (wasAccepted || sequence > 0 || now - started >= START_GRACE) &&
        batches.allows(now) && mailbox.hasChanges()) {
        batches.note(now);
        store.push(makeBatch());
    }
    if (flushes.allows(now)) {
        flushes.note(now);
        store.flush();
    }
    if (store.dropped() != toldDropped && complaints.allows(now)) {
        complaints.note(now);
        toldDropped = store.dropped();
        infoDue = infoKnown;
        log(logger, Poco::Message::PRIO_WARNING, OUTAGE_TOO_LONG, std::to_string(toldDropped));
    }
}

Batch Uplink::makeBatch() {
    Batch batch;
    batch.sequence = ++sequence;
    batch.session = session;
    batch.boot = boot;
    batch.moment = Moment::now();
    batch.changes = mailbox.takeChanges(batch.moment.sinceBoot, LONGEST_MESSAGE - BATCH_FRAME);
    return batch;
}

void Uplink::sendDue(Clock::time_point now) {
    if (isUp() && messages.allows(now) && sendOne(now)) {
        messages.note(now);
    }
}

/// What is most urgent comes first.
bool Uplink::sendOne(Clock::time_point now) {
    return (mayWaitForAnswers() && (sendInfo() || sendDiscovery(now) || sendForgotten() ||
                                    sendReply() || sendBatch(now))) ||
           sendValue() || (mayWaitForAnswers() && sendReplay(now));
}

bool Uplink::sendInfo() {
    if (!infoDue) {
        return false;
    }
    infoDue = false;
    unacknowledged[link->publish(topics.info, infoOf(info, store.dropped()), true, true)] = {};
    return true;
}

bool Uplink::sendDiscovery(Clock::time_point now) {
    if (!discovery || now < discovery->dueAt()) {
        return false;
    }
    // What the broker keeps was needed once; the own message need not come back.
    link->unsubscribe(discovery->topic());
    unacknowledged[link->publish(discovery->topic(), discovery->take(), true, true)] = {};
    if (discovery->leftOut() > 0) {
        log(logger, Poco::Message::PRIO_WARNING, LEFT_OUT, discovery->leftOut());
    }
    const std::vector<std::string> names = discovery->takeForgotten();
    forgotten.insert(forgotten.end(), names.begin(), names.end());
    return true;
}

/// An empty message takes away what the broker has kept.
bool Uplink::sendForgotten() {
    if (forgotten.empty()) {
        return false;
    }
    unacknowledged[link->publish(topics.values + forgotten.back(), "", true, true)] = {};
    forgotten.pop_back();
    return true;
}

bool Uplink::sendReply() {
    const std::optional<Reply> reply = mailbox.takeReply();
    if (!reply) {
        return false;
    }
    const std::string& topic = reply->isSnapshot ? topics.snapshot : topics.ack;
    unacknowledged[link->publish(topic, reply->payload, true, false)] = {};
    return true;
}

bool Uplink::sendBatch(Clock::time_point now) {
    if (!batches.allows(now) || !mailbox.hasChanges()) {
        return false;
    }
    batches.note(now);
    auto batch = std::make_unique<Batch>(makeBatch());
    int id = 0;
    try {
        id = link->publish(topics.data, batch->payload(), true, false);
    } catch (const LinkFailure&) {
        store.push(*batch);
        throw;
    }
    unacknowledged[id] = {std::move(batch), false};
    return true;
}

bool Uplink::sendValue() {
    const auto value = mailbox.takeValue();
    if (value) {
        // Home Assistant may start later than the device. It knows registers with a name only.
        const bool retained = settings.retainValues || (discovery && !isAddress(value->first));
        link->publish(topics.values + value->first, value->second, false, retained);
    }
    return value.has_value();
}

/// Whether the last batch of an earlier time is not acknowledged yet.
bool Uplink::replayWaits() const {
    return std::any_of(unacknowledged.begin(), unacknowledged.end(),
                       [](const auto& sent) { return sent.second.replayed; });
}

/// One at a time, and slower than what is new.
bool Uplink::sendReplay(Clock::time_point now) {
    if (replayWaits() || !replays.allows(now)) {
        return false;
    }
    std::optional<Batch> batch = store.oldest();
    if (!batch) {
        return false;
    }
    replays.note(now);
    batch->correct(Moment::now(), boot);
    const int id = link->publish(topics.replay, batch->payload(), true, false);
    unacknowledged[id] = {std::make_unique<Batch>(std::move(*batch)), true};
    return true;
}

/// How long nothing is due.
Uplink::Clock::duration Uplink::pauseAt(Clock::time_point now) const {
    Clock::time_point due = now + LONGEST_LOOK;
    if (!link) {
        due = std::min(due, retryAt);
    } else {
        due = std::min<Clock::time_point>(due, now + LONGEST_LOOK_CONNECTED);
    }
    if (link && link->events(now) == 0) {
        due = std::min<Clock::time_point>(due, now + milliseconds(10));
    }
    if (mailbox.hasChanges() && (!isUp() || mayWaitForAnswers())) {
        const auto grace = isUp() || wasAccepted || sequence > 0 ? now : started + START_GRACE;
        due = std::min(due, std::max({batches.nextTime(), grace,
                                      isUp() ? messages.nextTime() : Clock::time_point{}}));
    }
    if (isUp() && discovery && mayWaitForAnswers()) {
        due = std::min(due, std::max(messages.nextTime(), discovery->dueAt()));
    }
    if (isUp() && (mailbox.hasMessages() || infoDue || !forgotten.empty()) && mayWaitForAnswers()) {
        due = std::min(due, messages.nextTime());
    }
    if (isUp() && !store.empty() && mayWaitForAnswers() && !replayWaits()) {
        due = std::min(due, std::max(messages.nextTime(), replays.nextTime()));
    }
    return std::max(due - now, Clock::duration::zero());
}

void Uplink::wait(Clock::time_point now) {
    const int fd = link ? link->socket() : -1;
    const short events = link ? link->events(now) : short{0};
    std::array<pollfd, 3> set{{{stopEvent.get(), POLLIN, 0},
                               {mailbox.descriptor(), POLLIN, 0},
                               {events != 0 ? fd : -1, events, 0}}};
    const auto pause = std::chrono::ceil<milliseconds>(pauseAt(now));
    ::poll(set.data(), set.size(), static_cast<int>(pause.count()));
    mailbox.clearEvent();
    if (link) {
        link->serve(set[2].revents, Clock::now());
    }
}

void Uplink::sayGoodbye() {
    if (!isUp()) {
        return;
    }
    try {
        const int id = link->publish(topics.status, "offline", true, true);
        unacknowledged[id] = {};
        const auto end = Clock::now() + GOODBYE_LIMIT;
        while (unacknowledged.count(id) > 0 && Clock::now() < end) {
            pollfd entry{link->socket(), link->events(Clock::now()), 0};
            ::poll(&entry, 1, 10);
            link->serve(entry.revents, Clock::now());
        }
        link->disconnect();
        link->serve(0, Clock::now());
    } catch (const LinkFailure&) {  // NOLINT(bugprone-empty-catch): the broker says it then
    }
}
