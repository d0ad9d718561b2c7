// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// A text as JSON has it, in quotes. Bytes that are no UTF-8 are replaced.
std::string quoted(const std::string& text);

/// How deeply brackets are nested in a JSON document, or in what is to be one: a parser calls
/// itself for each level.
std::size_t depthOf(std::string_view json);

/// A number as JSON has it, in its shortest form.
std::string numberText(double number);
