// SPDX-License-Identifier: MIT
#include "RegisterMap.h"

#include <Poco/File.h>

#include <algorithm>
#include <cassert>
#include <fstream>

#include "FileRegister.h"
#include "GpioRegister.h"
#include "ReservedRegister.h"
#include "support/ExceptionText.h"
#include "support/Log.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"

namespace {

constexpr Pattern<std::string> PARSING_FILE("parsing file '%s'");
constexpr Pattern<std::string> PARSING_FAILED("error parsing file '%s'");
constexpr Pattern<std::string> FAILED_IN_FILE("the fault is in map file '%s'");
constexpr Pattern<std::string, unsigned, std::string> FAILED_IN_FIELD(
    "the fault is in map file '%s', field io_mapping[%u], address %s");

constexpr Pattern<> ADDRESS_MISSING("address is missing");
constexpr Pattern<int> ADDRESS_INVALID("not valid address: %d");
constexpr Pattern<> SIZE_MISSING("size is missing");
constexpr Pattern<std::size_t> SIZE_INVALID("invalid value for size: %z");
constexpr Pattern<> COUNT_MISSING("count is missing");
constexpr Pattern<int> COUNT_INVALID("invalid value for count: %d");
constexpr Pattern<int> DRIVER_MISSING("driver not found or not supported on address %d");
constexpr Pattern<int> ADDRESS_DUPLICATED("address %d is duplicated");
constexpr Pattern<int> ADDRESS_NOT_FOUND("address '%d' not found");
constexpr Pattern<std::string> NEW_REGISTER("new register: %s");

constexpr Pattern<std::string> CALL_METHOD("call method '%s'\n");
constexpr Pattern<std::string> METHOD_NOT_FOUND("Method %s not found");
constexpr Pattern<std::size_t> LIST_LENGTH("Addresses lenght: %z");
constexpr Pattern<std::string> NO_ADDRESS_LIST(
    "the addresses must be an array of integers, type 'ai', not '%s'");
constexpr Pattern<std::string> NOTIFICATION_READ_FAILED("error reading value for notification: %s");
constexpr Pattern<std::string> NOTIFICATION_SEND_FAILED("error sending notification: %s");
constexpr Pattern<int, int> NOTIFICATION_SENT("notification sent with value %d for address %d");

/// Both ends included.
struct AddressRange {
    int first;
    int last;
};
constexpr std::array<AddressRange, 2> VALID_ADDRESSES{{{1, 1300}, {60001, 60101}}};

bool hasVirtualBackup(const Poco::JSON::Object::Ptr& field) {
    return field->has("virtual_backup") && field->getValue<bool>("virtual_backup");
}

/// The address that an element of "io_mapping" states, for a message.
std::string addressText(const Poco::Dynamic::Var& element) {
    return element.type() == typeid(Poco::JSON::Object::Ptr)
               ? element.extract<Poco::JSON::Object::Ptr>()->optValue<std::string>("address",
                                                                                   "none")
               : "none";
}

int firstInt(GVariant* parameters) {
    gint32 number = 0;
    g_variant_get_child(parameters, 0, "i", &number);
    return number;
}

GVariant* intArray(const std::vector<gint32>& numbers) {
    return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers.data(),
                                                          numbers.size(), sizeof(gint32)));
}

/// An error of the D-Bus domain. The bus carries UTF-8 only, and a text may quote a file.
GError* busError(GDBusError code, const std::string& text) {
    const StringOwner valid(g_utf8_make_valid(text.c_str(), -1));
    return g_error_new_literal(G_DBUS_ERROR, code, valid.get());
}

}  // namespace

const std::string RegisterMap::DBUS_OBJECT_NAME = "/org/mirel/register";

const std::string RegisterMap::DBUS_INTROSPECTION_XML = R"(<node>
  <interface name='org.mirel.Register'>
    <method name='GetAddrsPerType'>
      <arg type='i' name='type' direction='in'/>
      <arg type='v' name='indexes' direction='out'/>
    </method>
    <method name='Write'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='value' direction='in'/>
    </method>
    <method name='Read'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='value' direction='out'/>
    </method>
    <method name='ReadList'>
      <arg type='v' name='addresses' direction='in'/>
      <arg type='v' name='values' direction='out'/>
    </method>
    <method name='GetParams'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='type' direction='out'/>
      <arg type='i' name='index' direction='out'/>
      <arg type='i' name='maxValue' direction='out'/>
    </method>
    <signal name='OnValueChange'>
      <arg type='i' name='address'/>
      <arg type='i' name='value'/>
    </signal>
  </interface>
</node>
)";

const std::array<RegisterMap::Method, 5> RegisterMap::METHODS{{
    {"GetAddrsPerType", &RegisterMap::getAddrsPerType},
    {"Write", &RegisterMap::write},
    {"Read", &RegisterMap::read},
    {"ReadList", &RegisterMap::readList},
    {"GetParams", &RegisterMap::getParams},
}};

