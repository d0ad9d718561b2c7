// SPDX-License-Identifier: MIT
#include "Payloads.h"

#include <glib.h>

#include <algorithm>
#include <chrono>

#include "JsonText.h"
#include "Version.h"
#include "support/GLibOwners.h"

namespace {

using Quality = CachedValue::Quality;

/// What a message has besides its rows.
constexpr std::size_t FRAME = 1024;

const char* textOf(Quality quality) {
    switch (quality) {
        case Quality::GOOD:
            return "good";
        case Quality::STALE:
            return "stale";
        default:
            return "unreadable";
    }
}

bool wasRead(const CachedValue& state) {
    return state.readAt != CachedValue::Clock::time_point{};
}

/// How long ago a register was read, in milliseconds; null if never.
std::string ageOf(const CachedValue& state) {
    if (!wasRead(state)) {
        return "null";
    }
    const auto age = CachedValue::Clock::now() - state.readAt;
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(age).count());
}

/// [address, type, index, maximum, value, age, quality], with the reason behind it if there is one.
std::string rowOf(const CachedRegister& entry) {
    const CachedValue& state = entry.state;
    std::string row = "[" + std::to_string(entry.info.address) + ",\"" +
                      getTypeName(entry.info.type) + "\"," + std::to_string(entry.info.index) +
                      "," + std::to_string(entry.info.maximum) + ",";
    row += state.quality == Quality::UNREADABLE || !wasRead(state) ? "null"
                                                                   : std::to_string(state.value);
    row += "," + ageOf(state) + ",\"" + textOf(state.quality) + "\"";
    return row + (state.reason.empty() ? "" : "," + quoted(state.reason)) + "]";
}

std::string labelText(const Label& label) {
    std::string text =
        "{\"scale\":" + numberText(label.scale) + ",\"offset\":" + numberText(label.offset);
    const auto add = [&text](const char* key, const std::string& value) {
        text += value.empty() ? "" : ",\"" + std::string(key) + "\":" + quoted(value);
    };
    add("name", label.name);
    add("description", label.description);
    add("unit", label.unit);
    add("group", label.group);
    return text + "}";
}

std::string writableText(const AddressRanges& ranges) {
    std::string text;
    for (const AddressRanges::Range& range : ranges.all()) {
        text += (text.empty() ? "" : ",") + quoted(textOf(range));
    }
    return "[" + text + "]";
}

}  // namespace

std::string ackOf(const Request& request, const std::string& error) {
    std::string text = "{";
    if (!request.token.empty()) {
        text += "\"token\":" + quoted(request.token) + ",";
    }
    text += request.action == Request::Action::SET ? "\"set\":" + quoted(request.target) + ","
                                                   : "\"get\":true,";
    text += error.empty() ? R"("ok":true)" : R"("ok":false,"error":)" + quoted(error);
    return text + "}";
}

std::string faultOf(const CachedRegister& entry) {
    const CachedValue& state = entry.state;
    switch (state.quality) {
        case Quality::GOOD:
            return isMissing(entry.info.type, state.value) ? "the sensor is missing" : "";
        case Quality::STALE:
            return wasRead(state) ? "the service does not run" : "not read yet";
        default:
            return state.reason;
    }
}

std::string valueOf(const CachedRegister& entry, const Label& label, const Moment& now) {
    const std::string time = ",\"time\":" + quoted(timeText(now.wall)) + "}";
    const std::string fault = faultOf(entry);
    if (!fault.empty()) {
        return R"({"value":null,"error":)" + quoted(fault) + time;
    }
    const int raw = entry.state.value;
    const auto state = label.states.find(raw);
    const std::string value =
        state != label.states.end() ? quoted(state->second) : numberText(label.scaled(raw));
    return "{\"value\":" + value + ",\"text\":" + quoted(label.shown(raw)) +
           ",\"raw\":" + std::to_string(raw) + time;
}

std::vector<std::string> snapshotOf(const std::string& token,
                                    const std::vector<const CachedRegister*>& entries,
                                    const Moment& now) {
    std::vector<std::string> rows(1);
    for (const CachedRegister* const entry : entries) {
        const std::string row = rowOf(*entry);
        if (rows.back().size() + row.size() > LONGEST_MESSAGE - FRAME) {
            rows.emplace_back();
        }
        rows.back() += (rows.back().empty() ? "" : ",") + row;
    }
    std::vector<std::string> messages;
    messages.reserve(rows.size());
    for (const std::string& part : rows) {
        messages.push_back(
            "{\"token\":" + quoted(token) + ",\"part\":" + std::to_string(messages.size() + 1) +
            ",\"parts\":" + std::to_string(rows.size()) +
            ",\"time\":" + quoted(timeText(now.wall)) +
            ",\"synchronised\":" + (now.synchronised ? "true" : "false") +
            R"(,"columns":["address","type","index","maximum","value","age","quality","reason"])" +
            ",\"registers\":[" + part + "]}");
    }
    return messages;
}

std::string infoOf(const DeviceInfo& info, std::uint64_t dropped) {
    return "{\"program\":" + quoted(versionLine("iomap-mqtt")) +
           ",\"device\":" + quoted(info.device) + ",\"session\":" + quoted(info.session) +
           ",\"boot\":" + quoted(info.boot) +
           ",\"service\":" + (info.serviceRuns ? "true" : "false") +
           ",\"registers\":" + std::to_string(info.registers) + ",\"hash\":" + quoted(info.hash) +
           ",\"dropped\":" + std::to_string(dropped) +
           ",\"writable\":" + writableText(info.writable) +
           ",\"labels\":" + (info.labels.empty() ? "null" : info.labels) + "}";
}

std::string hashOf(const std::map<int, CachedRegister>& entries) {
    std::string text;
    for (const auto& [address, entry] : entries) {
        text += std::to_string(address) + " " + getTypeName(entry.info.type) + " " +
                std::to_string(entry.info.index) + " " + std::to_string(entry.info.maximum) + "\n";
    }
    const StringOwner hash(g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.c_str(), -1));
    return hash.get();
}

std::string labelsText(const Labels& labels) {
    std::string text;
    for (const auto& [address, label] : labels.all()) {
        text += (text.empty() ? "\"" : ",\"") + std::to_string(address) + "\":" + labelText(label);
    }
    // The ranges that may be written stand in the same message.
    return text.size() > LONGEST_MESSAGE / 2 ? "null" : "{" + text + "}";
}
