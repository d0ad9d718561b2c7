// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Settings.h"

/// The secrets that systemd hands to the program, in files of a directory that only the program can
/// read. Secrets come no other way: not in the configuration, not on the command line.
struct Credentials {
    std::string password;  ///< Of the login; empty: none.
    std::string keyFile;   ///< With the key of the client's certificate; empty: none.

    /// @param directory what CREDENTIALS_DIRECTORY names; empty: there are none
    /// @throws Failure what the settings need is missing or cannot be read; names no secret
    static Credentials read(const std::string& directory, const BrokerSettings& broker);
};
