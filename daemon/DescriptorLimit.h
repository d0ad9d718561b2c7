// SPDX-License-Identifier: MIT
#pragma once

/// Raises the limit of open files of this process to 8192, or to the hard limit where the process
/// may not raise that one. A higher limit stays.
///
/// The drivers of GPIO chips need it: they give descriptors numbers from 4096 on.
void raiseDescriptorLimit();