RegisterMap::RegisterMap(GDBusConnection* connection, const std::string& mapFilePath,
                         DriverManager& manager)
    : DBusObject("register-map", connection, DBUS_INTROSPECTION_XML, DBUS_OBJECT_NAME),
      driverManager(manager),
      mapFile(mapFilePath) {}

RegisterMap::~RegisterMap() = default;

// ---- the map file

void RegisterMap::parse() {
    log(logger, Poco::Message::PRIO_INFORMATION, PARSING_FILE, mapFile);
    unsigned int index = 0;
    Poco::JSON::Array::Ptr fields;
    try {
        fields = readFields();
        for (; index < fields->size(); ++index) {
            parseElement(fields->get(index));
        }
    } catch (const std::exception&) {
        if (!fields.isNull()) {
            log(logger, Poco::Message::PRIO_NOTICE, FAILED_IN_FIELD, mapFile, index,
                addressText(fields->get(index)));
        } else {
            log(logger, Poco::Message::PRIO_NOTICE, FAILED_IN_FILE, mapFile);
        }
        throw;
    }
}

void RegisterMap::parseElement(const Poco::Dynamic::Var& element) {
    if (!parseField(element.extract<Poco::JSON::Object::Ptr>())) {
        throw tesk::ParseException("error parsing field");
    }
}

Poco::JSON::Array::Ptr RegisterMap::readFields() const {
    if (!Poco::File(mapFile).exists()) {
        throw tesk::ParseException("map file not found");
    }
    std::ifstream file(mapFile);
    const Poco::JSON::Object::Ptr root = tesk::jsonParse(file);
    if (!root) {
        throw tesk::ParseException(PARSING_FAILED(mapFile));
    }
    if (!root->has("io_mapping")) {
        throw tesk::ParseException("io mapping not found");
    }
    return root->getArray("io_mapping");
}

bool RegisterMap::parseField(const Poco::JSON::Object::Ptr& field) {
    const std::optional<Field> description = readField(field);
    if (!description) {
        return false;
    }
    for (int index = 1; index <= description->count; ++index) {
        const int address = description->address + (index - 1);
        if (addressExists(address)) {
            log(logger, Poco::Message::PRIO_ERROR, ADDRESS_DUPLICATED, address);
            return false;
        }
        const std::shared_ptr<Register> reg = createRegister(*description, address, index);
        addRegisterAndSorter(reg);
        if (logger.information()) {
            log(logger, Poco::Message::PRIO_INFORMATION, NEW_REGISTER, reg->toString());
        }
    }
    return true;
}

std::optional<RegisterMap::Field> RegisterMap::readField(
    const Poco::JSON::Object::Ptr& field) const {
    const auto refuse = [this](const auto& reason, const auto&... args) {
        log(logger, Poco::Message::PRIO_ERROR, reason, args...);
        return std::nullopt;
    };
    if (!field->has("address")) {
        return refuse(ADDRESS_MISSING);
    }
    const int address = field->getValue<int>("address");
    if (!addressIsValid(address)) {
        return refuse(ADDRESS_INVALID, address);
    }
    if (!field->has("size")) {
        return refuse(SIZE_MISSING);
    }
    const auto size = static_cast<unsigned int>(field->getValue<int>("size"));
    if (size == 0) {
        return refuse(SIZE_INVALID, std::size_t{size});
    }
    if (!field->has("count")) {
        return refuse(COUNT_MISSING);
    }
    const int count = field->getValue<int>("count");
    if (count == 0) {
        return refuse(COUNT_INVALID, count);
    }
    RegisterType type = field->has("type") ? getTypeFromName(field->getValue<std::string>("type"))
                                           : RegisterType::VIRTUAL;
    const std::string driverName =
        field->has("driver") ? field->getValue<std::string>("driver") : "vadu";
    std::shared_ptr<DriverInterface> driver;
    try {
        driver = driverManager.getDriverByName(driverName);
    } catch (const tesk::NotFoundException&) {
        if (!hasVirtualBackup(field)) {
            return refuse(DRIVER_MISSING, address);
        }
        type = RegisterType::VIRTUAL;
    }
    return Field{address, size, count, type, driver};
}

std::shared_ptr<Register> RegisterMap::createRegister(const Field& field, int address, int index) {
    const auto onChange = [this](Register* reg) { createNotification(reg); };
    if (field.type == RegisterType::VIRTUAL) {
        return std::make_shared<Register>(address, field.type, index, field.size, onChange);
    }
    if (field.type == RegisterType::RESERVED) {
        return std::make_shared<ReservedRegister>(address, field.type, index, field.size);
    }
    if (field.driver->getDriverId() == DriverInterface::GPIOCHIP) {
        return std::make_shared<GpioRegister>(address, field.type, index, field.size, field.driver,
                                              onChange);
    }
    return std::make_shared<FileRegister>(address, field.type, index, field.size, field.driver,
                                          onChange);
}

