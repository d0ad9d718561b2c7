// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// The word that somebody who has mistyped another one most likely means: one that the text begins,
/// or one that differs by few letters left out, added, replaced, or swapped with their neighbour.
/// At most one in three letters may differ.
///
/// @return nothing if no word is near enough; the first one of those that are equally near
std::string suggestionFor(const std::string& text, const std::vector<std::string>& words);
