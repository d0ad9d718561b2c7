// SPDX-License-Identifier: MIT
#include "Writes.h"

#include <Poco/JSON/Array.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "Output.h"
#include "client/Failure.h"
#include "client/Registers.h"
#include "tesk/Exceptions.h"

namespace {

using Assignments = std::vector<Assignment>;
using Infos = std::map<int, std::optional<RegisterInfo>>;

/// More addresses than this are compared with all that there are: each one that the service does
/// not know is a line in its log.
constexpr std::size_t MOST_ASKED = 32;

/// An assignment that is not possible.
struct Refusal {
    Assignment assignment;
    std::string reason;
};

std::string notFound(int address) {
    return "address '" + std::to_string(address) + "' not found";
}

std::string textOf(Assignments::const_iterator first, Assignments::const_iterator last) {
    std::string text;
    for (; first != last; ++first) {
        text += (text.empty() ? "" : " ") + std::to_string(first->address) + "=" +
                std::to_string(first->value);
    }
    return text.empty() ? "none" : text;
}

Poco::JSON::Object::Ptr jsonOf(const Assignment& assignment) {
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("address", assignment.address);
    object->set("value", assignment.value);
    return object;
}

Poco::JSON::Object::Ptr jsonOf(const Refusal& refusal) {
    Poco::JSON::Object::Ptr object = jsonOf(refusal.assignment);
    object->set("error", refusal.reason);
    return object;
}

/// Prints what was written, what was refused first, and all that was refused beforehand.
void printJsonOutcome(Assignments::const_iterator first, Assignments::const_iterator last,
                      const std::optional<Refusal>& failed,
                      const std::vector<Refusal>& refusals = {}) {
    Poco::JSON::Array::Ptr written = new Poco::JSON::Array;
    std::for_each(first, last, [&written](const Assignment& a) { written->add(jsonOf(a)); });
    Poco::JSON::Object::Ptr outcome = newJsonObject();
    outcome->set("written", written);
    if (failed) {
        outcome->set("failed", jsonOf(*failed));
    }
    if (!refusals.empty()) {
        Poco::JSON::Array::Ptr refused = new Poco::JSON::Array;
        std::for_each(refusals.begin(), refusals.end(),
                      [&refused](const Refusal& refusal) { refused->add(jsonOf(refusal)); });
        outcome->set("refused", refused);
    }
    printJson(outcome);
}

/// The properties of all registers that are to be written.
Infos infosOf(IoMapping& io, const Assignments& assignments) {
    Infos infos;
    for (const Assignment& assignment : assignments) {
        infos[assignment.address];
    }
    std::optional<std::vector<int>> known;
    if (infos.size() > MOST_ASKED) {
        known = addressesOf(io, {});
    }
    for (auto& [address, info] : infos) {
        if (!known || std::binary_search(known->begin(), known->end(), address)) {
            info = findInfo(io, address);
        }
    }
    return infos;
}

/// Why an assignment is not possible; nothing if it may be.
std::string refusalOf(const Assignment& assignment, const std::optional<RegisterInfo>& info) {
    if (!info) {
        return notFound(assignment.address);
    }
    if (std::string refusal = writeRefusalOf(info->type); !refusal.empty()) {
        return refusal;
    }
    if (static_cast<unsigned int>(assignment.value) > info->maximum) {
        return "value " + std::to_string(assignment.value) + " is higher than max value " +
               std::to_string(info->maximum);
    }
    return {};
}

/// All refusals in one line; registers with the same reason together.
std::string textOf(const std::vector<Refusal>& refusals, const Infos& infos) {
    std::vector<std::pair<std::string, std::set<int>>> groups;
    for (const Refusal& refusal : refusals) {
        const int address = refusal.assignment.address;
        const std::string reason = infos.at(address) ? refusal.reason : "addresses not found";
        auto group = std::find_if(groups.begin(), groups.end(),
                                  [&reason](const auto& g) { return g.first == reason; });
        if (group == groups.end()) {
            group = groups.insert(group, {reason, {}});
        }
        group->second.insert(address);
    }
    std::string text;
    for (const auto& [reason, addresses] : groups) {
        const int first = *addresses.begin();
        text += addresses.size() > 1
                    ? "registers " + rangesText({addresses.begin(), addresses.end()}) + ": " +
                          reason + "; "
                    : nameOf(first, infos.at(first)) + ": " +
                          (infos.at(first) ? reason : notFound(first)) + "; ";
    }
    return text + "nothing is written";
}

/// @throws Failure some assignments are not possible
void requirePossible(IoMapping& io, const Assignments& assignments, bool json) {
    const Infos infos = infosOf(io, assignments);
    std::vector<Refusal> refusals;
    for (const Assignment& assignment : assignments) {
        const std::string reason = refusalOf(assignment, infos.at(assignment.address));
        if (!reason.empty()) {
            refusals.push_back({assignment, reason});
        }
    }
    if (refusals.empty()) {
        return;
    }
    if (json) {
        printJsonOutcome(assignments.end(), assignments.end(), refusals.front(), refusals);
    }
    throw Failure(textOf(refusals, infos));
}

}  // namespace

int rawOfScaled(IoMapping& io, const NamedAssignment& assignment, const Labels& labels) {
    const int address = assignment.target.first;
    const Label& label = *labels.find(address);
    const unsigned int maximum = infoOf(io, address).maximum;
    try {
        return label.rawOf(assignment.value, maximum);
    } catch (const Failure& e) {
        throw Failure(label.name + ": " + e.what());
    }
}

void writeAll(IoMapping& io, const Assignments& assignments, bool json) {
    // A single one is refused as a whole anyhow, in the words of the service.
    if (assignments.size() > 1) {
        requirePossible(io, assignments, json);
    }
    auto next = assignments.cbegin();
    try {
        for (; next != assignments.cend(); ++next) {
            io.writeValue(next->address, next->value);
        }
    } catch (const tesk::InputOutputException& e) {
        const bool late = isTimeout(e);
        const std::string reason =
            reasonOf(e) + (late ? "; the write may still be carried out" : "");
        if (json) {
            printJsonOutcome(assignments.cbegin(), next, Refusal{*next, reason});
        }
        // Asking for the register's type would only time out again.
        std::string text =
            (late ? "register " + std::to_string(next->address) : nameOf(io, next->address)) +
            ": " + reason;
        if (assignments.size() > 1) {
            text += "; written before it: " + textOf(assignments.cbegin(), next);
        }
        throw Failure(text, exitStatusOf(e));
    }
    if (json) {
        printJsonOutcome(assignments.cbegin(), next, {});
    }
}
