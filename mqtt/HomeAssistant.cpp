// SPDX-License-Identifier: MIT
#include "HomeAssistant.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <sstream>

#include "JsonText.h"
#include "Payloads.h"
#include "Version.h"
#include "tesk/Json.h"

namespace {

using Object = Poco::JSON::Object::Ptr;

constexpr const char* PROGRAM = "iomap-mqtt";
constexpr const char* ENTITIES = "cmps";
constexpr const char* PLATFORM = "p";
constexpr std::array<std::string_view, 5> PLATFORMS{"switch", "binary_sensor", "select", "number",
                                                    "sensor"};
constexpr std::size_t LONGEST_NAME = 200;
constexpr std::size_t MOST_DEPTH = 8;

/// Home Assistant takes no finer steps.
constexpr double FINEST_STEP = 0.001;

constexpr std::array<RegisterType, 9> ON_OFF_TYPES{
    RegisterType::RELAY,         RegisterType::OUTPUT_DIGITAL,
    RegisterType::INPUT_DIGITAL, RegisterType::PULLUP,
    RegisterType::RTS,           RegisterType::CTS,
    RegisterType::USB_ENABLE,    RegisterType::PD5_DETECTED,
    RegisterType::ENABLE_ANALOG};

/// What a unit says of its quantity.
struct Quantity {
    std::string_view unit;
    const char* deviceClass;
    const char* stateClass;
};

constexpr std::array<Quantity, 22> QUANTITIES{{
    {"°C", "temperature", "measurement"},  {"°F", "temperature", "measurement"},
    {"K", "temperature", "measurement"},   {"V", "voltage", "measurement"},
    {"mV", "voltage", "measurement"},      {"A", "current", "measurement"},
    {"mA", "current", "measurement"},      {"W", "power", "measurement"},
    {"kW", "power", "measurement"},        {"Wh", "energy", "total_increasing"},
    {"kWh", "energy", "total_increasing"}, {"MWh", "energy", "total_increasing"},
    {"Pa", "pressure", "measurement"},     {"hPa", "pressure", "measurement"},
    {"kPa", "pressure", "measurement"},    {"bar", "pressure", "measurement"},
    {"mbar", "pressure", "measurement"},   {"psi", "pressure", "measurement"},
    {"Hz", "frequency", "measurement"},    {"s", "duration", "measurement"},
    {"min", "duration", "measurement"},    {"h", "duration", "measurement"},
}};

/// A JSON object in the making.
class ObjectText {
 public:
    void add(const char* key, const std::string& json) {
        text += (text.empty() ? "{" : ",") + quoted(key) + ":" + json;
    }
    void addText(const char* key, const std::string& value) { add(key, quoted(value)); }
    std::string end() const { return text + "}"; }

 private:
    std::string text;
};

template <typename Types>
bool has(const Types& types, RegisterType type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

bool isPlain(const Label& label) {
    return label.scale == 1 && label.offset == 0;
}

/// Whether a register measures something, though some of its values may have names.
bool isNumeric(const Label& label) {
    return label.states.empty() || !label.unit.empty() || !isPlain(label);
}

bool hasTwoStates(const Label& label) {
    return label.states.size() == 2 && label.states.count(0) == 1 && label.states.count(1) == 1;
}

bool isOnOff(const CachedRegister& entry, const Label& label) {
    return hasTwoStates(label) ||
           (label.states.empty() && isPlain(label) && has(ON_OFF_TYPES, entry.info.type));
}

std::string platformOf(const CachedRegister& entry, const Label& label, bool writable) {
    if (isOnOff(entry, label)) {
        return writable ? "switch" : "binary_sensor";
    }
    if (!writable) {
        return "sensor";
    }
    return isNumeric(label) ? "number" : "select";
}

/// What Home Assistant takes out of a message. A number that has a name is none to Home Assistant.
std::string templateOf(const CachedRegister& entry, const Label& label) {
    const bool mixed = !isOnOff(entry, label) && isNumeric(label) && !label.states.empty();
    return mixed ? "{{ value_json.value if value_json.value is number else none }}"
                 : "{{ value_json.value }}";
}

void addOnOff(ObjectText& object, const Label& label) {
    const bool named = !label.states.empty();
    object.addText("pl_on", named ? label.states.at(1) : "1");
    object.addText("pl_off", named ? label.states.at(0) : "0");
}

void addStates(ObjectText& object, const Label& label) {
    std::string names;
    for (const auto& [raw, name] : label.states) {
        names += (names.empty() ? "" : ",") + quoted(name);
    }
    object.add("ops", "[" + names + "]");
}

void addRange(ObjectText& object, const CachedRegister& entry, const Label& label) {
    const bool signedRange = entry.info.maximum == std::numeric_limits<std::uint32_t>::max();
    const int lowest = signedRange ? std::numeric_limits<int>::min() : 0;
    const int highest =
        signedRange ? std::numeric_limits<int>::max() : static_cast<int>(entry.info.maximum);
    const auto [least, most] = std::minmax({label.scaled(lowest), label.scaled(highest)});
    object.add("min", numberText(least));
    object.add("max", numberText(most));
    object.add("step", numberText(std::max(std::abs(label.scale), FINEST_STEP)));
    object.addText("mode", "box");
}

void addQuantity(ObjectText& object, const CachedRegister& entry, const Label& label,
                 bool withStateClass) {
    const auto* const quantity =
        std::find_if(QUANTITIES.begin(), QUANTITIES.end(),
                     [&label](const Quantity& q) { return q.unit == label.unit; });
    const bool known = quantity != QUANTITIES.end();
    if (!label.unit.empty()) {
        object.addText("unit_of_meas", label.unit);
    }
    if (known) {
        object.addText("dev_cla", quantity->deviceClass);
    }
    if (!withStateClass) {
        return;
    }
    if (entry.info.type == RegisterType::INPUT_COUNTER) {
        object.addText("stat_cla", "total_increasing");
    } else if (known || !label.unit.empty()) {
        object.addText("stat_cla", known ? quantity->stateClass : "measurement");
    }
}

std::string entityText(const CachedRegister& entry, const Label& label, const std::string& platform,
                       const Settings& settings, const Topics& topics) {
    const bool sensor = platform == "sensor" || platform == "binary_sensor";
    ObjectText object;
    object.addText(PLATFORM, platform);
    object.addText("uniq_id", settings.device + "-" + label.name);
    object.addText("name", label.description.empty() ? label.name : label.description);
    object.addText("stat_t", topics.values + label.name);
    object.addText("val_tpl", templateOf(entry, label));
    if (sensor) {
        object.add("exp_aft", std::to_string(settings.homeAssistant->expireAfter));
    } else {
        object.addText("cmd_t", topics.set + label.name);
    }
    if (isOnOff(entry, label)) {
        addOnOff(object, label);
    } else if (!isNumeric(label)) {
        addStates(object, label);
        if (sensor) {
            object.addText("dev_cla", "enum");
        }
    } else {
        addQuantity(object, entry, label, sensor);
        if (!sensor) {
            addRange(object, entry, label);
        }
    }
    return object.end();
}

std::string versionOf(const std::string& line) {
    return line.substr(line.rfind(' ') + 1);
}

/// Whether the program may have told of such an entity: its name becomes part of a topic.
bool isOurs(const std::string& key, const std::string& platform) {
    const std::string name = nameOfEntity(key);
    return std::find(PLATFORMS.begin(), PLATFORMS.end(), platform) != PLATFORMS.end() &&
           key == platform + "-" + name && !name.empty() && name.size() <= LONGEST_NAME &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '_' || c == '.';
           });
}

