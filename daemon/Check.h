// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

/// Checks the map for this device or for the one that the options name, and the file of labels.
/// Prints what is found to standard output. Needs no bus, configures nothing and writes nothing.
///
/// @return the exit status: EXIT_SUCCESS, or EXIT_FAILURE if the service would refuse the map, or
///         clients the labels
/// @throws UsageError the options name a driver that there is not
int checkMap(const Options& options);
