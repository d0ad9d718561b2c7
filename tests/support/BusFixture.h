// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "BusClient.h"
#include "PrivateBus.h"
#include "Process.h"
#include "TemporaryDirectory.h"

/// A test against the real daemon on a real bus of its own.
class BusFixture : public testing::Test {
 protected:
    /// Starts iomappingd and waits until it serves.
    ///
    /// @param map the text of its map file
    /// @param options further arguments
    Process& startService(const std::string& map, const std::vector<std::string>& options = {});

    /// Starts iomappingd without waiting for anything.
    std::unique_ptr<Process> launch(const std::string& map,
                                    const std::vector<std::string>& options = {},
                                    const std::map<std::string, std::string>& environment = {});

    /// A map file with these fields, each a JSON object.
    static std::string mapOf(const std::vector<std::string>& fields);

    /// The path of the daemon under test.
    static const std::string DAEMON;

    TemporaryDirectory directory;
    PrivateBus bus;

 private:
    std::unique_ptr<Process> daemon;
};
