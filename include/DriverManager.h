// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DriverInterface.h"
#include "tesk/ObjectBase.h"

/// The drivers of the device, by name.
///
/// Takes no lock: the host program fills it before it starts the server. The server only reads it.
class [[gnu::visibility("default")]] DriverManager : public tesk::ObjectBase {
 public:
    /// Has no driver yet.
    DriverManager();
    ~DriverManager() override;

    /// Registers a driver and shares its ownership.
    ///
    /// @throws tesk::AlreadyExistsException "driver already exists": another driver has this name;
    ///         the log tells the name
    void addDriver(const std::shared_ptr<DriverInterface>& driver);

    /// The driver with a name. The match is exact: case counts.
    ///
    /// @return the stored pointer, valid until the next addDriver()
    /// @throws tesk::NotFoundException "driver '%s' not found"
    const std::shared_ptr<DriverInterface>& getDriverByName(const std::string& name);

 private:
    std::vector<std::shared_ptr<DriverInterface>> drivers;
};
