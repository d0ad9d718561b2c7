// SPDX-License-Identifier: MIT
#include "BoardTable.h"

#include <algorithm>

#include "DriverRefusal.h"

namespace {

/// The path of a file of one IO.
std::string ioFile(const std::string& basePath, const BoardTable::Folder& folder, int number,
                   const char* name) {
    return basePath + "/" + folder.name + "/" + std::to_string(number) + "/" + name;
}

/// The row with a type; null when there is none.
const BoardTable::Row* find(BoardTable::Rows rows, RegisterType type) {
    const auto* const row = std::find_if(
        rows.begin(), rows.end(), [type](const BoardTable::Row& r) { return r.type == type; });
    return row == rows.end() ? nullptr : row;
}

const BoardTable::Row& require(BoardTable::Rows rows, RegisterType type) {
    const BoardTable::Row* const row = find(rows, type);
    if (row == nullptr) {
        DriverRefusal::unsupportedType(type);
    }
    return *row;
}

}  // namespace

namespace BoardTable {

bool acceptAll(RegisterType /*type*/, int /*value*/, Poco::Logger& /*logger*/) {
    return true;
}

std::string fileName(Rows rows, RegisterType type, int index, const std::string& basePath,
                     const InfoIo& counts) {
    const Row& row = require(rows, type);
    if (row.folder.number == nullptr) {
        return basePath + "/" + row.file;
    }
    return ioFile(basePath, row.folder, row.folder.number(index, counts), row.file);
}

void selectEdge(Rows rows, RegisterType type, int index, const std::string& basePath) {
    const Row* const row = find(rows, type);
    if (row != nullptr && row->edge.file != nullptr) {
        BoardIo::writeEdge(ioFile(basePath, row->folder, index, row->edge.file), row->edge.text);
    }
}

bool isWatched(Rows rows, RegisterType type) {
    const Row* const row = find(rows, type);
    return row != nullptr && row->isWatched;
}

bool isValueValid(Rows rows, RegisterType type, int value, Poco::Logger& logger) {
    const Row& row = require(rows, type);
    if (row.accepts == nullptr) {
        DriverRefusal::unsupportedWrite(type);
    }
    return row.accepts(type, value, logger);
}

}  // namespace BoardTable
