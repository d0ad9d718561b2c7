// SPDX-License-Identifier: MIT
#include "Discovery.h"

#include <algorithm>
#include <utility>

namespace {

/// Home Assistant takes fewer characters there than ids may have.
std::string objectIdOf(std::string device) {
    std::replace(device.begin(), device.end(), '.', '_');
    return device;
}

bool hasRegister(const Entities& entities, const std::string& name) {
    return std::any_of(entities.begin(), entities.end(),
                       [&name](const auto& entity) { return nameOfEntity(entity.first) == name; });
}

}  // namespace

Discovery::Discovery(const Settings& configuration, const Topics& deviceTopics, Random source)
    : settings(configuration),
      topics(deviceTopics),
      random(std::move(source)),
      messageTopic(configuration.homeAssistant->prefix + "/device/" +
                   objectIdOf(configuration.device) + "/config"),
      birthTopic(configuration.homeAssistant->prefix + "/status") {}

void Discovery::begin() {
    keptKnown = false;
    due = known;
    notBefore = {};
}

bool Discovery::hear(const std::string& heardTopic, std::string_view payload, bool retained,
                     Clock::time_point now) {
    if (heardTopic == messageTopic) {
        if (retained) {
            told = entitiesIn(payload);
        }
        return true;
    }
    if (heardTopic != birthTopic) {
        return false;
    }
    if (payload == "online" && !retained && !entities.empty()) {
        const std::chrono::duration<double> pause = SPREAD * random();
        notBefore = now + std::chrono::duration_cast<Clock::duration>(pause);
        due = true;
    }
    return true;
}

void Discovery::setEntities(Entities newest) {
    entities = std::move(newest);
    known = true;
    due = true;
}

Discovery::Clock::time_point Discovery::dueAt() const {
    const bool nothingToTell = entities.empty() && told.empty();
    return due && keptKnown && !nothingToTell ? notBefore : Clock::time_point::max();
}

std::string Discovery::take() {
    due = false;
    OldEntities gone;
    for (const auto& [key, platform] : told) {
        if (entities.count(key) == 0) {
            gone[key] = platform;
            if (!hasRegister(entities, nameOfEntity(key))) {
                forgotten.push_back(nameOfEntity(key));
            }
        }
    }
    told.clear();
    for (const auto& [key, entity] : entities) {
        told[key] = entity.platform;
    }
    return discoveryOf(settings, topics, entities, gone, left);
}

std::vector<std::string> Discovery::takeForgotten() {
    return std::exchange(forgotten, {});
}
