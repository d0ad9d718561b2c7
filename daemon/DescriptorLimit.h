// SPDX-License-Identifier: MIT
#pragma once

/// Lets this process have as many open files as the drivers of GPIO chips need, or as many as it
/// may: they give descriptors numbers from 4096 on.
void raiseDescriptorLimit();
