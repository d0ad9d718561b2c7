// SPDX-License-Identifier: MIT
/// @file
#pragma once

/// Ends the process at once, without running destructors or exit handlers.
///
/// While the notification thread runs, `exit()` would destroy the loggers and mutexes under it, and
/// an abort would take the place of the exit status. Every end of the service goes through here.
/// Log lines written before the call have reached their channel. Callable from any thread and from
/// a signal handler.
///
/// @param status the exit status of the process
[[noreturn, gnu::visibility("default")]] void endProcess(int status) noexcept;
