// SPDX-License-Identifier: MIT
#include "Suggestion.h"

#include <algorithm>
#include <cstddef>

namespace {

/// How many letters have to be left out, added, replaced or swapped with their neighbour to make
/// one text of another.
std::size_t distanceOf(const std::string& from, const std::string& to) {
    // Each row has the distances of a beginning of one text to all beginnings of the other.
    std::vector<std::vector<std::size_t>> rows(from.size() + 1,
                                               std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i) {
        for (std::size_t j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = rows[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[from.size()][to.size()];
}

}  // namespace

std::string suggestionFor(const std::string& text, const std::vector<std::string>& words) {
    constexpr std::size_t LETTERS_PER_FAULT = 3;
    std::string best;
    // A long text is no mistyped word, and would only take time.
    std::size_t least = std::min<std::size_t>((text.size() + 1) / LETTERS_PER_FAULT, 3) + 1;
    for (const std::string& word : words) {
        const bool isBegun = !text.empty() && word.compare(0, text.size(), text) == 0;
        const bool isFar = text.size() > 2 * word.size();
        const std::size_t distance = isBegun ? 0 : isFar ? least : distanceOf(text, word);
        if (distance < least) {
            least = distance;
            best = word;
        }
    }
    return best;
}
