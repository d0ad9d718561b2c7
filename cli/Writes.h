// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "Arguments.h"
#include "IoMapping.h"

/// The raw value of an assignment to a name, whose value is a scaled one or a state.
///
/// @throws Failure names the register and the values that are possible
int rawOfScaled(IoMapping& io, const NamedAssignment& assignment, const Labels& labels);

/// Writes registers in the order given, up to the first that is refused. What the properties of the
/// registers tell already is refused as a whole before anything is written: an unknown address, a
/// value above the maximum, a type that is never written.
///
/// @param json whether to print what was written, or refused, as a JSON object
/// @throws Failure names the registers and the reasons, and what is written
void writeAll(IoMapping& io, const std::vector<Assignment>& assignments, bool json);
