// SPDX-License-Identifier: MIT
#include "Report.h"

#include <algorithm>
#include <iostream>

#include "ExitStatus.h"

int report(const std::string& program, std::string text, int status) {
    std::cout.flush();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << program << ": " << text << '\n';
    return status;
}

int reportUsageError(const std::string& program, const std::string& reason) {
    return report(program, reason + "; see " + program + " --help", EXIT_USAGE);
}
