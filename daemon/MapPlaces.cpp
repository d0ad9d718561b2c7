// SPDX-License-Identifier: MIT
#include "MapPlaces.h"

#include <Poco/JSON/Parser.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

namespace {

using Place = MapPlaces::Place;
using Key = MapPlaces::Key;

/// Walks through a JSON text from value to value.
class Scanner {
 public:
    explicit Scanner(const std::string& json) : text(json) {}

    /// The place of the next byte that is not between two values.
    Place place() {
        skip(" \t\r\n,:");
        return here;
    }

    bool startsWith(char c) {
        place();
        return next < text.size() && text[next] == c;
    }

    /// Passes over one value, however deep. Returns its text.
    std::string value() {
        place();
        const std::size_t start = next;
        std::size_t depth = 0;
        do {
            place();
            if (next == text.size()) {
                break;
            }
            if (text[next] == '{' || text[next] == '[') {
                ++depth;
                step();
            } else if (text[next] == '}' || text[next] == ']') {
                depth -= depth > 0 ? 1 : 0;
                step();
            } else if (text[next] == '"') {
                quoted();
            } else {
                plain();
            }
        } while (depth > 0);
        return text.substr(start, next - start);
    }

    /// Walks through an object or an array.
    ///
    /// @param each called at the start of each key or element; must pass over it
    template <typename Each>
    void inside(const Each& each) {
        place();
        step();
        while (!startsWith('}') && !startsWith(']') && next < text.size()) {
            each();
        }
        step();
    }

    /// The keys of an object.
    ///
    /// @param each called with each key, before its value; must pass over the value
    template <typename Each>
    std::vector<Key> keys(const Each& each) {
        std::vector<Key> found;
        inside([&] {
            Key key;
            key.place = place();
            key.name = decoded(value());
            key.value = place();
            found.push_back(key);
            each(key.name);
        });
        return found;
    }

 private:
    void step() {
        if (next == text.size()) {
            return;
        }
        if (text[next] == '\n') {
            ++here.line;
            here.column = 1;
        } else if ((static_cast<unsigned char>(text[next]) & 0xC0U) != 0x80U) {
            ++here.column;
        }
        ++next;
    }

    void skip(const char* characters) {
        while (next < text.size() &&
               std::string_view(characters).find(text[next]) != std::string_view::npos) {
            step();
        }
    }

    void quoted() {
        step();
        while (next < text.size() && text[next] != '"') {
            if (text[next] == '\\') {
                step();
            }
            step();
        }
        step();
    }

    void plain() {
        step();
        while (next < text.size() &&
               std::string_view(" \t\r\n,:{}[]\"").find(text[next]) == std::string_view::npos) {
            step();
        }
    }

    /// The text of a JSON string.
    static std::string decoded(const std::string& json) {
        if (json.find('\\') == std::string::npos) {
            return json.size() < 2 ? json : json.substr(1, json.size() - 2);
        }
        try {
            const Poco::Dynamic::Var array = Poco::JSON::Parser().parse("[" + json + "]");
            return array.extract<Poco::JSON::Array::Ptr>()->getElement<std::string>(0);
        } catch (const std::exception&) {
            return json;
        }
    }

    const std::string& text;
    std::size_t next{0};
    Place here;
};

std::vector<MapPlaces::Field> fieldsAt(Scanner& scanner) {
    std::vector<MapPlaces::Field> fields;
    scanner.inside([&] {
        MapPlaces::Field field{scanner.place(), {}};
        if (scanner.startsWith('{')) {
            field.keys = scanner.keys([&](const std::string&) { scanner.value(); });
        } else {
            scanner.value();
        }
        fields.push_back(field);
    });
    return fields;
}

std::vector<MapPlaces::Label> labelsAt(Scanner& scanner) {
    std::vector<std::vector<Key>> inner;
    const std::vector<Key> addresses = scanner.keys([&](const std::string&) {
        inner.emplace_back();
        if (scanner.startsWith('{')) {
            inner.back() = scanner.keys([&](const std::string&) { scanner.value(); });
        } else {
            scanner.value();
        }
    });
    std::vector<MapPlaces::Label> labels;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        labels.push_back({addresses[i], inner[i]});
    }
    return labels;
}

}  // namespace

MapPlaces::MapPlaces(const std::string& text) {
    Scanner scanner(text);
    if (!scanner.startsWith('{')) {
        return;
    }
    keys = scanner.keys([&](const std::string& name) {
        if (name == "io_mapping" && scanner.startsWith('[')) {
            elements = fieldsAt(scanner);
        } else if (name == "labels" && scanner.startsWith('{')) {
            members = labelsAt(scanner);
        } else {
            scanner.value();
        }
    });
}

std::vector<MapPlaces::Key> MapPlaces::repeated(const std::vector<Key>& keys) {
    std::vector<Key> found;
    std::set<std::string_view> later;
    // A file may have hundreds of thousands of keys: each is looked at once.
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
        if (!later.insert(key->name).second) {
            found.push_back(*key);
        }
    }
    std::reverse(found.begin(), found.end());
    return found;
}

const MapPlaces::Key* MapPlaces::find(const std::vector<Key>& keys, const std::string& name) {
    const auto key =
        std::find_if(keys.rbegin(), keys.rend(), [&name](const Key& k) { return k.name == name; });
    return key != keys.rend() ? &*key : nullptr;
}

MapPlaces::Place MapPlaces::placeOf(const std::string& text, std::size_t byte) {
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(byte, text.size()));
    const auto lineStart = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
    const auto isCharacter = [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    };
    return {static_cast<std::size_t>(std::count(text.begin(), end, '\n')) + 1,
            static_cast<std::size_t>(std::count_if(lineStart, end, isCharacter)) + 1};
}
