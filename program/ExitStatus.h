// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// The exit status of a program whose command line cannot be understood. Work that is done ends
/// with EXIT_SUCCESS, work that fails with EXIT_FAILURE.
constexpr int EXIT_USAGE = 2;
