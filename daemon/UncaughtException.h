// SPDX-License-Identifier: MIT
#pragma once

/// From now on, an exception that nobody catches, on whatever thread, ends the process with
/// EXIT_FAILURE and one fatal log line that has its type and text. By itself it would abort the
/// process, and the service manager would store a picture of its memory.
void endOnUncaughtException();
