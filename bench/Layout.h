// SPDX-License-Identifier: MIT
#pragma once

/// The registers that are measured, every address that a field may start at: the first are backed
/// by a file, the others virtual.
constexpr int FILE_FIRST = 1;
constexpr int FILE_COUNT = 1000;
constexpr int VIRTUAL_FIRST = FILE_FIRST + FILE_COUNT;
constexpr int LOW_COUNT = 1300;
constexpr int HIGH_FIRST = 60001;
constexpr int HIGH_COUNT = 101;
constexpr int REGISTER_COUNT = LOW_COUNT + HIGH_COUNT;

/// The place of an address among all registers, counted from 0.
constexpr int placeOf(int address) {
    return address < HIGH_FIRST ? address - FILE_FIRST : LOW_COUNT + address - HIGH_FIRST;
}

/// The address at a place.
constexpr int addressAt(int place) {
    return place < LOW_COUNT ? FILE_FIRST + place : HIGH_FIRST + place - LOW_COUNT;
}
