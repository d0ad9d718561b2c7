// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Backoff.h"
#include "Batch.h"
#include "BrokerLink.h"
#include "Discovery.h"
#include "Mailbox.h"
#include "OutageStore.h"
#include "RateLimit.h"
#include "tesk/ObjectBase.h"

/// Keeps the connection to the broker and sends what is in the mailbox, within the limits of a good
/// guest. Runs in a thread of its own, so that a broker that is slow or gone never holds up the
/// bus.
class Uplink : private tesk::ObjectBase, private LinkListener {
 public:
    using Clock = std::chrono::steady_clock;

    /// @param stateDirectory for what is not acknowledged; empty: memory only
    Uplink(const Settings& configuration, Credentials secrets, Mailbox& box,
           const std::string& stateDirectory, std::string sessionWord);

    /// Works until stop(). Then says "offline", keeps what was not acknowledged, and returns.
    void run();

    /// Ends run(), from any thread.
    void stop();

    /// How often run() has looked around. It looks at least every 10 seconds, unless the resolver
    /// of host names takes longer.
    unsigned heartbeat() const { return beats; }

 private:
    void onAccepted() override;
    void onMessage(const std::string& topic, std::string_view payload, bool retained) override;
    void onAcknowledged(int id) override;

    void look();
    void connect();
    void welcome(Clock::time_point now);
    void lose(const LinkFailure& failure, Clock::time_point now);
    void keepUnacknowledged();
    void collect(Clock::time_point now);
    void sendDue(Clock::time_point now);
    bool sendOne(Clock::time_point now);
    bool sendInfo();
    bool sendDiscovery(Clock::time_point now);
    bool sendForgotten();
    bool sendReply();
    bool sendBatch(Clock::time_point now);
    bool sendValue();
    bool sendReplay(Clock::time_point now);
    void takeRequest(Request request);
    void wait(Clock::time_point now);
    Clock::duration pauseAt(Clock::time_point now) const;
    bool mayWaitForAnswers() const { return unacknowledged.size() < MOST_UNACKNOWLEDGED; }
    bool replayWaits() const;
    bool isUp() const { return link && link->isAccepted(); }
    Batch makeBatch();
    void sayGoodbye();

    static constexpr std::size_t MOST_UNACKNOWLEDGED = 20;

    /// A message that the broker has not acknowledged, and the batch in it, if any.
    struct Sent {
        std::unique_ptr<Batch> batch;
        bool replayed{false};
    };

    const Settings& settings;
    Credentials credentials;
    Mailbox& mailbox;
    Topics topics;
    std::string session;
    std::string boot;
    OutageStore store;
    Backoff backoff;
    std::unique_ptr<BrokerLink> link;
    std::map<int, Sent> unacknowledged;
    DeviceInfo info;
    bool infoKnown{false};  ///< Whether the thread of the bus has told anything yet.
    bool infoDue{false};
    std::optional<Discovery> discovery;  ///< If Home Assistant is configured.
    std::vector<std::string> forgotten;  ///< Registers whose values the broker is to forget.
    int helloId{0};                      ///< Of the first message of this connection.
    bool welcomeDue{false};
    std::uint64_t toldDropped{0};
    std::uint64_t sequence{0};
    Clock::time_point started{Clock::now()};
    Clock::time_point acceptedAt{};
    Clock::time_point retryAt{Clock::now()};
    RateLimit messages{std::chrono::milliseconds(50)};
    RateLimit batches{std::chrono::milliseconds(100)};
    RateLimit replays{std::chrono::milliseconds(200)};
    RateLimit snapshots{std::chrono::seconds(5)};
    RateLimit flushes{std::chrono::seconds(30)};
    RateLimit complaints{std::chrono::minutes(1)};
    bool wasAccepted{false};
    std::atomic<bool> stopping{false};
    FileDescriptor stopEvent;
    std::atomic<unsigned> beats{0};
};
