// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "DriverManager.h"
#include "Finding.h"
#include "MapFile.h"

/// Reads a map as the service would, and says all that is wrong with it, not only what is wrong
/// first.
///
/// The rules are those of MapFile and of the drivers. Nothing is configured, watched or written.
class MapCheck {
 public:
    /// @param driverManager the drivers of the device; must outlive the check
    /// @param lookAtFiles whether the value files must be there: the drivers are those of this
    /// device
    MapCheck(DriverManager& driverManager, bool lookAtFiles);

    /// @param path the map file
    /// @return the findings in the order of the file's fields; faults are among them exactly if the
    ///         service refuses the map
    std::vector<Finding> check(const std::string& path);

    /// Whether the map that was checked last has a register at an address. Fields whose address or
    /// count is at fault count for none.
    bool hasRegister(int address) const;

 private:
    class FieldCheck;

    /// The addresses of the registers of one field.
    struct Addresses {
        std::size_t field;
        std::int64_t first;
        std::int64_t last;
    };

    bool parse(const std::string& path);
    void findPlaces();
    void tellNoFields(const std::string& message);
    void checkRootKeys();
    void checkElement(std::size_t number, const Poco::Dynamic::Var& element);

    DriverManager& drivers;
    bool filesCount;

    std::string text;
    Poco::JSON::Array::Ptr elements;
    std::vector<MapPlaces::Key> rootKeys;
    std::vector<MapPlaces::Field> places;
    std::vector<Addresses> taken;
    /// The first register on each IO: its address by the name of the IO.
    std::map<std::string, int> ios;
    std::vector<Finding> findings;
};
