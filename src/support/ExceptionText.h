// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <string>

/// What an exception has to say, for log lines and error replies.
///
/// `Poco::Exception::what()` is only the name of the class; for that family this is the display
/// text, which holds both name and message. For every other exception it is `what()` unchanged.
std::string exceptionText(const std::exception& exception);
