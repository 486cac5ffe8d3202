// Logfile when system calls fail or the time is given. write() and gmtime_r() are wrapped.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>

#include "host/logfile.h"
#include "support/files.h"

namespace {

int num_interruptions = 0;            // How many calls of write() fail with EINTR.
std::optional<std::time_t> fake_now;  // What gmtime_r() converts instead of its argument.

}  // namespace

extern "C" {
ssize_t __real_write(int descriptor, const void* data, std::size_t length);
ssize_t __wrap_write(int descriptor, const void* data, std::size_t length) {
  if (num_interruptions == 0)
    return __real_write(descriptor, data, length);
  --num_interruptions;
  errno = EINTR;
  return -1;
}

std::tm* __real_gmtime_r(const std::time_t* time, std::tm* out);
std::tm* __wrap_gmtime_r(const std::time_t* time, std::tm* out) {
  return __real_gmtime_r(fake_now ? &*fake_now : time, out);
}
}

namespace {

using testing::MatchesRegex;

class LogfileFaultTest : public testing::Test {
 protected:
  void TearDown() override {
    num_interruptions = 0;
    fake_now.reset();
  }

  support::TempFolder folder_;
  const std::string path_ = folder_.File("log");
  Logfile log_;
};

TEST_F(LogfileFaultTest, StampsUseA24HourClock) {
  fake_now = 1795353255;  // 2026-11-22 13:14:15 UTC
  ASSERT_TRUE(log_.LogToFile(path_));
  log_.Log("after noon", 3);
  EXPECT_THAT(support::ReadFile(path_),
              MatchesRegex("2026-11-22T13:14:15\\.[0-9]+Z 3 after noon\n"));
}

TEST_F(LogfileFaultTest, RetriesAnInterruptedWrite) {
  ASSERT_TRUE(log_.LogToFile(path_));
  num_interruptions = 2;
  log_.Log("once", 3);
  EXPECT_EQ(num_interruptions, 0);
  EXPECT_THAT(support::ReadFile(path_), MatchesRegex("[^\n]* 3 once\n"));
}

TEST_F(LogfileFaultTest, OpensTheFileCloseOnExec) {
  ASSERT_TRUE(log_.LogToFile(path_));
  int num_found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed_meanwhile;
    if (std::filesystem::read_symlink(entry, closed_meanwhile) != path_)
      continue;
    ++num_found;
    EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(num_found, 1);
}

TEST_F(LogfileFaultTest, ForgetsATruncatedLineWhenTheSinkChanges) {
  ASSERT_TRUE(log_.LogToFile(path_));
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit = {10, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  log_.Log("truncated", 3);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  ASSERT_EQ(std::filesystem::file_size(path_), 10U);

  ASSERT_TRUE(log_.LogToFile(folder_.File("other")));
  log_.Log("whole", 3);
  EXPECT_THAT(support::ReadFile(folder_.File("other")), MatchesRegex("[^\n]* 3 whole\n"));
}

}  // namespace
