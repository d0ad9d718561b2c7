// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// Has SIGTERM and SIGINT end the process at once, with EXIT_SUCCESS, from now on.
///
/// @param lastWork is called before; must be callable from a signal handler
void endOnSignals(void (*lastWork)() noexcept = []() noexcept {});
