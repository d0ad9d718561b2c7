// SPDX-License-Identifier: MIT
#include "tesk/VaduBoard.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "InRoot.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

/// Reads the version in a file system that holds no more than the test puts into it.
class VaduBoardTest : public testing::Test {
 protected:
    void image(const std::string& text) const { directory.file("etc/os-release", text); }
    void vendor(const std::string& text) const { directory.file("usr/lib/os-release", text); }

    std::string version() const {
        return inRoot(directory.path(), [] { return tesk::VaduBoard::readFwVersion(); });
    }

    /// The words with which there is no version.
    std::string refusal() const {
        return inRoot(directory.path(), []() -> std::string {
            try {
                return "no refusal but " + tesk::VaduBoard::readFwVersion();
            } catch (const tesk::NotFoundException& e) {
                return e.what();
            }
        });
    }

    TemporaryDirectory directory;
};

TEST_F(VaduBoardTest, ReadsTheImageVersion) {
    image("NAME=x\nIMAGE_VERSION=2.3.4\nID=y\n");
    EXPECT_EQ(version(), "2.3.4");
}

TEST_F(VaduBoardTest, PrefersTheImageVersionToTheVersionIdWhereverItStands) {
    image("VERSION_ID=12\nIMAGE_VERSION=2.3.4\n");
    EXPECT_EQ(version(), "2.3.4");
    image("IMAGE_VERSION=2.3.4\nVERSION_ID=12\n");
    EXPECT_EQ(version(), "2.3.4");
}

TEST_F(VaduBoardTest, ReadsTheVersionIdWithoutAnImageVersion) {
    image("NAME=x\nVERSION_ID=1.20.3\n");
    EXPECT_EQ(version(), "1.20.3");
}

TEST_F(VaduBoardTest, UnderstandsTheQuotingOfTheFile) {
    const std::map<std::string, std::string> versions{
        {"1.2.3", "1.2.3"},
        {"\"1.2.3\"", "1.2.3"},
        {"'1.2.3'", "1.2.3"},
        {"4.5.6-rc1", "4.5.6-rc1"},
        {"\"4.5.6 beta\"", "4.5.6 beta"},
        {"'4.5.6 beta'", "4.5.6 beta"},
        {R"("1.2.3 \"blue\" \$5 \`x\` \\")", R"(1.2.3 "blue" $5 `x` \)"},
        {R"('1.2.3 $x \')", R"(1.2.3 $x \)"},
        {R"(1.2.3\ blue)", "1.2.3 blue"},
        {"\"1.2.3=4\"", "1.2.3=4"},
    };
    for (const auto& [quoted, plain] : versions) {
        image("VERSION_ID=" + quoted + "\n");
        EXPECT_EQ(version(), plain) << "as " << quoted;
    }
}

TEST_F(VaduBoardTest, ALastLineNeedsNoLineEnd) {
    image("VERSION_ID=\"1.2.3\"");
    EXPECT_EQ(version(), "1.2.3");
}

TEST_F(VaduBoardTest, KeysThatOnlyLookAlikeAndCommentsDoNotCount) {
    image("#VERSION_ID=1.1.1\nMY_VERSION_ID=2.2.2\nVERSION_ID_LIKE=3.3.3\nversion_id=4.4.4\n");
    EXPECT_EQ(refusal(),
              "no firmware version: /etc/os-release states neither IMAGE_VERSION nor VERSION_ID");
}

TEST_F(VaduBoardTest, ReadsTheVendorsFileWithoutAnImageFile) {
    vendor("VERSION_ID=7.8.9\n");
    EXPECT_EQ(version(), "7.8.9");
}

TEST_F(VaduBoardTest, ReadsOnlyTheImageFileWhereThereAreBoth) {
    image("VERSION_ID=1.2.3\n");
    vendor("IMAGE_VERSION=7.8.9\n");
    EXPECT_EQ(version(), "1.2.3");
    image("NAME=x\n");
    EXPECT_EQ(refusal(),
              "no firmware version: /etc/os-release states neither IMAGE_VERSION nor VERSION_ID");
}

TEST_F(VaduBoardTest, FollowsALinkAndPassesOverOneThatLeadsNowhere) {
    vendor("VERSION_ID=7.8.9\n");
    std::filesystem::create_directory(directory.path() / "etc");
    std::filesystem::create_symlink("../usr/lib/os-release", directory.path() / "etc/os-release");
    EXPECT_EQ(version(), "7.8.9");
    std::filesystem::remove(directory.path() / "etc/os-release");
    std::filesystem::create_symlink("nowhere", directory.path() / "etc/os-release");
    EXPECT_EQ(version(), "7.8.9");
}

TEST_F(VaduBoardTest, WithoutAFileThereIsNoVersion) {
    EXPECT_EQ(refusal(),
              "no firmware version: neither /etc/os-release nor /usr/lib/os-release exists");
}

TEST_F(VaduBoardTest, AFileWithoutAVersionIsNamed) {
    vendor("NAME=x\n");
    EXPECT_EQ(
        refusal(),
        "no firmware version: /usr/lib/os-release states neither IMAGE_VERSION nor VERSION_ID");
    vendor("");
    EXPECT_EQ(
        refusal(),
        "no firmware version: /usr/lib/os-release states neither IMAGE_VERSION nor VERSION_ID");
}

TEST_F(VaduBoardTest, ReadsTheFileAnewOnEveryCall) {
    image("VERSION_ID=1.2.3\n");
    EXPECT_EQ(inRoot(directory.path(),
                     [] {
                         const std::string before = tesk::VaduBoard::readFwVersion();
                         writeFile("/etc/os-release", "VERSION_ID=1.2.4\n");
                         return before + " " + tesk::VaduBoard::readFwVersion();
                     }),
              "1.2.3 1.2.4");
}

}  // namespace
