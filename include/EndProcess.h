// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// Ends the process at once, without running destructors or exit handlers.
///
/// While the notification thread runs, `exit()` would destroy loggers and mutexes that the thread
/// still uses, and the process could abort instead of ending with its exit status. The service
/// therefore always ends through this function. Log lines written before the call have reached
/// their channel. Callable from any thread and from a signal handler.
///
/// @param status the exit status of the process
[[noreturn, gnu::visibility("default")]] void endProcess(int status) noexcept;
