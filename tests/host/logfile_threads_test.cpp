// Logfile used by several threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "logfile_fixture.h"

namespace {

// Expects a timestamp, a level and a message of one hundred equal letters.
void ExpectIntact(const std::string& line) {
  ASSERT_EQ(line.size(), 127u) << line;
  EXPECT_EQ(line.find_first_not_of(line[27], 27), std::string::npos) << line;
}

TEST_F(LogfileTest, DoesNotMixLinesOfSeveralThreads) {
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
    ExpectIntact(line);
}

TEST_F(LogfileTest, CallsFunctionFromOneThreadAtATime) {
  // Only the lock of the log protects these variables.
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

TEST_F(LogfileTest, SinkAndLevelMayChangeWhileOtherThreadsLog) {
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
    // Waits for a message through each sink; the four threads keep logging.
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
    ExpectIntact(line);
  for (std::string line; std::getline(standard_error, line);)
    ExpectIntact(line);
}

}  // namespace
