// SPDX-License-Identifier: MIT
#include <Poco/RegularExpression.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

/// Poco's own formatting checks types only when it runs, and then prints "[ERRFMT]" into the text.
/// All texts therefore come from patterns that the compiler checks, but for the few uses below.

namespace {

using testing::IsEmpty;

std::vector<std::string> matches(const std::string& text, const Poco::RegularExpression& pattern) {
    std::vector<std::string> result;
    Poco::RegularExpression::Match match{};
    for (std::size_t from = 0; pattern.match(text, from, match) > 0;
         from = match.offset + match.length) {
        result.push_back(text.substr(match.offset, match.length));
    }
    return result;
}

/// The calls in a source text that have Poco format something when the program runs.
std::vector<std::string> formattingCalls(const std::string& source) {
    static const Poco::RegularExpression CALL(
        // Poco::format, and what would let it be called without its namespace
        "Poco::format\\s*[(;]|(?<![\\w:])format\\s*\\(|using\\s+namespace\\s+Poco\\b"
        // a level of a logger, called with an argument: without one it is only a question
        "|(\\.|->)\\s*(fatal|critical|error|warning|notice|information|debug|trace)"
        "\\s*\\((?!\\s*\\))"
        // the macros for the same
        "|\\bpoco_[a-z]+(_f[0-9]?)?\\s*\\(");
    return matches(source, CALL);
}

/// The patterns that a source text declares without `constexpr`.
std::vector<std::string> uncheckedPatterns(const std::string& source) {
    static const Poco::RegularExpression PATTERN(
        "(?<!constexpr )\\bPattern<[^;(){}&]*>\\s+\\w+\\s*[({]");
    return matches(source, PATTERN);
}

/// What a search finds in the product's sources: how often, by file.
std::map<std::string, std::size_t> inSources(
    std::vector<std::string> (*search)(const std::string& source)) {
    const std::filesystem::path root(SOURCE_ROOT);
    std::map<std::string, std::size_t> found;
    std::istringstream folders(SOURCE_FOLDERS);
    for (std::string directory; folders >> directory;) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root / directory)) {
            if (!entry.is_regular_file()) {
                continue;
            }
            const std::size_t count = search(readFile(entry.path())).size();
            if (count > 0) {
                found[std::filesystem::relative(entry.path(), root).string()] = count;
            }
        }
    }
    return found;
}

TEST(PatternUseTest, NothingIsFormattedPastThePatternsButInTheKnownPlaces) {
    const std::map<std::string, std::size_t> allowed{
        // the formatter of the log, which gets what the patterns have made
        {"program/StandardErrorChannel.cpp", 1},
        // the line that is meant to hold the marker: a logger's call and its text
        {"src/DBusObject.cpp", 2},
        // the patterns themselves
        {"src/support/Pattern.h", 1},
        // what stands below the patterns
        {"tesk/Json.cpp", 1},
    };
    for (const auto& [file, count] : inSources(formattingCalls)) {
        const auto place = allowed.find(file);
        EXPECT_LE(count, place == allowed.end() ? 0U : place->second) << file;
    }
    EXPECT_EQ(inSources(formattingCalls).count("src/support/Pattern.h"), 1U)
        << "nothing was searched";
}

TEST(PatternUseTest, EveryPatternIsCheckedByTheCompiler) {
    EXPECT_THAT(inSources(uncheckedPatterns), IsEmpty());
}

TEST(PatternUseTest, TheSearchFindsEveryWayToFormat) {
    for (const std::string source :
         {"throw X(Poco::format(\"%d\", a));", "Poco::format (text, a)", "using Poco::format;",
          "using namespace Poco;", "auto t = format(\"%d\", a);", "logger.error(\"%d\", a);",
          "obj->logger.warning(text)", "logger->information(\n    \"%s\", text)",
          "logger\n    .fatal( text )", "poco_error_f1(logger, \"%d\", a)",
          "poco_trace(logger, t)"}) {
        EXPECT_EQ(formattingCalls(source).size(), 1U) << source;
    }
    for (const std::string source :
         {"if (logger.warning()) {", "obj->logger.error( )", "Poco::format checks types",
          "reformat(a)", "Other::format(a)", "error(a)", "log(logger, PRIO_ERROR, FAILED, a)"}) {
        EXPECT_THAT(formattingCalls(source), IsEmpty()) << source;
    }
}

TEST(PatternUseTest, TheSearchFindsAPatternThatIsNotConstexpr) {
    for (const std::string source :
         {"const Pattern<int> BAD(\"%d\");", "static Pattern<std::string, int> BAD{text};",
          "\nPattern<> BAD (text);", "    const Pattern<std::size_t>\n        BAD(\"%z\");"}) {
        EXPECT_EQ(uncheckedPatterns(source).size(), 1U) << source;
    }
    for (const std::string source : {"constexpr Pattern<int> GOOD(\"%d\");",
                                     "constexpr Pattern<std::string, int> GOOD{\"%s\"};",
                                     "void log(const Pattern<Args...>& pattern, int a) {"}) {
        EXPECT_THAT(uncheckedPatterns(source), IsEmpty()) << source;
    }
}

}  // namespace
