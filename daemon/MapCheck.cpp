// SPDX-License-Identifier: MIT
#include "MapCheck.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <type_traits>
#include <utility>

#include "KR62Driver.h"
#include "PD5Driver.h"
#include "Remedies.h"
#include "support/ExceptionText.h"

namespace {

const std::vector<std::string> FIELD_KEYS{"address", "size",   "count",
                                          "type",    "driver", "virtual_backup"};

constexpr int MOST_BITS = 32;

constexpr const char* FIELDS_KEY = "io_mapping";
constexpr const char* DRIVER_FORMS = "use vadu, special, kr62, pd5-N or gpiochip-N";

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string pointTo(const std::string& suggestion, const std::string& otherwise) {
    return suggestion.empty() ? otherwise : "write " + quoted(suggestion);
}

std::vector<std::string> typeNames() {
    std::vector<std::string> names;
    for (const RegisterType type : getAllTypes()) {
        names.push_back(getTypeName(type));
    }
    return names;
}

/// The names that drivers have, for one with a number: with the number of another name.
std::vector<std::string> driverNames(const std::string& other) {
    const std::size_t hyphen = other.find_last_of("-_");
    std::string number = hyphen == std::string::npos ? "" : other.substr(hyphen + 1);
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
        number = "0";
    }
    return {"vadu", "kr62", "special", "pd5-" + number, "gpiochip-" + number};
}

bool isWatched(const DriverInterface& driver, RegisterType type) {
    switch (driver.getDriverId()) {
        case DriverInterface::KR62:
            return KR62Driver::isWatched(type);
        case DriverInterface::PD5:
            return PD5Driver::isWatched(type);
        default:
            return false;
    }
}

/// What a size means that is not from 1 to 32: the registers keep its lowest 8 bits.
std::string meaningOf(unsigned int size) {
    const unsigned int bits = size & 0xFFU;
    if (bits == 0) {
        return "only the value 0 may be written";
    }
    return "the service takes it as " + std::to_string(std::min<unsigned>(bits, MOST_BITS));
}

}  // namespace

/// The check of one field.
class MapCheck::FieldCheck {
 public:
    FieldCheck(MapCheck& mapCheck, std::size_t fieldNumber, Poco::JSON::Object::Ptr fieldObject,
               std::string fieldAddress)
        : check(mapCheck),
          number(fieldNumber),
          field(std::move(fieldObject)),
          addressText(std::move(fieldAddress)) {}

    void run() {
        checkKeys();
        const auto address = readNumber("address", MapFile::readAddress);
        const auto size = readNumber("size", MapFile::readSize);
        const auto count = readNumber("count", MapFile::readCount);
        const auto type = read("type", MapFile::readType);
        const auto name = read("driver", MapFile::readDriverName);
        if (size) {
            checkSize(*size);
        }
        if (address && count) {
            checkAddresses(*address, *count);
        }
        if (!name) {
            return;
        }
        const auto driver = read("driver", [&](const Poco::JSON::Object::Ptr& object) {
            return MapFile::findDriver(object, *name, address.value_or(0), check.drivers);
        });
        if (driver && *driver == nullptr) {
            tellFallback(*name, count.value_or(1));
        } else if (driver && address && count && type && usesDriver(*type)) {
            checkIos(**driver, *type, *address, std::min(*count, MapFile::BEYOND_ALL_FAULTS));
        }
    }

 private:
    static bool usesDriver(RegisterType type) {
        return type != RegisterType::VIRTUAL && type != RegisterType::RESERVED;
    }

    template <typename Rule>
    using Result = std::optional<std::invoke_result_t<const Rule&, const Poco::JSON::Object::Ptr&>>;

    /// What a rule makes of the field. Where the field breaks the rule, that is a fault at a key.
    template <typename Rule>
    Result<Rule> read(const char* key, const Rule& rule) {
        try {
            return rule(field);
        } catch (const std::exception& e) {
            const std::string message = exceptionText(e);
            fault(key, message, remedy(key, message));
            return std::nullopt;
        }
    }

