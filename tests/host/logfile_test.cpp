#include "host/logfile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LogfileTest : public testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/cardcert-logfile-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    path_ = folder_ + "/log";
  }
  void TearDown() override {
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }

  std::vector<std::string> FileLines() const {
    std::vector<std::string> lines;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);)
      lines.push_back(line);
    return lines;
  }

  void Collect() {
    log_.LogToFunction([this](const std::string& message, int level) {
      collected_.push_back(std::to_string(level) + " " + message);
    });
  }

  Logfile log_;
  std::string folder_;
  std::string path_;
  std::vector<std::string> collected_;
};

TEST_F(LogfileTest, AtFirstSaysNothing) {
  testing::internal::CaptureStderr();
  log_.Log("unheard", 2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogfileTest, AFunctionGetsMessagesVerbatim) {
  Collect();
  log_.Log("plain", 3);
  log_.Log("two\nlines", 5);
  log_.Log("", 2);
  EXPECT_THAT(collected_, ElementsAre("3 plain", "5 two\nlines", "2 "));
}

TEST_F(LogfileTest, KeepsMessagesUpToTheHighestLevel) {
  Collect();
  log_.SetMaxLevel(3);
  log_.Log("grave", 2);
  log_.Log("a problem", 3);
  log_.Log("tracing", 5);
  log_.SetMaxLevel(-1);
  log_.Log("grave", 2);
  EXPECT_THAT(collected_, ElementsAre("2 grave", "3 a problem"));
}

TEST_F(LogfileTest, AFileGetsOneStampedLineAMessage) {
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("Loaded PKCS#11 module '/usr/lib/token.so'", 3);
  log_.Log("Fetching tokens...", 5);
  const std::vector<std::string> lines = FileLines();
  ASSERT_EQ(lines.size(), 2u);
  const std::string stamp = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )";
  EXPECT_TRUE(std::regex_match(
      lines[0], std::regex(stamp + R"(3 Loaded PKCS#11 module '/usr/lib/token\.so')")))
      << lines[0];
  EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + R"(5 Fetching tokens\.\.\.)")))
      << lines[1];
}

// The time zone of the process. In the POSIX form, which needs no database of time zones.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* const before = std::getenv("TZ"))
      before_ = before;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    if (before_)
      setenv("TZ", before_->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> before_;
};

// To the second, in the form of a stamp.
std::string UtcNow() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc = {};
  gmtime_r(&now, &utc);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  return text;
}

TEST_F(LogfileTest, StampsAreInUtcWhateverTheTimeZone) {
  // East and west of Greenwich: Tokyo and Honolulu.
  for (const char* zone : {"JST-9", "HST10"}) {
    const TimeZone elsewhere(zone);
    const std::time_t epoch = 0;
    std::tm local = {};
    ASSERT_NE(localtime_r(&epoch, &local)->tm_hour, 0) << "the time zone has no effect";
    ASSERT_TRUE(log_.LogToFile(path_));
    const std::string before = UtcNow();
    log_.Log("now", 3);
    const std::string after = UtcNow();
    const std::string stamp = FileLines().back().substr(0, before.size());
    EXPECT_LE(before, stamp) << zone;
    EXPECT_LE(stamp, after) << zone;
  }
}

TEST_F(LogfileTest, AMessageCannotForgeALineOfItsOwn) {
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("one\r\ntwo\x1b[2J\x7f three \xc3\xbc \xff", 3);
  const std::vector<std::string> lines = FileLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].substr(27), "one\\x0d\\x0atwo\\x1b[2J\\x7f three \xc3\xbc \xff");
}

TEST_F(LogfileTest, AppendsToAFileAndKeepsItPrivate) {
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("first", 3);
  struct stat status = {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  Logfile other;
  ASSERT_TRUE(other.LogToFile(path_));
  other.Log("second", 3);
  log_.Log("third", 3);
  EXPECT_EQ(FileLines().size(), 3u);
}

TEST_F(LogfileTest, AFileThatCannotBeOpenedLeavesTheSinkAsItWas) {
  Collect();
  EXPECT_FALSE(log_.LogToFile(folder_ + "/no/such/folder/log"));
  log_.Log("still here", 3);
  EXPECT_THAT(collected_, ElementsAre("3 still here"));
}

// A full disk, in the form of a limit for the size of files.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {size, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_ = {};
};

TEST_F(LogfileTest, ALineThatWasCutShortIsNotGluedToTheNextOne) {
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("before", 3);
  {
    const FileSizeLimit limit(std::filesystem::file_size(path_) + 28);
    log_.Log("cut short", 3);
    log_.Log("lost", 3);
  }
  log_.Log("after", 3);
  log_.Log("and on", 3);
  std::vector<std::string> messages;
  for (const std::string& line : FileLines())
    messages.push_back(line.substr(27));
  EXPECT_THAT(messages, ElementsAre("before", "c", "after", "and on"));
}

