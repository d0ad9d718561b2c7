// SPDX-License-Identifier: MIT
#include "daemon/Finding.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string linesOf(const Finding& finding) {
    std::ostringstream out;
    printLines(out, "map.json", {finding});
    return out.str();
}

std::string jsonOf(const std::vector<Finding>& findings) {
    std::ostringstream out;
    printJson(out, findings);
    return out.str();
}

TEST(FindingTest, ALineHasThePlaceTheFieldTheMessageAndTheRemedy) {
    EXPECT_EQ(linesOf({true, MapPlaces::Place{7, 18}, 3, "20", "not so", "do so"}),
              "map.json:7:18: error: field io_mapping[3], address 20: not so; do so\n");
    EXPECT_EQ(linesOf({false, MapPlaces::Place{1, 1}, std::nullopt, "", "odd", "mend it"}),
              "map.json:1:1: warning: odd; mend it\n");
    EXPECT_EQ(linesOf({false, std::nullopt, std::nullopt, "", "odd", "mend it"}),
              "map.json: warning: odd; mend it\n");
}

TEST(FindingTest, AFindingOfTheLabelsHasTheirFile) {
    const Finding finding{true, MapPlaces::Place{2, 5}, std::nullopt, "12", "m",
                          "r",  "labels.json"};
    EXPECT_EQ(linesOf(finding), "labels.json:2:5: error: m; r\n");
    EXPECT_EQ(jsonOf({finding}),
              R"([{"severity":"error","line":2,"column":5,"field":null,"address":12,)"
              R"("message":"m","remedy":"r","file":"labels.json"}])"
              "\n");
}

TEST(FindingTest, AFindingIsOneLineOfUtf8WhateverTheFileHolds) {
    EXPECT_EQ(linesOf({true, std::nullopt, 0, "a\nb", "c\td", "\xEF."}),
              "map.json: error: field io_mapping[0], address a b: c d; \uFFFD.\n");
    EXPECT_EQ(jsonOf({{true, std::nullopt, std::nullopt, "", "a\nb", "\xEF."}}),
              "[{\"severity\":\"error\",\"line\":null,\"column\":null,\"field\":null,"
              "\"address\":null,\"message\":\"a\\nb\",\"remedy\":\"\uFFFD.\"}]\n");
}

TEST(FindingTest, JsonIsOneArrayWithNumbersAsNumbers) {
    EXPECT_EQ(jsonOf({}), "[]\n");
    EXPECT_EQ(jsonOf({{true, MapPlaces::Place{7, 18}, 3, "-20", "m", "r"},
                      {false, MapPlaces::Place{8, 1}, 4, "none", "m", "r"},
                      {false, MapPlaces::Place{9, 1}, 5, "1,300", "m", "r"}}),
              R"([{"severity":"error","line":7,"column":18,"field":3,"address":-20,)"
              R"("message":"m","remedy":"r"},)"
              R"({"severity":"warning","line":8,"column":1,"field":4,"address":null,)"
              R"("message":"m","remedy":"r"},)"
              R"({"severity":"warning","line":9,"column":1,"field":5,"address":"1,300",)"
              R"("message":"m","remedy":"r"}])"
              "\n");
}

}  // namespace
