// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Lists the boards that the service serves in the file "boards" of the directory that the variable
/// RUNTIME_DIRECTORY names, a line each. Does nothing where systemd has set no such directory.
///
/// Others see the old list or the whole new one, never a part. A list that cannot be written is one
/// warning in the log.
///
/// @param boards the names of the boards' drivers
void listServedBoards(const std::vector<std::string>& boards);
