// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <string>

/// The text of an exception, for log lines and error replies.
///
/// For a Poco::Exception this is the display text, which holds the name of the class and the
/// message; its `what()` is the name alone. For every other exception it is `what()`.
std::string exceptionText(const std::exception& exception);
