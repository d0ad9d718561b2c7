// SPDX-License-Identifier: MIT
#include "program/StandardDescriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "ChildProcess.h"

namespace {

constexpr int STANDARD_DESCRIPTORS = 3;

TEST(StandardDescriptorsTest, WhatIsOpenedLaterIsNoStandardDescriptor) {
    for (int missing = 0; missing < STANDARD_DESCRIPTORS; ++missing) {
        SCOPED_TRACE(missing);
        EXPECT_EQ(inChildProcess([missing] {
                      close(missing);
                      fillStandardDescriptors();
                      return open("/dev/null", O_RDWR | O_CLOEXEC) < STANDARD_DESCRIPTORS
                                 ? "in its place"
                                 : "behind it";
                  }),
                  "behind it");
    }
}

TEST(StandardDescriptorsTest, OutputOfAClosedDescriptorStillFails) {
    for (const int missing : {STDOUT_FILENO, STDERR_FILENO}) {
        EXPECT_EQ(inChildProcess([missing] {
                      close(missing);
                      fillStandardDescriptors();
                      return write(missing, "x", 1) == -1 && errno == EBADF ? "refused" : "lost";
                  }),
                  "refused");
    }
}

TEST(StandardDescriptorsTest, AnOpenDescriptorStays) {
    EXPECT_EQ(inChildProcess([] {
                  const FileDescriptor file(open("/dev/zero", O_RDONLY | O_CLOEXEC));
                  dup2(file.get(), STDIN_FILENO);
                  fillStandardDescriptors();
                  char got = 'x';
                  return read(STDIN_FILENO, &got, 1) == 1 && got == '\0' ? "stays" : "goes";
              }),
              "stays");
}

}  // namespace
