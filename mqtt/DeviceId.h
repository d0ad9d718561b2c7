// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// An id of this device that nobody can turn back into the id of its machine, which is secret: 32
/// hexadecimal digits. Devices with copies of one image have different ones, as their machine ids
/// differ.
///
/// @param file holds the id of the machine
/// @throws Failure the file has no id
std::string deviceIdOf(const std::string& file = "/etc/machine-id");
