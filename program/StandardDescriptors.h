// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// Gives each standard descriptor that the process was started without a place holder, which can be
/// neither read nor written.
///
/// Must precede everything that opens a descriptor. Otherwise a socket or a file could get the
/// number of standard error, and messages would be written into it.
void fillStandardDescriptors();
