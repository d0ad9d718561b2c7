// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "HomeAssistant.h"

/// When Home Assistant is told what about the device, and what it is to forget. For one thread.
///
/// The broker keeps the message of discovery. So after a change of labels or of the map, the
/// message of an earlier start says which entities there were.
class Discovery {
 public:
    using Clock = std::chrono::steady_clock;
    /// @return a number from 0 to 1, evenly spread
    using Random = std::function<double()>;

    /// Home Assistant has started: a thousand devices tell of themselves spread over this time.
    static constexpr std::chrono::seconds SPREAD{10};

    /// @param configuration with a section for Home Assistant; outlives this object
    Discovery(const Settings& configuration, const Topics& deviceTopics, Random source);

    /// Where the message of discovery goes.
    const std::string& topic() const { return messageTopic; }
    /// Where Home Assistant says that it is online.
    const std::string& statusTopic() const { return birthTopic; }

    /// A connection is new: what the broker has kept is not known yet.
    void begin();
    /// All that the broker has kept has come by now.
    void endOfKept() { keptKnown = true; }

    /// @return whether the topic is one of Home Assistant's
    bool hear(const std::string& heardTopic, std::string_view payload, bool retained,
              Clock::time_point now);

    /// The entities of the registers that there are now.
    void setEntities(Entities newest);

    /// When a message is due; the far future if none is.
    Clock::time_point dueAt() const;

    /// The message that is due.
    std::string take();

    /// How many entities had no room in the last message.
    std::size_t leftOut() const { return left; }

    /// The names of registers whose values the broker is to forget; each is given once.
    std::vector<std::string> takeForgotten();

 private:
    const Settings& settings;
    Topics topics;
    Random random;
    std::string messageTopic;
    std::string birthTopic;
    bool known{false};  ///< Whether the registers that there are were told.
    bool keptKnown{false};
    bool due{false};
    Clock::time_point notBefore{};
    Entities entities;
    OldEntities told;  ///< What the broker keeps, or what was told last.
    std::size_t left{0};
    std::vector<std::string> forgotten;
};
