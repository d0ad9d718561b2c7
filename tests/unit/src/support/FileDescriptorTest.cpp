// SPDX-License-Identifier: MIT
#include "support/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace {

int openNull() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(FileDescriptorTest, OwnsNothingUntilItIsGivenADescriptor) {
    EXPECT_FALSE(FileDescriptor().isOpen());
    EXPECT_LT(FileDescriptor().get(), 0);
    EXPECT_FALSE(FileDescriptor(-1).isOpen());
}

TEST(FileDescriptorTest, ClosesItsDescriptorAtItsEnd) {
    const int fd = openNull();
    {
        const FileDescriptor owner(fd);
        EXPECT_TRUE(owner.isOpen());
        EXPECT_EQ(owner.get(), fd);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(FileDescriptorTest, AMoveGivesTheDescriptorAway) {
    const int fd = openNull();
    FileDescriptor first(fd);
    {
        const FileDescriptor second(std::move(first));
        EXPECT_EQ(second.get(), fd);
        EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move): states what is left
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(FileDescriptorTest, AnAssignmentClosesWhatWasThere) {
    const int old = openNull();
    const int fd = openNull();
    FileDescriptor owner(old);
    owner = FileDescriptor(fd);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_FALSE(isOpen(old));
    EXPECT_TRUE(isOpen(fd));
}

TEST(FileDescriptorTest, AnAssignmentToItselfKeepsTheDescriptor) {
    const int fd = openNull();
    FileDescriptor owner(fd);
    FileDescriptor& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_TRUE(isOpen(fd));
}

TEST(FileDescriptorTest, AReleasedDescriptorStaysOpen) {
    const int fd = openNull();
    {
        FileDescriptor owner(fd);
        EXPECT_EQ(owner.release(), fd);
        EXPECT_FALSE(owner.isOpen());
    }
    EXPECT_TRUE(isOpen(fd));
    ::close(fd);
}

TEST(FileDescriptorTest, AResetClosesTheDescriptor) {
    const int fd = openNull();
    FileDescriptor owner(fd);
    owner.reset();
    EXPECT_FALSE(owner.isOpen());
    EXPECT_FALSE(isOpen(fd));
}

}  // namespace
