// Logfile with a file as its sink.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <regex>

#include "logfile_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LogfileTest, WritesOneTimestampedLinePerMessage) {
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

// Sets the time zone of the process until destroyed. Zones are given in POSIX form, which needs no
// time zone database.
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

// Returns the current time in the format of a timestamp, without the fraction.
std::string UtcNow() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc = {};
  gmtime_r(&now, &utc);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  return text;
}

TEST_F(LogfileTest, WritesTimestampsInUtc) {
  // Tokyo and Honolulu, east and west of Greenwich.
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

TEST_F(LogfileTest, EscapesControlCharacters) {
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("one\r\ntwo\x1b[2J\x7f three \xc3\xbc \xff", 3);
  const std::vector<std::string> lines = FileLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].substr(27), "one\\x0d\\x0atwo\\x1b[2J\\x7f three \xc3\xbc \xff");
}

TEST_F(LogfileTest, AppendsToFileWithMode0600) {
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

TEST_F(LogfileTest, KeepsSinkIfFileCannotBeOpened) {
  CollectMessages();
  EXPECT_FALSE(log_.LogToFile(folder_.File("missing/log")));
  log_.Log("still here", 3);
  EXPECT_THAT(collected_, ElementsAre("3 still here"));
}

// Simulates a full disk by limiting the size of files until destroyed.
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

TEST_F(LogfileTest, StartsNewLineAfterTruncatedWrite) {
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

TEST_F(LogfileTest, WritesToADescriptorAndLeavesItOpen) {
  const int descriptor = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  log_.LogToDescriptor(descriptor);
  log_.Log("one\ntwo", 3);
  log_.LogToNothing();
  log_.Log("three", 3);
  EXPECT_EQ(close(descriptor), 0);
  ASSERT_EQ(FileLines().size(), 1u);
  EXPECT_TRUE(std::regex_search(FileLines()[0], std::regex(R"(Z 3 one\\x0atwo$)")))
      << FileLines()[0];
}

TEST_F(LogfileTest, ClosesFileWhenSinkChanges) {
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

}  // namespace
