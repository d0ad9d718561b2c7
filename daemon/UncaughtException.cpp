// SPDX-License-Identifier: MIT
#include "UncaughtException.h"

#include <cxxabi.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "EndProcess.h"
#include "support/ExceptionText.h"
#include "support/Log.h"

namespace {

constexpr Pattern<std::string> UNCAUGHT("ended by an exception that nobody has caught: %s");

std::string typeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return name ? name.get() : type.name();
}

std::string currentExceptionText() {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        return "none, std::terminate() was called";
    }
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::exception& e) {
        return typeName(*type) + ": " + exceptionText(e);
    } catch (...) {
        return typeName(*type);
    }
}

[[noreturn]] void endWithLine() noexcept {
    try {
        log(Poco::Logger::get("iomappingd"), Poco::Message::PRIO_FATAL, UNCAUGHT,
            currentExceptionText());
    } catch (...) {  // NOLINT(bugprone-empty-catch): without memory there is no line
    }
    endProcess(EXIT_FAILURE);
}

}  // namespace

void endOnUncaughtException() {
    std::set_terminate(endWithLine);
}
