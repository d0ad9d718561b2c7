// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "MapPlaces.h"

/// One thing that a check has to say of a map, or of a file of labels.
struct Finding {
    /// Whether the service refuses the map for it, or clients the labels.
    bool isFault{};
    /// Nothing if the finding is not about a place in the file.
    std::optional<MapPlaces::Place> place;
    /// The number of the field, counted from 0; nothing if the finding is not about a field.
    std::optional<std::size_t> field;
    /// The address that the field or the label states, as the file has it; "none" where it states
    /// none.
    std::string address;
    /// What is wrong: for a fault, the words with which the service refuses the map, or clients
    /// refuse the labels.
    std::string message;
    /// What to change.
    std::string remedy;
    /// The path of the file of labels; empty if the finding is about the map.
    std::string labelsFile{};
};

/// Prints a line for each finding: "FILE:LINE:COLUMN: error: field io_mapping[3], address 20:
/// MESSAGE; REMEDY". What a finding does not have is left out.
///
/// @param file the path of the map
void printLines(std::ostream& out, const std::string& file, const std::vector<Finding>& findings);

/// Prints the findings as one JSON array on one line. What a finding does not have is null,
/// but for the path of the file of labels, which is left out.
void printJson(std::ostream& out, const std::vector<Finding>& findings);