    /// The same, with a warning of a number in a form in which nobody means it.
    template <typename Rule>
    Result<Rule> readNumber(const char* key, const Rule& rule) {
        const Result<Rule> result = read(key, rule);
        if (result) {
            checkForm(key);
        }
        return result;
    }

    std::string remedy(const std::string& key, const std::string& message) const {
        const Poco::Dynamic::Var value = field->get(key);
        if (value.isEmpty()) {
            return remedyFor(message);
        }
        const auto written = value.convert<std::string>();
        if (key == "type") {
            return pointTo(nearest(written, typeNames()), remedyFor(message));
        }
        if (key == "driver" && !MapFile::driverIsKnown(written)) {
            return pointTo(nearest(written, driverNames(written)), DRIVER_FORMS);
        }
        return remedyFor(message);
    }

    void checkKeys() {
        for (const MapPlaces::Key& key : MapPlaces::repeated(keys())) {
            add(false, key.place, "the key " + quoted(key.name) + " occurs again in this field",
                "remove one; the last one counts");
        }
        for (const MapPlaces::Key& key : keys()) {
            const bool isKnown =
                std::find(FIELD_KEYS.begin(), FIELD_KEYS.end(), key.name) != FIELD_KEYS.end();
            const std::string suggestion = isKnown ? "" : nearest(key.name, FIELD_KEYS);
            if (!suggestion.empty()) {
                add(false, key.place, "the service ignores the key " + quoted(key.name),
                    "write " + quoted(suggestion) + ", unless it is a note");
            }
        }
        if (field->has("virtual_backup") && !field->get("virtual_backup").isBoolean()) {
            warn("virtual_backup", "the virtual backup is neither true nor false",
                 "write true or false, without quotes");
        }
    }

    void checkForm(const char* key) {
        const Poco::Dynamic::Var value = field->get(key);
        const bool isFraction =
            value.isNumeric() && !value.isInteger() && !value.isBoolean() &&
            value.convert<double>() != static_cast<double>(value.convert<std::int64_t>());
        if (value.isString() || value.isBoolean() || isFraction) {
            warn(key, std::string("the ") + key + " is not written as an integer",
                 "write its digits, without quotes or a fraction");
        }
    }

    void checkSize(unsigned int size) {
        if (size > MOST_BITS) {
            warn("size",
                 "the size " + std::to_string(static_cast<int>(size)) +
                     " is not from 1 to 32: " + meaningOf(size),
                 "use 1 to 32");
        }
    }

    void checkAddresses(int address, int count) {
        if (count < 0) {
            warn("count", "the count " + std::to_string(count) + " makes no register",
                 "use 1 or more, or remove the field");
            return;
        }
        const Addresses mine{number, address, std::int64_t{address} + count - 1};
        constexpr std::int64_t LAST_OF_ALL = 60101;
        if (mine.last > LAST_OF_ALL || !MapFile::addressIsValid(static_cast<int>(mine.last))) {
            warn("count",
                 "the last address, " + std::to_string(mine.last) +
                     ", is beyond 1 to 1300 and 60001 to 60101",
                 "lower the count");
        }
        if (count >= MapFile::BEYOND_ALL_FAULTS && check.filesCount) {
            read("count", [count](const Poco::JSON::Object::Ptr&) {
                MapFile::requireMemoryFor(count);
                return true;
            });
        }
        tellShared(mine);
        check.taken.push_back(mine);
    }

    /// Tells the first address that another field has, too.
    void tellShared(const Addresses& mine) {
        const Addresses* shared = nullptr;
        for (const Addresses& other : check.taken) {
            if (other.first <= mine.last && mine.first <= other.last &&
                (shared == nullptr || other.first < shared->first)) {
                shared = &other;
            }
        }
        if (shared != nullptr) {
            fault(
                "address",
                "address " + std::to_string(std::max(mine.first, shared->first)) + " is duplicated",
                "move this field or field io_mapping[" + std::to_string(shared->field) +
                    "], or lower the count of the one in front");
        }
    }

