// SPDX-License-Identifier: MIT
#include "RegisterRequests.h"

#include <algorithm>
#include <array>
#include <vector>

#include "RegisterMap.h"
#include "support/ExceptionText.h"
#include "support/GLibOwners.h"
#include "support/Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> CALL_METHOD("call method '%s'\n");
constexpr Pattern<std::string> METHOD_NOT_FOUND("Method %s not found");
constexpr Pattern<std::size_t> LIST_LENGTH("Addresses lenght: %z");
constexpr Pattern<std::string> NO_ADDRESS_LIST(
    "the addresses must be an array of integers, type 'ai', not '%s'");

/// What a method works on.
struct Request {
    const RegisterMap& map;
    Poco::Logger& logger;
    GVariant* parameters;
};

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

GVariant* getAddrsPerType(const Request& request) {
    const auto type = static_cast<RegisterType>(firstInt(request.parameters));
    std::vector<gint32> addresses;
    for (const auto& reg : request.map.allRegisters()) {
        if (reg && reg->getType() == type) {
            addresses.push_back(reg->getAddress());
        }
    }
    return intArray(addresses);
}

GVariant* write(const Request& request) {
    gint32 address = 0;
    gint32 value = 0;
    g_variant_get(request.parameters, "(ii)", &address, &value);
    (*request.map.placeOf(address))->writeValue(value);
    return nullptr;
}

GVariant* read(const Request& request) {
    const int address = firstInt(request.parameters);
    return g_variant_new("(i)", (*request.map.placeOf(address))->readValue());
}

GVariant* readList(const Request& request) {
    const VariantOwner boxed(g_variant_get_child_value(request.parameters, 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ai")) == FALSE) {
        throw tesk::InvalidArgumentsException(
            NO_ADDRESS_LIST(g_variant_get_type_string(list.get())));
    }
    gsize count = 0;
    const auto* const addresses =
        static_cast<const gint32*>(g_variant_get_fixed_array(list.get(), &count, sizeof(gint32)));
    log(request.logger, Poco::Message::PRIO_INFORMATION, LIST_LENGTH, count);
    std::vector<gint32> values(count);
    // Most lists name neighbours in turn, and then nothing has to be looked up.
    const auto& registers = request.map.allRegisters();
    auto place = registers.begin();
    for (gsize i = 0; i < count; ++i) {
        if (place == registers.end() || (*place)->getAddress() != addresses[i]) {
            place = request.map.placeOf(addresses[i]);
        }
        values[i] = (*place++)->readValue();
    }
    return intArray(values);
}

GVariant* getParams(const Request& request) {
    const Register& reg = **request.map.placeOf(firstInt(request.parameters));
    return g_variant_new("(iii)", static_cast<gint32>(reg.getType()), reg.getIndex(),
                         static_cast<gint32>(reg.getMaxValue()));
}

/// A method's name, and what makes the reply's tuple, or null for an empty reply.
struct Method {
    const char* name;
    GVariant* (*run)(const Request& request);
};

constexpr std::array<Method, 5> METHODS{{
    {"GetAddrsPerType", getAddrsPerType},
    {"Write", write},
    {"Read", read},
    {"ReadList", readList},
    {"GetParams", getParams},
}};

}  // namespace

namespace RegisterRequests {

void carryOut(const RegisterMap& map, Poco::Logger& logger, const std::string& method,
              GVariant* parameters, GVariant** reply, GError** error) {
    log(logger, Poco::Message::PRIO_INFORMATION, CALL_METHOD, method);
    const auto* const called = std::find_if(
        METHODS.begin(), METHODS.end(), [&method](const Method& m) { return method == m.name; });
    if (called == METHODS.end()) {
        *error = busError(G_DBUS_ERROR_UNKNOWN_METHOD, METHOD_NOT_FOUND(method));
        return;
    }
    try {
        *reply = called->run({map, logger, parameters});
    } catch (const std::exception& e) {
        const std::string text = exceptionText(e);
        if (!text.empty()) {
            *error = busError(G_DBUS_ERROR_FAILED, text);
        }
    }
}

}  // namespace RegisterRequests
