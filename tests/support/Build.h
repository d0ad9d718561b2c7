// SPDX-License-Identifier: MIT
#pragma once

/// Whether this runs on an emulated processor, as builds for ARM do here, which takes some twenty
/// times as long for everything.
#ifdef __arm__
constexpr bool EMULATED = true;
#else
constexpr bool EMULATED = false;
#endif

/// Whether a sanitizer is compiled in, or a count of the lines that run. What these do to time and
/// memory is none of the service's doing, so tests of those look at less there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(COUNTS_LINES)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif
