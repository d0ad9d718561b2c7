// SPDX-License-Identifier: MIT
#include "daemon/MapPlaces.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string textOf(const MapPlaces::Place& place) {
    return std::to_string(place.line) + ":" + std::to_string(place.column);
}

/// The keys as "NAME KEY-PLACE VALUE-PLACE".
std::vector<std::string> textsOf(const std::vector<MapPlaces::Key>& keys) {
    std::vector<std::string> texts;
    for (const MapPlaces::Key& key : keys) {
        texts.push_back(key.name + " " + textOf(key.place) + " " + textOf(key.value));
    }
    return texts;
}

TEST(MapPlacesTest, FindsFieldsAndKeysByLineAndColumn) {
    const MapPlaces places("{\n  \"io_mapping\": [\n    {\"address\": 1,\n\t\"size\" :\n 8},{}]}");
    EXPECT_THAT(textsOf(places.rootKeys()), ElementsAre("io_mapping 2:3 2:17"));
    ASSERT_EQ(places.fields().size(), 2U);
    EXPECT_EQ(textOf(places.fields()[0].place), "3:5");
    EXPECT_THAT(textsOf(places.fields()[0].keys), ElementsAre("address 3:6 3:17", "size 4:2 5:2"));
    EXPECT_EQ(textOf(places.fields()[1].place), "5:5");
    EXPECT_THAT(places.fields()[1].keys, IsEmpty());
}

TEST(MapPlacesTest, FindsLabelsAndTheirKeysByLineAndColumn) {
    const MapPlaces places("{\"labels\": {\"1\": {\"name\": 2},\n \"x\": [3], \"1\": {}}}");
    ASSERT_EQ(places.labels().size(), 3U);
    EXPECT_THAT(textsOf({places.labels()[0].key, places.labels()[1].key, places.labels()[2].key}),
                ElementsAre("1 1:13 1:18", "x 2:2 2:7", "1 2:12 2:17"));
    EXPECT_THAT(textsOf(places.labels()[0].keys), ElementsAre("name 1:19 1:27"));
    EXPECT_THAT(places.labels()[1].keys, IsEmpty());
    EXPECT_TRUE(places.fields().empty());
    EXPECT_THAT(MapPlaces(R"({"labels": 1})").labels(), IsEmpty());
}

TEST(MapPlacesTest, PassesOverWhateverAValueHolds) {
    const MapPlaces places(
        R"({"x": {"io_mapping": [7]}, "io_mapping": [[{}, "]"], "}\"{", {"a": [{}, 1], "b": -1e5},
true, null]})");
    EXPECT_EQ(places.fields().size(), 5U);
    EXPECT_THAT(textsOf(places.fields()[2].keys), ElementsAre("a 1:63 1:68", "b 1:77 1:82"));
    EXPECT_EQ(textOf(places.fields()[3].place), "2:1");
    EXPECT_EQ(textOf(places.fields()[4].place), "2:7");
}

TEST(MapPlacesTest, ColumnsCountCharactersAndNamesAreDecoded) {
    const MapPlaces places("{\"io_mapping\": [{\"note\": \"\u00e4\u20ac\", \"s\\u0069ze\": 1}]}");
    ASSERT_EQ(places.fields().size(), 1U);
    EXPECT_THAT(textsOf(places.fields()[0].keys), ElementsAre("note 1:18 1:26", "size 1:32 1:45"));
}

TEST(MapPlacesTest, OfTwoKeysBothAreFoundAndTheFieldsOfTheLater) {
    const MapPlaces places(R"({"io_mapping": [1, 2], "io_mapping": [{"size": 1, "size": 2}]})");
    EXPECT_EQ(places.rootKeys().size(), 2U);
    ASSERT_EQ(places.fields().size(), 1U);
    EXPECT_EQ(places.fields()[0].keys.size(), 2U);
}

TEST(MapPlacesTest, ATextThatIsNoMapHasNoFields) {
    for (const std::string text : {"", "{", "[]", "7", "{\"io_mapping\": 7}", "{\"io_mapping\"",
                                   "{\"", "{]}", "{{{", "\\"}) {
        EXPECT_THAT(MapPlaces(text).fields(), IsEmpty()) << text;
    }
}

TEST(MapPlacesTest, EveryBeginningOfAMapComesToAnEnd) {
    const std::string text = R"({"io_mapping": [{"address": "\"", "x": [1, {}]}, null], "y": {}})";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        EXPECT_LE(MapPlaces(text.substr(0, length)).fields().size(), 2U);
    }
}

TEST(MapPlacesTest, TellsThePlaceOfAByte) {
    const std::string text = "a\u00e4b\n\ncd";
    EXPECT_EQ(textOf(MapPlaces::placeOf(text, 0)), "1:1");
    EXPECT_EQ(textOf(MapPlaces::placeOf(text, 3)), "1:3");
    EXPECT_EQ(textOf(MapPlaces::placeOf(text, 5)), "2:1");
    EXPECT_EQ(textOf(MapPlaces::placeOf(text, 7)), "3:2");
    EXPECT_EQ(textOf(MapPlaces::placeOf(text, 99)), "3:3");
}

TEST(MapPlacesTest, ManyKeysAreEachLookedAtOnce) {
    std::vector<MapPlaces::Key> keys(300'000);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keys[i].name = std::to_string(i);
    }
    keys.push_back(keys[7]);
    keys.push_back(keys[5]);
    EXPECT_THAT(MapPlaces::repeated(keys), testing::SizeIs(2));
    EXPECT_EQ(MapPlaces::repeated(keys).front().name, "5");
}

}  // namespace
