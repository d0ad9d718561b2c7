// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/AddressRanges.h"

/// What somebody asks for over the network.
struct Request {
    enum class Action { GET, SET };

    Action action{Action::GET};
    std::string token;               ///< The asker's, for the answer; may be empty.
    std::string target;              ///< Of SET: what follows `set/` in the topic.
    std::string value;               ///< Of SET: the value in words.
    AddressRanges ranges;            ///< Of GET.
    std::vector<std::string> names;  ///< Of GET.
    bool everything{false};          ///< Of GET: neither ranges nor names were given.
    std::string fault;               ///< Why it cannot be carried out; empty if it can.
};

/// Takes a message of the topic `get` or `set/...` apart. Never throws: a message that cannot be
/// understood gives a request with a fault, and with its token if that can be read.
///
/// The payload of `get` is empty or an object: {"token": "a", "registers": [1, "5-9", "pump"]}.
/// That of `set` is a value or an object: 1, closed, {"token": "a", "value": 21.5}.
///
/// @param target what follows `set/`; nothing for `get`
/// @param payload of any length and content
Request parseRequest(const std::optional<std::string>& target, std::string_view payload);
