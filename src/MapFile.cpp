// SPDX-License-Identifier: MIT
#include "MapFile.h"

#include <Poco/File.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <sstream>
#include <utility>

#include "support/FileDescriptor.h"
#include "support/Log.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"

namespace {

constexpr Pattern<std::string> PARSING_FAILED("error parsing file '%s'");
constexpr Pattern<> ADDRESS_MISSING("address is missing");
constexpr Pattern<int> ADDRESS_INVALID("not valid address: %d");
constexpr Pattern<> SIZE_MISSING("size is missing");
constexpr Pattern<std::size_t> SIZE_INVALID("invalid value for size: %z");
constexpr Pattern<> COUNT_MISSING("count is missing");
constexpr Pattern<int> COUNT_INVALID("invalid value for count: %d");
constexpr Pattern<int> DRIVER_MISSING("driver not found or not supported on address %d");

constexpr Pattern<std::string> BOARD_MISSING("driver '%s' has no usable board or chip here");
constexpr Pattern<std::string> DRIVER_UNKNOWN(
    "there is no driver '%s'; see whether the name is misspelt");

/// What a register takes at least, with its logger.
constexpr unsigned long long REGISTER_MEMORY = 400;

constexpr const char* DEFAULT_DRIVER = "vadu";

/// Both ends included.
struct AddressRange {
    int first;
    int last;
};
constexpr std::array<AddressRange, 2> VALID_ADDRESSES{{{1, 1300}, {60001, 60101}}};

void require(const Poco::JSON::Object::Ptr& field, const char* key, const Pattern<>& reason) {
    if (!field->has(key)) {
        throw MapFile::FieldRefused(reason());
    }
}

bool hasVirtualBackup(const Poco::JSON::Object::Ptr& field) {
    return field->has("virtual_backup") && field->getValue<bool>("virtual_backup");
}

bool isOneOfSeveral(DriverInterface::Driver driver) {
    return driver == DriverInterface::PD5 || driver == DriverInterface::GPIOCHIP;
}

/// A map that was read ahead.
struct ParsedText {
    std::string text;
    Poco::JSON::Array::Ptr fields;
};

/// The last one, until the map is read in earnest.
std::optional<ParsedText>& parsedAhead() {
    static std::optional<ParsedText> parsed;
    return parsed;
}

std::string textOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The driver that one element of "io_mapping" names; none where the element is faulty.
std::optional<std::string> driverNameOf(const Poco::Dynamic::Var& element) {
    try {
        return MapFile::readDriverName(element.extract<Poco::JSON::Object::Ptr>());
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

namespace MapFile {

std::string readingFault(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        return "Is not a regular file";
    }
    // A directory, or a medium that is broken, can be opened but not read.
    char first = 0;
    return ::read(file.get(), &first, 1) == -1 ? std::strerror(errno) : "";
}

Poco::JSON::Array::Ptr readFields(const std::string& path) {
    if (!Poco::File(path).exists()) {
        throw tesk::ParseException("map file not found");
    }
    if (!readingFault(path).empty()) {
        throw tesk::ParseException(PARSING_FAILED(path));
    }
    const std::optional<ParsedText> ahead = std::exchange(parsedAhead(), std::nullopt);
    if (ahead && ahead->text == textOf(path)) {
        return ahead->fields;
    }
    std::ifstream file(path);
    return parseFields(file, path);
}

Poco::JSON::Array::Ptr readAhead(const std::string& path, const std::string& word) {
    std::string text = textOf(path);
    // Parsing a large map takes long. A word may also be written with escapes.
    if (text.find(word) == std::string::npos && text.find('\\') == std::string::npos) {
        return {};
    }
    try {
        std::istringstream json(text);
        Poco::JSON::Array::Ptr fields = parseFields(json, path);
        parsedAhead() = {std::move(text), fields};
        return fields;
    } catch (const std::exception&) {  // The map is read again, and its fault told, by the server.
        return {};
    }
}

Poco::JSON::Array::Ptr parseFields(std::istream& text, const std::string& path,
                                   std::size_t* gaveUpAt) {
    const Poco::JSON::Object::Ptr root = tesk::jsonParse(text, gaveUpAt);
    if (!root) {
        throw tesk::ParseException(PARSING_FAILED(path));
    }
    if (!root->has("io_mapping")) {
        throw tesk::ParseException("io mapping not found");
    }
    return root->getArray("io_mapping");
}

int readAddress(const Poco::JSON::Object::Ptr& field) {
    require(field, "address", ADDRESS_MISSING);
    const int address = field->getValue<int>("address");
    if (!addressIsValid(address)) {
        throw FieldRefused(ADDRESS_INVALID(address));
    }
    return address;
}

unsigned int readSize(const Poco::JSON::Object::Ptr& field) {
    require(field, "size", SIZE_MISSING);
    const auto size = static_cast<unsigned int>(field->getValue<int>("size"));
    if (size == 0) {
        throw FieldRefused(SIZE_INVALID(std::size_t{size}));
    }
    return size;
}

int readCount(const Poco::JSON::Object::Ptr& field) {
    require(field, "count", COUNT_MISSING);
    const int count = field->getValue<int>("count");
    if (count == 0) {
        throw FieldRefused(COUNT_INVALID(count));
    }
    return count;
}

RegisterType readType(const Poco::JSON::Object::Ptr& field) {
    return field->has("type") ? getTypeFromName(field->getValue<std::string>("type"))
                              : RegisterType::VIRTUAL;
}

std::string readDriverName(const Poco::JSON::Object::Ptr& field) {
    return field->has("driver") ? field->getValue<std::string>("driver") : DEFAULT_DRIVER;
}

std::shared_ptr<DriverInterface> findDriver(const Poco::JSON::Object::Ptr& field,
                                            const std::string& name, int address,
                                            DriverManager& drivers) {
    try {
        return drivers.getDriverByName(name);
    } catch (const tesk::NotFoundException&) {
        if (!hasVirtualBackup(field)) {
            throw FieldRefused(DRIVER_MISSING(address));
        }
        return nullptr;
    }
}

std::optional<Field> readField(const Poco::JSON::Object::Ptr& field, DriverManager& drivers,
                               Poco::Logger& logger) {
    try {
        Field read{};
        read.address = readAddress(field);
        read.size = readSize(field);
        read.count = readCount(field);
        read.type = readType(field);
        read.driverName = readDriverName(field);
        read.driver = findDriver(field, read.driverName, read.address, drivers);
        if (!read.driver) {
            read.type = RegisterType::VIRTUAL;
        }
        return read;
    } catch (const FieldRefused& refused) {
        writeLine(logger, Poco::Message::PRIO_ERROR, [&refused] { return refused.what(); });
        return std::nullopt;
    }
}

void requireMemoryFor(int count) {
    struct sysinfo machine {};
    const auto needed = static_cast<unsigned long long>(count) * REGISTER_MEMORY;
    if (::sysinfo(&machine) == 0 &&
        needed / machine.mem_unit > machine.totalram + machine.totalswap) {
        throw std::bad_alloc();
    }
}

bool addressIsValid(int address) {
    return std::any_of(
        VALID_ADDRESSES.begin(), VALID_ADDRESSES.end(),
        [address](const AddressRange& r) { return address >= r.first && address <= r.last; });
}

std::string addressText(const Poco::Dynamic::Var& element) {
    return element.type() == typeid(Poco::JSON::Object::Ptr)
               ? element.extract<Poco::JSON::Object::Ptr>()->optValue<std::string>("address",
                                                                                   "none")
               : "none";
}

bool driverIsKnown(const std::string& name) {
    const auto& known = DriverInterface::driverToStringMap;
    return std::any_of(known.begin(), known.end(), [&name](const auto& entry) {
        return isOneOfSeveral(entry.first) ? driverNumber(name, entry.second + "-").has_value()
                                           : entry.second == name;
    });
}

std::string whyVirtual(const std::string& driverName) {
    return driverIsKnown(driverName) ? BOARD_MISSING(driverName) : DRIVER_UNKNOWN(driverName);
}

std::optional<int> driverNumber(const std::string& name, const std::string& prefix) {
    int number = -1;
    if (name.rfind(prefix, 0) == 0) {
        std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number);
    }
    // A driver's own name has no other form.
    const bool isName = number >= 0 && prefix + std::to_string(number) == name;
    return isName ? std::optional<int>(number) : std::nullopt;
}

std::set<int> driverNumbersIn(const std::string& path, const std::string& prefix) {
    std::set<int> numbers;
    const Poco::JSON::Array::Ptr fields = readAhead(path, prefix);
    for (unsigned int index = 0; !fields.isNull() && index < fields->size(); ++index) {
        const std::optional<std::string> name = driverNameOf(fields->get(index));
        const auto number = name ? driverNumber(*name, prefix) : std::nullopt;
        if (number) {
            numbers.insert(*number);
        }
    }
    return numbers;
}

}  // namespace MapFile