// ---- the registers

void RegisterMap::addRegisterAndSorter(const std::shared_ptr<Register>& reg) {
    registers.insert(lowerBound(reg->getAddress()), reg);
}

bool RegisterMap::addressIsValid(int address) const {
    return std::any_of(
        VALID_ADDRESSES.begin(), VALID_ADDRESSES.end(),
        [address](const AddressRange& r) { return address >= r.first && address <= r.last; });
}

bool RegisterMap::addressExists(int address) const {
    const auto place = lowerBound(address);
    return place != registers.end() && (*place)->getAddress() == address;
}

std::shared_ptr<Register> RegisterMap::getRegisterByAddress(int address) const {
    const auto place = lowerBound(address);
    if (place == registers.end() || (*place)->getAddress() != address) {
        throw tesk::NotFoundException(ADDRESS_NOT_FOUND(address));
    }
    return *place;
}

RegisterMap::Registers::const_iterator RegisterMap::lowerBound(int address) const {
    return std::lower_bound(
        registers.begin(), registers.end(), address,
        [](const std::shared_ptr<Register>& reg, int a) { return reg->getAddress() < a; });
}

// ---- requests

void RegisterMap::onDBusObjMessage(const std::string& method, GVariant* parameters,
                                   GVariant** reply, GError** error) {
    log(logger, Poco::Message::PRIO_INFORMATION, CALL_METHOD, method);
    const auto* const called = std::find_if(
        METHODS.begin(), METHODS.end(), [&method](const Method& m) { return method == m.name; });
    if (called == METHODS.end()) {
        *error = busError(G_DBUS_ERROR_UNKNOWN_METHOD, METHOD_NOT_FOUND(method));
        return;
    }
    try {
        *reply = (this->*called->run)(parameters);
    } catch (const std::exception& e) {
        const std::string text = exceptionText(e);
        if (!text.empty()) {
            *error = busError(G_DBUS_ERROR_FAILED, text);
        }
    }
}

GVariant* RegisterMap::getAddrsPerType(GVariant* parameters) const {
    const auto type = static_cast<RegisterType>(firstInt(parameters));
    std::vector<gint32> addresses;
    for (const auto& reg : registers) {
        if (reg && reg->getType() == type) {
            addresses.push_back(reg->getAddress());
        }
    }
    return intArray(addresses);
}

GVariant* RegisterMap::write(GVariant* parameters) const {
    gint32 address = 0;
    gint32 value = 0;
    g_variant_get(parameters, "(ii)", &address, &value);
    getRegisterByAddress(address)->writeValue(value);
    return nullptr;
}

GVariant* RegisterMap::read(GVariant* parameters) const {
    return g_variant_new("(i)", getRegisterByAddress(firstInt(parameters))->readValue());
}

GVariant* RegisterMap::readList(GVariant* parameters) const {
    const VariantOwner boxed(g_variant_get_child_value(parameters, 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ai")) == FALSE) {
        throw tesk::InvalidArgumentsException(
            NO_ADDRESS_LIST(g_variant_get_type_string(list.get())));
    }
    gsize count = 0;
    const auto* const addresses =
        static_cast<const gint32*>(g_variant_get_fixed_array(list.get(), &count, sizeof(gint32)));
    log(logger, Poco::Message::PRIO_INFORMATION, LIST_LENGTH, count);
    std::vector<gint32> values;
    values.reserve(count);
    std::transform(addresses, addresses + count, std::back_inserter(values),
                   [this](gint32 a) { return getRegisterByAddress(a)->readValue(); });
    return intArray(values);
}

GVariant* RegisterMap::getParams(GVariant* parameters) const {
    const auto reg = getRegisterByAddress(firstInt(parameters));
    return g_variant_new("(iii)", static_cast<gint32>(reg->getType()), reg->getIndex(),
                         static_cast<gint32>(reg->getMaxValue()));
}

// ---- notifications

void RegisterMap::createNotification(Register* reg) {
    assert(reg != nullptr);
    int value = 0;
    try {
        value = reg->readValue();
    } catch (const std::exception& e) {
        log(logger, Poco::Message::PRIO_ERROR, NOTIFICATION_READ_FAILED, exceptionText(e));
        return;
    }
    GError* error = nullptr;
    if (sendSignal("OnValueChange", g_variant_new("(ii)", reg->getAddress(), value), &error)) {
        log(logger, Poco::Message::PRIO_INFORMATION, NOTIFICATION_SENT, value, reg->getAddress());
    } else {
        const ErrorOwner owner(error);
        log(logger, Poco::Message::PRIO_ERROR, NOTIFICATION_SEND_FAILED, error->message);
    }
}
