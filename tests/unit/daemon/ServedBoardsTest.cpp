// SPDX-License-Identifier: MIT
#include "daemon/ServedBoards.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "CapturedLog.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class ServedBoardsTest : public testing::Test {
 protected:
    ServedBoardsTest() { ::setenv("RUNTIME_DIRECTORY", directory.path().c_str(), 1); }
    ~ServedBoardsTest() override { ::unsetenv("RUNTIME_DIRECTORY"); }

    std::string listed() const {
        std::ifstream file(directory.path() / "boards");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// The names of the files in the directory.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    CapturedLog log;
    TemporaryDirectory directory;
};

TEST_F(ServedBoardsTest, EachBoardIsALine) {
    listServedBoards({"kr62", "pd5-1", "pd5-10"});
    EXPECT_EQ(listed(), "kr62\npd5-1\npd5-10\n");
    EXPECT_THAT(files(), ElementsAre("boards"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServedBoardsTest, AnEarlierListIsReplaced) {
    listServedBoards({"kr62", "pd5-1"});
    listServedBoards({});
    EXPECT_EQ(listed(), "");
    EXPECT_THAT(files(), ElementsAre("boards"));
}

TEST_F(ServedBoardsTest, EveryUserMayReadTheListWhateverTheUmask) {
    const mode_t before = ::umask(0077);
    listServedBoards({"kr62"});
    ::umask(before);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(directory.path() / "boards").permissions(),
              perms::owner_read | perms::owner_write | perms::group_read | perms::others_read);
}

TEST_F(ServedBoardsTest, WithoutADirectoryNothingIsWritten) {
    ::unsetenv("RUNTIME_DIRECTORY");
    listServedBoards({"kr62"});
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServedBoardsTest, AListThatCannotBeWrittenIsAWarning) {
    ::setenv("RUNTIME_DIRECTORY", "/nowhere", 1);
    listServedBoards({"kr62"});
    EXPECT_THAT(log.texts(Poco::Message::PRIO_WARNING),
                ElementsAre(MatchesRegex("cannot write /nowhere/boards: .+; a board that comes "
                                         "later is served only after a restart of the service")));
}

}  // namespace
