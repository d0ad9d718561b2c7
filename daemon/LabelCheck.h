// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Finding.h"

/// Reads a file of labels as clients do, and says all that is wrong with it, not only what is wrong
/// first.
///
/// @param path the file; one that is missing is a fault
/// @param hasRegister whether the map has a register at an address; empty if nobody knows, and then
///        no label is without a register
/// @return the findings in the order of the text; faults are among them exactly if clients refuse
///         the file
std::vector<Finding> checkLabels(const std::string& path,
                                 const std::function<bool(int)>& hasRegister);
