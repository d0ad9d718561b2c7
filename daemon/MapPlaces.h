// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Where the keys and the fields of a map file, or the labels of a file of labels, stand in its
/// text.
///
/// The JSON parser of the load gives values without places. This reader gives places without
/// values. It is no judge of JSON: it reads texts that the parser has accepted. Whatever another
/// text makes of it, it comes to an end.
class MapPlaces {
 public:
    /// A place in the text. Both numbers are counted from 1.
    struct Place {
        std::size_t line{1};
        /// Counts characters of UTF-8, not bytes.
        std::size_t column{1};
    };

    /// One key of an object, as often as it occurs.
    struct Key {
        std::string name;
        Place place;
        /// Where the value of the key begins.
        Place value;
    };

    /// One element of "io_mapping".
    struct Field {
        Place place;
        /// In the order of the text; empty if the element is no object.
        std::vector<Key> keys;
    };

    /// One member of "labels".
    struct Label {
        /// The address, as the text has it.
        Key key;
        /// In the order of the text; empty if the label is no object.
        std::vector<Key> keys;
    };

    /// @param text a JSON document whose root is an object; must outlive this object
    explicit MapPlaces(const std::string& text);

    /// All keys of the root.
    const std::vector<Key>& rootKeys() const { return keys; }

    /// The elements of "io_mapping"; of the last one if the key occurs twice.
    const std::vector<Field>& fields() const { return elements; }

    /// The members of "labels"; of the last one if the key occurs twice.
    const std::vector<Label>& labels() const { return members; }

    /// Those of some keys that occur again behind their place, in order.
    static std::vector<Key> repeated(const std::vector<Key>& keys);

    /// The last of some keys with a name, which is the one that counts; null without one.
    static const Key* find(const std::vector<Key>& keys, const std::string& name);

    /// The place of a byte of a text, counted from 0.
    static Place placeOf(const std::string& text, std::size_t byte);

 private:
    std::vector<Key> keys;
    std::vector<Field> elements;
    std::vector<Label> members;
};
