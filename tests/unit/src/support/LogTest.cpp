// SPDX-License-Identifier: MIT
#include "support/Log.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <gmock/gmock.h>

#include <stdexcept>

#include "CapturedLog.h"

namespace {

using testing::IsEmpty;

constexpr Pattern<int, std::string> PATTERN("number %d, text %s");

/// An argument that counts how often it is turned into text.
class Counted {
 public:
    explicit Counted(int& conversions) : count(conversions) {}
    operator std::string() const {
        ++count;
        return "x";
    }

 private:
    int& count;
};

TEST(LogTest, ALineHasPrioritySourceAndText) {
    const CapturedLog captured;
    log(Poco::Logger::get("log-test-line"), Poco::Message::PRIO_WARNING, PATTERN, 7, "seven");
    const auto lines = captured.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_WARNING);
    EXPECT_EQ(lines[0].source, "log-test-line");
    EXPECT_EQ(lines[0].text, "number 7, text seven");
    Poco::Logger::destroy("log-test-line");
}

TEST(LogTest, ALineThatTheLoggerDoesNotTakeIsNotWritten) {
    const CapturedLog captured(Poco::Message::PRIO_NOTICE);
    log(Poco::Logger::get("log-test-level"), Poco::Message::PRIO_INFORMATION, PATTERN, 7, "seven");
    EXPECT_THAT(captured.lines(), IsEmpty());
    Poco::Logger::destroy("log-test-level");
}

TEST(LogTest, ArgumentsAreEvaluatedAlsoForALineThatIsNotWritten) {
    const CapturedLog captured(Poco::Message::PRIO_NOTICE);
    int conversions = 0;
    log(Poco::Logger::get("log-test-arguments"), Poco::Message::PRIO_DEBUG, PATTERN, 7,
        Counted(conversions));
    EXPECT_EQ(conversions, 1);
    Poco::Logger::destroy("log-test-arguments");
}

/// A channel that cannot write.
class BrokenChannel : public Poco::Channel {
 public:
    void log(const Poco::Message& /*message*/) override {
        ++attempts;
        throw std::runtime_error("the line cannot be written");
    }
    int attempts{0};
};

TEST(LogTest, ALineThatCannotBeWrittenIsLostAndNothingElse) {
    Poco::Logger& logger = Poco::Logger::get("log-test-broken");
    const Poco::AutoPtr<BrokenChannel> channel(new BrokenChannel);
    logger.setChannel(channel);
    EXPECT_NO_THROW(log(logger, Poco::Message::PRIO_FATAL, PATTERN, 7, "seven"));
    EXPECT_EQ(channel->attempts, 1);
    Poco::Logger::destroy("log-test-broken");
}

}  // namespace
