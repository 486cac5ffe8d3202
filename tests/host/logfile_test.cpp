// Logfile with each kind of sink.
#include "host/logfile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <stdexcept>
#include <vector>

#include "logfile_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LogfileTest, WritesNothingByDefault) {
  testing::internal::CaptureStderr();
  log_.Log("unheard", 2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogfileTest, PassesMessagesVerbatimToFunction) {
  CollectMessages();
  log_.Log("plain", 3);
  log_.Log("two\nlines", 5);
  log_.Log("", 2);
  EXPECT_THAT(collected_, ElementsAre("3 plain", "5 two\nlines", "2 "));
}

TEST_F(LogfileTest, KeepsMessagesUpToMaxLevel) {
  CollectMessages();
  log_.SetMaxLevel(3);
  log_.Log("grave", 2);
  log_.Log("a problem", 3);
  log_.Log("tracing", 5);
  log_.SetMaxLevel(-1);
  log_.Log("grave", 2);
  EXPECT_THAT(collected_, ElementsAre("2 grave", "3 a problem"));
}

TEST_F(LogfileTest, WritesLongLineAtOnce) {
  // A socket that preserves the boundaries of writes.
  int ends[2] = {};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  const int standard_error = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  log_.LogToStandardError();
  log_.Log(std::string(20000, 'x'), 3);
  dup2(standard_error, STDERR_FILENO);
  std::vector<char> packet(30000);
  EXPECT_EQ(recv(ends[0], packet.data(), packet.size(), MSG_DONTWAIT), 27 + 20000 + 1);
  for (const int descriptor : {ends[0], ends[1], standard_error})
    close(descriptor);
}

TEST_F(LogfileTest, WritesTimestampedLinesToStandardError) {
  testing::internal::CaptureStderr();
  log_.LogToStandardError();
  log_.Log("a problem", 3);
  log_.LogToNothing();
  log_.Log("unheard", 3);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(std::regex_match(text, std::regex(R"(\S{24} 3 a problem\n)"))) << text;
}

TEST_F(LogfileTest, AcceptsEmptyFunction) {
  log_.LogToFunction(nullptr);
  EXPECT_NO_THROW(log_.Log("unheard", 2));
}

TEST_F(LogfileTest, FunctionMayLogAndChangeSink) {
  log_.LogToFunction([this](const std::string& message, int level) {
    collected_.push_back(message);
    if (level == 2) {
      log_.Log("from within", 3);
      log_.LogToNothing();
      collected_.push_back(message + " again");
    }
  });
  log_.Log("outer", 2);
  log_.Log("unheard", 2);
  EXPECT_THAT(collected_, ElementsAre("outer", "from within", "outer again"));
}

TEST_F(LogfileTest, PropagatesExceptionOfFunction) {
  bool fail = true;
  log_.LogToFunction([&](const std::string& message, int) {
    if (fail)
      throw std::runtime_error("sink");
    collected_.push_back(message);
  });
  EXPECT_THROW(log_.Log("lost", 3), std::runtime_error);
  fail = false;
  log_.Log("kept", 3);
  EXPECT_THAT(collected_, ElementsAre("kept"));
}

}  // namespace
