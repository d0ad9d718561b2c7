// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "BoardIo.h"
#include "InfoIo.h"
#include "RegisterType.h"

/// The register types of a board in sysfs as a table, and what a driver does by the table.
///
/// All functions may be called from any thread.
namespace BoardTable {

/// A folder of a board's tree, which holds one folder per IO: "<base path>/<name>/<number>/".
struct Folder {
    /// Null for the base path itself, which holds the files of the whole board.
    const char* name{nullptr};
    /// Gives the kernel's number of the IO with an index; null for the base path itself.
    ///
    /// @throws tesk::InvalidArgumentsException there is no IO with this index
    int (*number)(int index, const InfoIo& counts){nullptr};
};

/// The file that selects the edges of an input, and what the file is to hold.
struct Edge {
    /// The name of the file in the IO's folder; null when there is none.
    const char* file{nullptr};
    /// The text of the file; null when there is none.
    const char* text{nullptr};
};

/// One register type that a board serves.
struct Row {
    RegisterType type{RegisterType::UNKNOWN};
    /// The folder of the value file.
    Folder folder{};
    /// The name of the value file.
    const char* file{nullptr};
    /// Whether a value may be written; the log states why it may not. Null when the type can only
    /// be read.
    bool (*accepts)(RegisterType type, int value, Poco::Logger& logger){nullptr};
    /// Whether changes of the value file are reported.
    bool isWatched{false};
    /// The edge that configuring an IO selects, if any.
    Edge edge{};
};

/// The rows of one board. The list does not own the rows: a driver keeps the list as a constant.
using Rows = std::initializer_list<Row>;

/// For Folder::number: the index itself, from 0 to a count of the board.
///
/// @tparam COUNT the count, which is an index too
/// @throws tesk::InvalidArgumentsException "invalid IO index %d"
template <std::uint32_t InfoIo::*COUNT>
int upTo(int index, const InfoIo& counts) {
    BoardIo::requireIndex(index, counts.*COUNT);
    return index;
}

/// For Row::accepts: accepts every value.
bool acceptAll(RegisterType type, int value, Poco::Logger& logger);

inline constexpr Folder RELAYS{"relays", upTo<&InfoIo::relays>};     ///< On every board.
inline constexpr Folder INPUTS{"inputs", upTo<&InfoIo::inputs>};     ///< On every board.
inline constexpr Folder ANALOGS{"analogs", upTo<&InfoIo::analogs>};  ///< On every board.
inline constexpr Folder WHOLE_BOARD{};                               ///< The base path itself.
inline constexpr std::nullptr_t READ_ONLY{nullptr};  ///< For Row::accepts: no value may be written.
inline constexpr bool WATCHED{true};                 ///< For Row::isWatched.
inline constexpr bool UNWATCHED{false};              ///< For Row::isWatched.
inline constexpr Edge BOTH_EDGES{"edge", "both"};    ///< Of a digital input.
inline constexpr Edge COUNTED_EDGE{"counter_edge", "rising"};  ///< Of a counter.

/// The path of a value file.
///
/// @throws tesk::InvalidArgumentsException from Folder::number
/// @throws tesk::UnsupportedException "type '%s' not supported": no row has this type
std::string fileName(Rows rows, RegisterType type, int index, const std::string& basePath,
                     const InfoIo& counts);

/// Writes the edge of a type's row into the edge file of an IO. Does nothing when no row has this
/// type or the row has no edge. The index is not checked; errors of the file are ignored.
void selectEdge(Rows rows, RegisterType type, int index, const std::string& basePath);

/// Whether a row has this type and is watched.
bool isWatched(Rows rows, RegisterType type);

/// Whether a value may be written; the log states why it may not.
///
/// @throws tesk::UnsupportedException "write not supported for IO type %s": the type can only be
///         read; "type '%s' not supported": no row has this type
bool isValueValid(Rows rows, RegisterType type, int value, Poco::Logger& logger);

}  // namespace BoardTable
