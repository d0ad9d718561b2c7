// SPDX-License-Identifier: MIT
#include "BoardHealth.h"

#include <exception>
#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "MapFile.h"
#include "client/BoundedFile.h"
#include "client/Failure.h"

namespace {

/// The service looks for expanders under the numbers from 0 to this one.
constexpr int LAST_EXPANDER = 15;

constexpr std::size_t LONGEST_LIST = 4096;
constexpr std::size_t LONGEST_MAP = std::size_t{16} << 20;

/// The service has other registers than the file tells.
class OtherMap : public std::exception {};

std::vector<std::string> boardNames() {
    std::vector<std::string> names{"kr62"};
    for (int number = 0; number <= LAST_EXPANDER; ++number) {
        names.push_back("pd5-" + std::to_string(number));
    }
    return names;
}

std::string textOfFile(const std::string& path, std::size_t most) {
    const auto text = readBoundedFile(path, most);
    if (!text) {
        throw Failure("there is no file '" + path + "'");
    }
    return *text;
}

std::set<std::string> linesOf(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

BoardHealth::State stateOf(bool isFitted, bool isListed) {
    if (!isListed) {
        return BoardHealth::State::NOT_SERVED;
    }
    return isFitted ? BoardHealth::State::SERVED : BoardHealth::State::LOST;
}

/// One field of the map beside the registers that the service has made of it.
class ServedField {
 public:
    ServedField(const Poco::JSON::Object::Ptr& field, const std::map<int, RegisterType>& served)
        : first(MapFile::readAddress(field)),
          count(MapFile::readCount(field)),
          type(MapFile::readType(field)),
          driver(MapFile::readDriverName(field)),
          mayBeVirtual(field->optValue("virtual_backup", false)) {
        auto place = served.find(first);
        for (int i = 0; i < count; ++i, ++place) {
            if (place == served.end() || place->first != first + i || !take(place->second)) {
                throw OtherMap();
            }
        }
    }

    std::size_t size() const { return count > 0 ? static_cast<std::size_t>(count) : 0; }

    std::optional<BoardHealth::StandIn> standIn() const {
        if (actual == type) {
            return std::nullopt;
        }
        return BoardHealth::StandIn{first, first + count - 1, type, driver};
    }

 private:
    /// A field is virtual as a whole, or not at all.
    ///
    /// @return whether the service may have made a register of this type
    bool take(RegisterType served) {
        const bool isPossible = served == type || (mayBeVirtual && served == RegisterType::VIRTUAL);
        const bool isFirst = !std::exchange(isTaken, true);
        actual = isFirst ? served : actual;
        return isPossible && actual == served;
    }

    int first;
    int count;
    RegisterType type;
    std::string driver;
    bool mayBeVirtual;
    bool isTaken{false};
    RegisterType actual{type};
};

/// @throws OtherMap the service has other registers than this file tells
std::vector<BoardHealth::StandIn> standInsOf(const Poco::JSON::Array& fields,
                                             const std::map<int, RegisterType>& served) {
    std::vector<BoardHealth::StandIn> found;
    std::size_t registers = 0;
    for (const Poco::Dynamic::Var& element : fields) {
        const ServedField field(element.extract<Poco::JSON::Object::Ptr>(), served);
        registers += field.size();
        if (const auto standIn = field.standIn()) {
            found.push_back(*standIn);
        }
    }
    if (registers != served.size()) {
        throw OtherMap();
    }
    return found;
}

}  // namespace

BoardHealth::BoardHealth(const BoardPlaces& places, const std::map<int, RegisterType>& served) {
    lookAtBoards(places);
    try {
        compareMap(places.mapFile, served);
    } catch (const Failure& e) {
        notKnown.push_back(std::string("what is virtual in place of hardware: ") + e.what());
    }
}

void BoardHealth::lookAtBoards(const BoardPlaces& places) {
    std::set<std::string> list;
    try {
        list = linesOf(textOfFile(places.runtimeDirectory + "/boards", LONGEST_LIST));
        hasList = true;
    } catch (const Failure& e) {
        notKnown.push_back(std::string("which boards are served: ") + e.what());
    }
    for (const std::string& name : boardNames()) {
        std::error_code ignored;
        const bool isFitted =
            std::filesystem::exists(places.trees + "/" + name + "/info_io", ignored);
        const bool isListed = list.count(name) > 0;
        if (isFitted || isListed) {
            allBoards.push_back({name, hasList ? stateOf(isFitted, isListed) : State::FITTED});
        }
    }
}

void BoardHealth::compareMap(const std::string& path, const std::map<int, RegisterType>& served) {
    std::istringstream text(textOfFile(path, LONGEST_MAP));
    try {
        const Poco::JSON::Array::Ptr fields = MapFile::parseFields(text, path);
        if (!fields.isNull()) {
            virtualFields = standInsOf(*fields, served);
            return;
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the same as another map
    }
    throw Failure("the service has another map than '" + path + "'");
}

std::string BoardHealth::namesOf(State state) const {
    std::string names;
    for (const Board& board : allBoards) {
        if (board.state == state) {
            names += (names.empty() ? "" : ", ") + board.name;
        }
    }
    return names;
}

std::string BoardHealth::trouble() const {
    std::string addresses;
    for (const StandIn& standIn : virtualFields.value_or(std::vector<StandIn>())) {
        addresses += (addresses.empty() ? "" : ", ") + addressesOf(standIn);
    }
    std::string text;
    const auto add = [&text](const std::string& what, const std::string& which) {
        if (!which.empty()) {
            text += (text.empty() ? "" : "; ") + what + ": " + which;
        }
    };
    add("lost", namesOf(State::LOST));
    add("not served", namesOf(State::NOT_SERVED));
    add("virtual in place of hardware", addresses);
    return text;
}

std::string stateName(BoardHealth::State state) {
    switch (state) {
        case BoardHealth::State::SERVED:
            return "served";
        case BoardHealth::State::LOST:
            return "lost";
        case BoardHealth::State::NOT_SERVED:
            return "not served";
        case BoardHealth::State::FITTED:
            break;
    }
    return "fitted";
}

std::string addressesOf(const BoardHealth::StandIn& standIn) {
    return standIn.first == standIn.last
               ? std::to_string(standIn.first)
               : std::to_string(standIn.first) + "-" + std::to_string(standIn.last);
}
