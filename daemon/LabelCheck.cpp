// SPDX-License-Identifier: MIT
#include "LabelCheck.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>

#include "Remedies.h"
#include "client/Failure.h"
#include "client/Labels.h"

namespace {

constexpr const char* OTHER_FILE = "name another one with --labels";

/// The check of a text.
class LabelCheck {
 public:
    LabelCheck(const std::string& file, const std::string& json) : path(file), text(json) {
        // The last one of a name counts.
        for (const MapPlaces::Label& label : places.labels()) {
            labels[label.key.name] = &label;
        }
    }

    std::vector<Finding> check(const std::function<bool(int)>& hasRegister) {
        for (const Labels::Fault& fault : Labels::faultsIn(text)) {
            add(true, placeOf(fault), fault.label, fault.message, remedyOf(fault));
        }
        checkRepeated("", places.rootKeys());
        checkRepeated("", addresses());
        for (const auto& [key, keys] : places.labels()) {
            checkRepeated(key.name, keys);
            const std::optional<int> address = Labels::parseAddress(key.name);
            if (address && hasRegister && !hasRegister(*address)) {
                add(false, key.place, key.name,
                    "register " + key.name + ": the map has no such register",
                    "correct the address, or remove the label");
            }
        }
        std::stable_sort(findings.begin(), findings.end(), [](const auto& a, const auto& b) {
            return std::tie(a.place->line, a.place->column) <
                   std::tie(b.place->line, b.place->column);
        });
        return findings;
    }

 private:
    std::vector<MapPlaces::Key> addresses() const {
        std::vector<MapPlaces::Key> keys;
        for (const MapPlaces::Label& label : places.labels()) {
            keys.push_back(label.key);
        }
        return keys;
    }

    /// The place of the value at fault; of the key of the label if the whole label is at fault.
    MapPlaces::Place placeOf(const Labels::Fault& fault) const {
        if (fault.byte) {
            return MapPlaces::placeOf(text, *fault.byte);
        }
        const auto found = labels.find(fault.label);
        if (found == labels.end()) {
            const MapPlaces::Key* const all = MapPlaces::find(places.rootKeys(), "labels");
            return all != nullptr ? all->value : MapPlaces::Place{};
        }
        const MapPlaces::Label& label = *found->second;
        const MapPlaces::Key* const key = MapPlaces::find(label.keys, fault.key);
        return key != nullptr ? key->value : label.key.place;
    }

    static std::string remedyOf(const Labels::Fault& fault) {
        const std::vector<std::string> keys = Labels::keys();
        if (fault.byte) {
            return remedyFor(fault.message);
        }
        if (fault.label.empty()) {
            return R"(put the labels into {"labels": {...}})";
        }
        if (!Labels::parseAddress(fault.label)) {
            return "write the address in digits, in quotes";
        }
        if (!fault.key.empty() && std::find(keys.begin(), keys.end(), fault.key) == keys.end()) {
            const std::string meant = nearest(fault.key, keys);
            return meant.empty() ? "remove the key" : "write \"" + meant + "\"";
        }
        return "correct it; iomap refuses the whole file until then";
    }

    void checkRepeated(const std::string& label, const std::vector<MapPlaces::Key>& keys) {
        for (const MapPlaces::Key& key : MapPlaces::repeated(keys)) {
            add(false, key.place, label, "the key \"" + key.name + "\" occurs again",
                "remove one; the last one counts");
        }
    }

    void add(bool isFault, const MapPlaces::Place& place, const std::string& label,
             const std::string& message, const std::string& remedy) {
        findings.push_back({isFault, place, std::nullopt, label, message, remedy, path});
    }

    const std::string& path;
    const std::string& text;
    MapPlaces places{text};
    std::map<std::string_view, const MapPlaces::Label*> labels;
    std::vector<Finding> findings;
};

}  // namespace

std::vector<Finding> checkLabels(const std::string& path,
                                 const std::function<bool(int)>& hasRegister) {
    try {
        if (const auto text = Labels::textOf(path)) {
            return LabelCheck(path, *text).check(hasRegister);
        }
    } catch (const Failure& e) {
        return {{true, std::nullopt, std::nullopt, "", e.what(), OTHER_FILE, path}};
    }
    return {{true, std::nullopt, std::nullopt, "", "there is no such file", OTHER_FILE, path}};
}
