// SPDX-License-Identifier: MIT
#include "Remedies.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

namespace {

struct Row {
    /// How the message begins.
    const char* message;
    const char* remedy;
};

/// The first row that fits counts.
constexpr std::array ROWS{
    Row{"address is missing", R"(add "address", or correct the misspelt key)"},
    Row{"not valid address", "use 1 to 1300 or 60001 to 60101"},
    Row{"size is missing", R"(add "size", or correct the misspelt key)"},
    Row{"invalid value for size", "use 1 to 32"},
    Row{"count is missing", R"(add "count", or correct the misspelt key)"},
    Row{"invalid value for count", "use 1 or more, or remove the field"},
    Row{"driver not found", R"(fit the board of the driver, or set "virtual_backup": true)"},
    Row{"IO type ", "use the name of a register type"},
    Row{"type '", R"(name the driver that serves the type; without "driver", it is "vadu")"},
    Row{"invalid PD5 index", "lower the count to 4"},
    Row{"invalid IO index", "lower the count to what the board has"},
    Row{"invalid led index", "lower the count to 2"},
    Row{"error requesting GPIO lines", "use one field with count 1 for each line of a chip"},
    Row{"error enabling notification",
        "see whether the board is complete and the file may be read"},
    Row{"std::bad_alloc", "lower the count: the machine has too little memory"},
    Row{"Out of range", "write a number of 32 bits"},
    Row{"Syntax error: Not a valid integer", "write the number without quotes"},
    Row{"Syntax error", "write a number of 64 bits"},
    Row{"Invalid access: Can not extract", "remove the element, or write a field in braces"},
    Row{"Invalid access", "replace the null, or remove the key"},
    Row{"Bad cast exception: Can not convert", "write the field in braces"},
    Row{"Bad cast exception", "write a number, true or false, or a name in quotes"},
    Row{"Null pointer", "put the fields in brackets"},
    Row{"io mapping not found", R"(add "io_mapping", in small letters, with an underscore)"},
    Row{"error parsing file", "put the whole file in braces"},
    Row{"JSON Exception: Maximum depth", "nest at most 128 deep"},
    Row{"JSON Exception", "correct the JSON here, or at the end of the line before"},
};

/// Whether two letters are one for a reader who misspells: a capital is a small letter, a hyphen an
/// underscore.
bool isSame(char one, char other) {
    const auto plain = [](char c) {
        return c == '-' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    };
    return plain(one) == plain(other);
}

/// How many letters must be added, removed or replaced, or exchanged with the next one, to turn one
/// word into the other.
std::size_t distance(const std::string& one, const std::string& other) {
    const std::size_t width = other.size() + 1;
    std::vector<std::size_t> changes((one.size() + 1) * width);
    const auto at = [&](std::size_t i, std::size_t j) -> std::size_t& {
        return changes[i * width + j];
    };
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                at(i, j) = i + j;
                continue;
            }
            const std::size_t replaced =
                at(i - 1, j - 1) + (isSame(one[i - 1], other[j - 1]) ? 0 : 1);
            at(i, j) = std::min({at(i - 1, j) + 1, at(i, j - 1) + 1, replaced});
            if (i > 1 && j > 1 && isSame(one[i - 1], other[j - 2]) &&
                isSame(one[i - 2], other[j - 1])) {
                at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
            }
        }
    }
    return changes.back();
}

}  // namespace

std::string remedyFor(const std::string& message) {
    const auto* const row = std::find_if(ROWS.begin(), ROWS.end(), [&message](const Row& r) {
        return message.rfind(r.message, 0) == 0;
    });
    return row != ROWS.end() ? row->remedy : "see io-mapping-map(5)";
}

std::string nearest(const std::string& misspelt, const std::vector<std::string>& words) {
    constexpr std::size_t LONGEST = 64;
    const std::string* best = nullptr;
    // More changes make another word of a short one.
    std::size_t least = misspelt.size() <= LONGEST ? misspelt.size() / 3 + 1 : 0;
    for (const std::string& word : words) {
        const std::size_t changes = least > 0 ? distance(misspelt, word) : least;
        if (changes < least) {
            least = changes;
            best = &word;
        }
    }
    return best != nullptr ? *best : "";
}