/// A member of an object, in the form of its text.
std::string memberText(const std::string& key, const std::string& json) {
    return quoted(key) + ":" + json;
}

}  // namespace

Entities entitiesOf(const std::map<int, CachedRegister>& registers, const Labels& labels,
                    const Settings& settings, const Topics& topics) {
    Entities entities;
    for (const auto& [address, entry] : registers) {
        const Label* const label = labels.find(address);
        if (label == nullptr || label->name.empty()) {
            continue;
        }
        const bool writable =
            settings.writable.contains(address) && writeRefusalOf(entry.info.type).empty();
        const std::string platform = platformOf(entry, *label, writable);
        entities[platform + "-" + label->name] = {
            platform, entityText(entry, *label, platform, settings, topics)};
    }
    return entities;
}

std::string discoveryOf(const Settings& settings, const Topics& topics, const Entities& entities,
                        const OldEntities& gone, std::size_t& leftOut) {
    const std::string version = versionOf(versionLine(PROGRAM));
    const std::string& name = settings.homeAssistant->name;
    ObjectText device;
    device.add("ids", "[" + quoted(settings.device) + "]");
    device.addText("name", name.empty() ? settings.device : name);
    device.addText("sw", version);
    ObjectText origin;
    origin.addText("name", PROGRAM);
    origin.addText("sw", version);
    ObjectText message;
    message.add("dev", device.end());
    message.add("o", origin.end());
    message.addText("avty_t", topics.status);
    message.add("qos", "1");

    const std::size_t room = LONGEST_MESSAGE - message.end().size() - sizeof(",\"cmps\":{}");
    std::string members;
    const auto add = [&members, room](const std::string& member) {
        const bool fits = members.size() + member.size() + 1 <= room;
        if (fits) {
            members += (members.empty() ? "" : ",") + member;
        }
        return fits;
    };
    leftOut = 0;
    for (const auto& [key, entity] : entities) {
        leftOut += add(memberText(key, entity.text)) ? 0 : 1;
    }
    for (const auto& [key, platform] : gone) {
        ObjectText removal;
        removal.addText(PLATFORM, platform);
        add(memberText(key, removal.end()));
    }
    message.add(ENTITIES, "{" + members + "}");
    return message.end();
}

OldEntities entitiesIn(std::string_view payload) {
    OldEntities entities;
    if (payload.size() > LONGEST_MESSAGE || depthOf(payload) > MOST_DEPTH) {
        return entities;
    }
    try {
        std::istringstream in{std::string(payload)};
        const Object message = tesk::jsonParse(in);
        const Object members = message.isNull() ? Object() : message->getObject(ENTITIES);
        if (members.isNull()) {
            return entities;
        }
        for (const auto& [key, value] : *members) {
            const Object entity = value.extract<Object>();
            const auto platform = entity->getValue<std::string>(PLATFORM);
            if (entity->size() > 1 && isOurs(key, platform)) {
                entities[key] = platform;
            }
        }
    } catch (const std::exception&) {
        // Somebody else wrote it: what was understood until here is all.
        return entities;
    }
    return entities;
}

std::string nameOfEntity(const std::string& key) {
    const auto dash = key.find('-');
    return dash == std::string::npos ? "" : key.substr(dash + 1);
}
