// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// Has SIGTERM and SIGINT end the process at once, with EXIT_SUCCESS, from now on.
void endOnSignals();
