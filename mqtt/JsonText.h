// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// A text as JSON has it, in quotes. Bytes that are no UTF-8 are replaced.
std::string quoted(const std::string& text);

/// A number as JSON has it, in its shortest form.
std::string numberText(double number);
