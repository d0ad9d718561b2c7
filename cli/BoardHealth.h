// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "RegisterType.h"

/// Where a device tells of its boards.
struct BoardPlaces {
    std::string trees{"/sys/kernel"};                 ///< Holds a directory for each board.
    std::string runtimeDirectory{"/run/io-mapping"};  ///< Where the service lists its boards.
    std::string mapFile{"/etc/io-mapping/map.json"};  ///< The map that the service has loaded.
};

/// Which boards a device has, which of them the service serves, and which registers are virtual for
/// lack of a board. What cannot be known is said, and never guessed.
class BoardHealth {
 public:
    enum class State {
        SERVED,      ///< The service found the board when it started, and the board is there.
        LOST,        ///< The service found the board when it started, and the board has gone.
        NOT_SERVED,  ///< The board has come after the start of the service, or is broken.
        FITTED       ///< The board is there. Whether it is served cannot be known.
    };

    /// A board, by the name of its driver.
    struct Board {
        std::string name;
        State state;
    };

    /// The registers of one field of the map, virtual in place of hardware.
    struct StandIn {
        int first;
        int last;
        RegisterType type;   ///< What they would be with their hardware.
        std::string driver;  ///< The driver that is missing.
    };

    /// Looks at the device as it is now.
    ///
    /// @param served the type of each register that the service has, by address
    BoardHealth(const BoardPlaces& places, const std::map<int, RegisterType>& served);

    /// The IO board, then the expanders by number. Nothing if no board is there and none is known
    /// to be served.
    const std::vector<Board>& boards() const { return allBoards; }

    /// Whether the list of the served boards could be read.
    bool isServiceKnown() const { return hasList; }

    /// The registers that are virtual in place of hardware, in the order of the map; nothing if the
    /// service has another map.
    const std::optional<std::vector<StandIn>>& standIns() const { return virtualFields; }

    /// What cannot be known and why, a line each.
    const std::vector<std::string>& unknown() const { return notKnown; }

    /// What is not well, as one line; empty if nothing is. What cannot be known does not count.
    std::string trouble() const;

 private:
    void lookAtBoards(const BoardPlaces& places);
    void compareMap(const std::string& path, const std::map<int, RegisterType>& served);
    std::string namesOf(State state) const;

    std::vector<Board> allBoards;
    bool hasList{false};
    std::optional<std::vector<StandIn>> virtualFields;
    std::vector<std::string> notKnown;
};

/// "served", "lost", "not served" or "fitted".
std::string stateName(BoardHealth::State state);

/// The addresses "4" or "4-11".
std::string addressesOf(const BoardHealth::StandIn& standIn);
