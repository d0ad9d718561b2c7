// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "TopTable.h"

/// A key that means something to `iomap top`.
enum class Key { NONE, UP, DOWN, PAGE_UP, PAGE_DOWN, FIRST, LAST, SWITCH, YES, OTHER, QUIT };

/// Owns the screen of the terminal: clears it, and restores it at its end. One object at a time.
class Terminal {
 public:
    /// @throws Failure standard input or output is no terminal, or its type is unknown
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// The next key that was pressed; NONE if there is none. Waits for no
    /// more than the rest of a key that sends several characters.
    Key readKey();

    /// The size in characters. readKey() takes note of another one.
    int height() const;
    int width() const;

    /// Shows lines from the top; clears the rest of the screen.
    void draw(const std::vector<TopTable::Line>& lines);
};
