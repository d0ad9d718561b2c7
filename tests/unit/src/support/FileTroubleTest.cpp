// SPDX-License-Identifier: MIT
#include "support/FileTrouble.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <thread>

#include "CapturedLog.h"

namespace {

using testing::ElementsAre;

TEST(FileTroubleTest, AFileIsALineAMinuteWithTheReason) {
    const CapturedLog log;
    for (int i = 0; i < 3; ++i) {
        FileTrouble::report("/sys/board/one", "opened for reading", EACCES);
    }
    FileTrouble::report("/sys/board/two", "read", "it holds no number");
    EXPECT_THAT(log.texts(Poco::Message::PRIO_WARNING),
                ElementsAre("file '/sys/board/one' cannot be opened for reading: Permission denied",
                            "file '/sys/board/two' cannot be read: it holds no number"));
}

TEST(FileTroubleTest, EveryReportOfAThreadCounts) {
    const CapturedLog log;
    const unsigned before = FileTrouble::reports();
    FileTrouble::report("/sys/board/three", "read", EIO);
    EXPECT_EQ(FileTrouble::reports(), before + 1);
    FileTrouble::report("/sys/board/three", "read", EIO);
    EXPECT_EQ(FileTrouble::reports(), before + 2) << "without a line";
    std::thread([] {
        FileTrouble::report("/sys/board/three", "read", EIO);
        EXPECT_EQ(FileTrouble::reports(), 1U);
    }).join();
    EXPECT_EQ(FileTrouble::reports(), before + 2) << "of another thread";
}

}  // namespace