    void tellFallback(const std::string& name, int count) {
        if (count < 0) {
            return;
        }
        warn("driver", "virtual, switching nothing: " + MapFile::whyVirtual(name),
             MapFile::driverIsKnown(name)
                 ? "fit the board, if the registers are to switch anything"
                 : pointTo(nearest(name, driverNames(name)), DRIVER_FORMS));
    }

    /// Asks the driver for each IO as the load does, until it refuses one.
    void checkIos(const DriverInterface& driver, RegisterType type, int address, int count) {
        bool isTold = false;
        for (int index = 1; index <= count; ++index) {
            std::string file;
            try {
                file = driver.getIOFileName(type, index);
            } catch (const std::exception& e) {
                const std::string message = exceptionText(e);
                fault(index == 1 ? "type" : "count", message, remedyFor(message));
                return;
            }
            const int earlier = claim(ioName(driver, type, index, file), address + index - 1);
            if (earlier != 0 && driver.getDriverId() == DriverInterface::GPIOCHIP) {
                const std::string message = "error requesting GPIO lines: Device or resource busy";
                fault(index == 1 ? "type" : "count", message, remedyFor(message));
                return;
            }
            if (earlier != 0 && !isTold) {
                isTold = true;
                warn(index == 1 ? "type" : "count",
                     "register " + std::to_string(address + index - 1) + " is on the same IO as " +
                         "register " + std::to_string(earlier),
                     "remove one of them");
            }
            if (check.filesCount && !file.empty() && !lookAt(driver, type, file)) {
                return;
            }
        }
    }

    /// The chip has one line for each type. Everything else without a file has the name of its
    /// index.
    static std::string ioName(const DriverInterface& driver, RegisterType type, int index,
                              const std::string& file) {
        if (!file.empty()) {
            return file;
        }
        const std::string name = driver.getName() + ' ' + getTypeName(type);
        return driver.getDriverId() == DriverInterface::GPIOCHIP
                   ? name
                   : name + ' ' + std::to_string(index);
    }

    /// Takes an IO for a register. Returns the address of the register that has it already, or 0.
    int claim(const std::string& io, int address) {
        const auto [entry, isNew] = check.ios.emplace(io, address);
        return isNew ? 0 : entry->second;
    }

    /// Whether the value file is there, and the edge file of an input. Tells what is not.
    bool lookAt(const DriverInterface& driver, RegisterType type, const std::string& file) {
        if (::access(file.c_str(), R_OK) != 0) {
            const std::string reason = std::strerror(errno);
            if (isWatched(driver, type)) {
                const std::string message =
                    "error enabling notification for file '" + file + "': " + reason;
                fault("type", message, remedyFor(message));
            } else {
                warn("type", "cannot read " + file + ": " + reason,
                     "every read of the register fails until the file is there");
            }
            return false;
        }
        const auto edge = std::filesystem::path(file).replace_filename("edge");
        if (type == RegisterType::INPUT_DIGITAL && ::access(edge.c_str(), F_OK) != 0) {
            warn("type", "there is no " + edge.string() + ": a change may never be announced",
                 "see whether the kernel driver of the board has a file for the edges");
            return false;
        }
        return true;
    }

    const std::vector<MapPlaces::Key>& keys() const {
        static const std::vector<MapPlaces::Key> NONE;
        return number < check.places.size() ? check.places[number].keys : NONE;
    }

    /// The place of the value of a key, or of the field without such a key.
    std::optional<MapPlaces::Place> placeOf(const std::string& name) const {
        if (const MapPlaces::Key* const key = MapPlaces::find(keys(), name)) {
            return key->value;
        }
        return number < check.places.size()
                   ? std::optional<MapPlaces::Place>(check.places[number].place)
                   : std::nullopt;
    }

