// SPDX-License-Identifier: MIT
#pragma once

/// Gives the system back what nothing uses any more: memory of the heap that is free, and pages of
/// code that only a start, a handshake or a long answer has needed. What is needed again comes back
/// by itself. May be called from any thread.
void giveBackMemory();
