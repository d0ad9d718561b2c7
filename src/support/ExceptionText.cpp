// SPDX-License-Identifier: MIT
#include "ExceptionText.h"

#include <Poco/Exception.h>

std::string exceptionText(const std::exception& exception) {
    const auto* const poco = dynamic_cast<const Poco::Exception*>(&exception);
    return poco != nullptr ? poco->displayText() : exception.what();
}
