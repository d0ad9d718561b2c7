// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Logger.h>

#include <istream>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "DriverManager.h"
#include "RegisterType.h"
#include "tesk/Exceptions.h"

/// The JSON file that lists the fields of registers.
///
/// Used by the library for the registers, and by the daemon, before there is a bus, for the GPIO
/// chips. Both read the same file with the same code, each at its time.
namespace MapFile {

/// What the file says of one field.
struct Field {
    int address;
    unsigned int size;
    int count;
    RegisterType type;
    /// The name of the driver, also of a missing one.
    std::string driverName;
    /// Null only for a field whose driver is missing and that falls back on virtual registers.
    std::shared_ptr<DriverInterface> driver;
};

/// Why a file cannot be read as a map: the system's words for its error, or "Is not a regular
/// file". Empty when it can be read. Never waits, not even for the writer of a pipe.
std::string readingFault(const std::string& path);

/// Reads the file.
///
/// @return the elements of "io_mapping"; null when that is no array
/// @throws tesk::ParseException "map file not found"; "error parsing file '%s'" when the
///         file cannot be read or the root is no object; "io mapping not found" without the key
///         "io_mapping"; or the JSON parser's words
Poco::JSON::Array::Ptr readFields(const std::string& path);

/// Reads the file ahead of readFields(), which then does not parse the same text again. For the
/// thread of readFields().
///
/// @param word what the file must contain to be worth parsing; without a backslash or a quote
/// @return null when the file cannot contain the word in a value, and for all that readFields()
///         refuses
Poco::JSON::Array::Ptr readAhead(const std::string& path, const std::string& word);

/// readFields() for the text of a file.
///
/// @param path for the message only
/// @param gaveUpAt see tesk::jsonParse()
/// @throws tesk::ParseException see readFields()
Poco::JSON::Array::Ptr parseFields(std::istream& text, const std::string& path,
                                   std::size_t* gaveUpAt = nullptr);

/// A field breaks a rule of the map. The text is the error line of the log.
class FieldRefused : public tesk::Exception {
 public:
    using tesk::Exception::Exception;
};

/// The rules of the keys of a field, in the order in which readField() applies them. Each reads one
/// key.
///
/// @throws FieldRefused the key is missing or its value is refused
/// @throws tesk::NotFoundException "IO type '%s' not found"
/// @throws Poco::Exception the JSON value is of the wrong type
/// @{
int readAddress(const Poco::JSON::Object::Ptr& field);
unsigned int readSize(const Poco::JSON::Object::Ptr& field);
int readCount(const Poco::JSON::Object::Ptr& field);
RegisterType readType(const Poco::JSON::Object::Ptr& field);
std::string readDriverName(const Poco::JSON::Object::Ptr& field);
/// @}

/// The driver with a name; null if it is missing and the field falls back on virtual registers.
///
/// @param address for the message only
/// @throws FieldRefused the driver is missing, and the field has no virtual backup
/// @throws Poco::Exception the JSON value of the backup is of the wrong type
std::shared_ptr<DriverInterface> findDriver(const Poco::JSON::Object::Ptr& field,
                                            const std::string& name, int address,
                                            DriverManager& drivers);

/// Reads one field and looks its driver up.
///
/// @param logger gets one line at error with the reason when the field is refused
/// @return nothing when the field is refused
/// @throws tesk::NotFoundException "IO type '%s' not found"
/// @throws Poco::Exception a JSON value is of the wrong type
std::optional<Field> readField(const Poco::JSON::Object::Ptr& field, DriverManager& drivers,
                               Poco::Logger& logger);

/// No field can meet another one, nor the end of a board's IOs, behind so many registers.
inline constexpr int BEYOND_ALL_FAULTS = 65536;

/// Refuses a field that this machine can never hold.
///
/// @param count the number of its registers
/// @throws std::bad_alloc the machine has too little memory for so many registers, used or not
void requireMemoryFor(int count);

/// Whether a field may start at an address: 1 to 1300 and 60001 to 60101.
bool addressIsValid(int address);

/// The address that an element of "io_mapping" states, for a message; "none" where it states none.
std::string addressText(const Poco::Dynamic::Var& element);

/// Whether the library has a driver of this name: "kr62", or "pd5-7" for one of several. Says
/// nothing of the hardware of the driver.
bool driverIsKnown(const std::string& name);

/// Why a field whose driver is missing is virtual: the driver has no board, or there is no such
/// driver.
std::string whyVirtual(const std::string& driverName);

/// The number N of a driver's name "PREFIX-N".
///
/// @param prefix with the hyphen ("pd5-")
/// @return nothing for every other form, such as a number with leading zeros
std::optional<int> driverNumber(const std::string& name, const std::string& prefix);

/// The numbers of all drivers "PREFIX-N" that the fields of a file name. Passes over whatever is
/// wrong with the file or a field.
///
/// @param prefix with the hyphen ("gpiochip-")
std::set<int> driverNumbersIn(const std::string& path, const std::string& prefix);

}  // namespace MapFile