    void fault(const std::string& key, const std::string& message, const std::string& remedy) {
        add(true, placeOf(key), message, remedy);
    }

    void warn(const std::string& key, const std::string& message, const std::string& remedy) {
        add(false, placeOf(key), message, remedy);
    }

    void add(bool isFault, const std::optional<MapPlaces::Place>& place, const std::string& message,
             const std::string& remedy) {
        check.findings.push_back({isFault, place, number, addressText, message, remedy});
    }

    MapCheck& check;
    std::size_t number;
    Poco::JSON::Object::Ptr field;
    std::string addressText;
};

MapCheck::MapCheck(DriverManager& driverManager, bool lookAtFiles)
    : drivers(driverManager), filesCount(lookAtFiles) {}

std::vector<Finding> MapCheck::check(const std::string& path) {
    if (parse(path)) {
        checkRootKeys();
        for (std::size_t number = 0; number < elements->size(); ++number) {
            checkElement(number, elements->get(static_cast<unsigned>(number)));
        }
    }
    return std::move(findings);
}

bool MapCheck::parse(const std::string& path) {
    const std::string unreadable = MapFile::readingFault(path);
    if (!unreadable.empty()) {
        findings.push_back({true, std::nullopt, std::nullopt, "",
                            "cannot read map file: " + unreadable, "name another one with --map"});
        return false;
    }
    std::ifstream file(path);
    text.assign(std::istreambuf_iterator<char>(file), {});
    std::istringstream stream(text);
    const std::size_t nowhere = text.size() + 1;
    std::size_t gaveUpAt = nowhere;
    try {
        elements = MapFile::parseFields(stream, path, &gaveUpAt);
        findPlaces();
        // The load fails with these words, too, where there is no array.
        static_cast<void>(elements->size());
        return true;
    } catch (const std::exception& e) {
        if (gaveUpAt != nowhere) {
            findings.push_back({true, MapPlaces::placeOf(text, gaveUpAt), std::nullopt, "",
                                exceptionText(e), remedyFor(exceptionText(e))});
        } else {
            findPlaces();
            tellNoFields(exceptionText(e));
        }
        return false;
    }
}

bool MapCheck::hasRegister(int address) const {
    return std::any_of(taken.begin(), taken.end(), [address](const Addresses& a) {
        return a.first <= address && address <= a.last;
    });
}

void MapCheck::findPlaces() {
    const MapPlaces all(text);
    rootKeys = all.rootKeys();
    places = all.fields();
}

/// The file is JSON, but there are no fields in it: tells it at the key that should have them.
void MapCheck::tellNoFields(const std::string& message) {
    MapPlaces::Place place;
    std::string remedy = remedyFor(message);
    for (const MapPlaces::Key& key : rootKeys) {
        if (key.name == FIELDS_KEY) {
            place = key.value;
        } else if (!nearest(key.name, {FIELDS_KEY}).empty()) {
            place = key.place;
            remedy = "write " + quoted(FIELDS_KEY) + " instead of " + quoted(key.name);
        }
    }
    findings.push_back({true, place, std::nullopt, "", message, remedy});
}

void MapCheck::checkRootKeys() {
    for (const MapPlaces::Key& key : MapPlaces::repeated(rootKeys)) {
        findings.push_back({false, key.place, std::nullopt, "",
                            "the key " + quoted(key.name) + " occurs again",
                            "remove one; the last one counts"});
    }
}

void MapCheck::checkElement(std::size_t number, const Poco::Dynamic::Var& element) {
    try {
        const auto& field = element.extract<Poco::JSON::Object::Ptr>();
        FieldCheck(*this, number, field, MapFile::addressText(element)).run();
    } catch (const std::exception& e) {
        const auto place = number < places.size()
                               ? std::optional<MapPlaces::Place>(places[number].place)
                               : std::nullopt;
        findings.push_back({true, place, number, MapFile::addressText(element), exceptionText(e),
                            remedyFor(exceptionText(e))});
    }
}
