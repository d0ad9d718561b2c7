// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Layout.h"

inline std::string fieldText(int address, int count, const std::string& type) {
    return R"({"address": )" + std::to_string(address) + R"(, "size": 32, "count": )" +
           std::to_string(count) + R"(, "type": ")" + type + R"(", "driver": "vadu"})";
}

/// A map file with all registers in as few fields as possible.
inline std::string mapOfFewFields() {
    return R"({"io_mapping": [)" + fieldText(FILE_FIRST, FILE_COUNT, "cpu_temp") + ",\n" +
           fieldText(VIRTUAL_FIRST, LOW_COUNT - FILE_COUNT, "virtual") + ",\n" +
           fieldText(HIGH_FIRST, HIGH_COUNT, "virtual") + "]}\n";
}

/// A map file with a field for each register: the longest there can be.
inline std::string mapOfManyFields() {
    std::string text = R"({"io_mapping": [)";
    for (int place = 0; place < REGISTER_COUNT; ++place) {
        text += (place == 0 ? "" : ",\n") +
                fieldText(addressAt(place), 1, place < FILE_COUNT ? "cpu_temp" : "virtual");
    }
    return text + "]}\n";
}