TEST_F(LogfileTest, AFileIsClosedWhenAnotherSinkTakesItsPlace) {
  const auto num_open = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = num_open();
  ASSERT_TRUE(log_.LogToFile(path_));
  EXPECT_EQ(num_open(), before + 1);
  ASSERT_TRUE(log_.LogToFile(path_));
  EXPECT_EQ(num_open(), before + 1);
  log_.LogToStandardError();
  EXPECT_EQ(num_open(), before);
  {
    Logfile other;
    ASSERT_TRUE(other.LogToFile(path_));
  }
  EXPECT_EQ(num_open(), before);
}

TEST_F(LogfileTest, ALongLineIsOneWrite) {
  // A socket that keeps what is written at once together.
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

TEST_F(LogfileTest, StandardErrorGetsStampedLines) {
  testing::internal::CaptureStderr();
  log_.LogToStandardError();
  log_.Log("a problem", 3);
  log_.LogToNothing();
  log_.Log("unheard", 3);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(std::regex_match(text, std::regex(R"(\S{24} 3 a problem\n)"))) << text;
}

TEST_F(LogfileTest, AnEmptyFunctionIsNoSink) {
  log_.LogToFunction(nullptr);
  EXPECT_NO_THROW(log_.Log("unheard", 2));
}

TEST_F(LogfileTest, AFunctionMayLogAndChangeTheSink) {
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

TEST_F(LogfileTest, WhatAFunctionThrowsComesOutAndTheLogGoesOn) {
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

// A stamp, a level and a message of one hundred equal letters.
void ExpectWhole(const std::string& line) {
  ASSERT_EQ(line.size(), 127u) << line;
  EXPECT_EQ(line.find_first_not_of(line[27], 27), std::string::npos) << line;
}

TEST_F(LogfileTest, LinesOfSeveralThreadsDoNotMix) {
  ASSERT_TRUE(log_.LogToFile(path_));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int j = 0; j < 250; ++j)
        log_.Log(std::string(100, static_cast<char>('a' + i)), 3);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  const std::vector<std::string> lines = FileLines();
  ASSERT_EQ(lines.size(), 1000u);
  for (const std::string& line : lines)
    ExpectWhole(line);
}

TEST_F(LogfileTest, AFunctionIsEnteredByOneThreadAtATimeAndGetsEveryMessage) {
  // Nothing here is protected but by the log.
  std::atomic<bool> entered = false;
  int num_overlaps = 0;
  std::vector<int> next(4, 0);
  log_.LogToFunction([&](const std::string& message, int thread) {
    num_overlaps += entered.exchange(true) ? 1 : 0;
    EXPECT_EQ(message, std::to_string(next[static_cast<std::size_t>(thread)]++)) << thread;
    std::this_thread::yield();
    entered = false;
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int j = 0; j < 1000; ++j)
        log_.Log(std::to_string(j), i);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(num_overlaps, 0);
  EXPECT_THAT(next, testing::Each(1000));
}

TEST_F(LogfileTest, SinksAndLevelsMayChangeWhileOtherThreadsLog) {
  std::atomic<bool> done = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      while (!done) {
        log_.Log(std::string(100, static_cast<char>('a' + i)), 3);
        std::this_thread::yield();
      }
    });
  }
  std::atomic<bool> entered = false;
  std::atomic<int> num_overlaps = 0;
  std::atomic<int> num_torn = 0;
  std::atomic<int> num_messages = 0;
  const auto function = [&](const std::string& message, int) {
    num_overlaps += entered.exchange(true) ? 1 : 0;
    num_torn += message == std::string(100, message[0]) ? 0 : 1;
    ++num_messages;
    entered = false;
  };
  testing::internal::CaptureStderr();
  for (int round = 0; round < 100; ++round) {
    // Until something gets through: the four log as long as this lasts.
    log_.LogToFunction(function);
    for (const int before = num_messages; num_messages == before;)
      std::this_thread::yield();
    EXPECT_TRUE(log_.LogToFile(path_));
    for (const auto before = std::filesystem::file_size(path_);
         std::filesystem::file_size(path_) == before;)
      std::this_thread::yield();
    log_.SetMaxLevel(2);
    log_.LogToStandardError();
    log_.SetMaxLevel(5);
    std::this_thread::yield();
    log_.LogToNothing();
  }
  done = true;
  for (std::thread& thread : threads)
    thread.join();
  std::istringstream standard_error(testing::internal::GetCapturedStderr());
  EXPECT_EQ(num_overlaps, 0);
  EXPECT_EQ(num_torn, 0);
  EXPECT_GE(FileLines().size(), 100u);
  for (const std::string& line : FileLines())
    ExpectWhole(line);
  for (std::string line; std::getline(standard_error, line);)
    ExpectWhole(line);
}

}  // namespace
