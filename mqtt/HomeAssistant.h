// SPDX-License-Identifier: MIT
/// @file How Home Assistant sees the device: its messages of discovery, in one for the whole
/// device.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Settings.h"
#include "Topics.h"
#include "client/Labels.h"
#include "client/RegisterCache.h"

/// A register as Home Assistant shows it.
struct Entity {
    std::string platform;  ///< "switch", "binary_sensor", "select", "number" or "sensor".
    std::string text;      ///< All of it, as a JSON object.
};

/// By key: platform and name, as in "switch-pump". A register that becomes writable has another
/// key, as it becomes another entity.
using Entities = std::map<std::string, Entity>;

/// Entities that were told before: key and platform.
using OldEntities = std::map<std::string, std::string>;

/// The entities of all registers that have a name. Register type, states, unit, and whether the
/// register may be written make the platform.
Entities entitiesOf(const std::map<int, CachedRegister>& registers, const Labels& labels,
                    const Settings& settings, const Topics& topics);

/// The message of discovery.
///
/// @param gone entities that Home Assistant is to remove
/// @param leftOut is set to the number of entities for which the message has no room
std::string discoveryOf(const Settings& settings, const Topics& topics, const Entities& entities,
                        const OldEntities& gone, std::size_t& leftOut);

/// The entities in a message of discovery that the broker has kept, without those that it removes.
/// Never throws: what is no such message has none.
OldEntities entitiesIn(std::string_view payload);

/// The name of the register that an entity stands for.
std::string nameOfEntity(const std::string& key);
