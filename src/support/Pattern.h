// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Format.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

/// A Poco::format text together with the types of its arguments.
///
/// Poco::format checks types only when it runs, and then prints "[ERRFMT]" into the text. Declared
/// `constexpr`, a pattern whose placeholders do not fit its types does not compile, and a call
/// converts its arguments to exactly those types:
///
///     constexpr Pattern<int> ADDRESS_NOT_FOUND("address '%d' not found");
///     throw tesk::NotFoundException(ADDRESS_NOT_FOUND(address));
///
/// @tparam Args the argument types in order, one per placeholder: `int` for "%d", `int` or
///         `unsigned` for "%?u", `unsigned` for "%u", `std::size_t` for "%z", `std::string` for
///         "%s"
template <typename... Args>
class Pattern {
 public:
    /// @param patternText the text; must outlive the pattern (a literal does)
    explicit constexpr Pattern(const char* patternText) : text(patternText) {
        std::string_view rest(patternText);
        if (!(takes<Args>(rest) && ...) || nextPlaceholder(rest)) {
            throw std::logic_error("the placeholders of a pattern do not fit its types");
        }
    }

    /// The text with its placeholders replaced by the arguments.
    std::string operator()(const Args&... args) const {
        if constexpr (sizeof...(Args) == 0) {
            return text;
        } else {
            return Poco::format(text, args...);
        }
    }

 private:
    /// Moves `rest` behind the next '%'; false when there is none.
    static constexpr bool nextPlaceholder(std::string_view& rest) {
        const auto percent = rest.find('%');
        rest.remove_prefix(percent == std::string_view::npos ? rest.size() : percent + 1);
        return percent != std::string_view::npos;
    }

    /// Whether the next placeholder of `rest` prints a T.
    template <typename T>
    static constexpr bool takes(std::string_view& rest) {
        if (!nextPlaceholder(rest)) {
            return false;
        }
        const auto starts = [&rest](std::string_view code) {
            return rest.substr(0, code.size()) == code;
        };
        return (std::is_same_v<T, std::string> && starts("s")) ||
               (std::is_same_v<T, int> && (starts("d") || starts("?u"))) ||
               (std::is_same_v<T, unsigned> && (starts("u") || starts("?u"))) ||
               (std::is_same_v<T, std::size_t> && starts("z"));
    }

    const char* text;
};
