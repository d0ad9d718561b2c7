// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "MapPlaces.h"

/// One thing that a check has to say of a map.
struct Finding {
    /// Whether the service refuses the map for it.
    bool isFault{};
    /// Nothing if the finding is not about a place in the file.
    std::optional<MapPlaces::Place> place;
    /// The number of the field, counted from 0; nothing if the finding is not about a field.
    std::optional<std::size_t> field;
    /// The address that the field states, as the file has it; "none" where it states none.
    std::string address;
    /// What is wrong: for a fault, the words with which the service refuses the map.
    std::string message;
    /// What to change.
    std::string remedy;
};

/// Prints a line for each finding: "FILE:LINE:COLUMN: error: field io_mapping[3], address 20:
/// MESSAGE; REMEDY". What a finding does not have is left out.
void printLines(std::ostream& out, const std::string& file, const std::vector<Finding>& findings);

/// Prints the findings as one JSON array on one line. What a finding does not have is null.
void printJson(std::ostream& out, const std::vector<Finding>& findings);
