#include "cli/terminal/standard_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

// Replaces standard output by a pipe as long as it lives.
class PipedStandardOutput {
 public:
  explicit PipedStandardOutput(int flags = 0) : before_(dup(STDOUT_FILENO)) {
    EXPECT_EQ(pipe2(ends_, flags | O_CLOEXEC), 0);
    EXPECT_EQ(dup2(ends_[1], STDOUT_FILENO), STDOUT_FILENO);
    close(ends_[1]);
  }
  ~PipedStandardOutput() {
    dup2(before_, STDOUT_FILENO);
    close(before_);
    CloseReader();
  }
  PipedStandardOutput(const PipedStandardOutput&) = delete;
  PipedStandardOutput& operator=(const PipedStandardOutput&) = delete;

  int reader() const { return ends_[0]; }
  void CloseReader() {
    if (ends_[0] >= 0)
      close(ends_[0]);
    ends_[0] = -1;
  }

 private:
  int before_;
  int ends_[2] = {-1, -1};
};

// Reads `length` bytes, after some time in which the writer has filled the pipe.
std::string ReadSlowly(int descriptor, std::size_t length) {
  fcntl(descriptor, F_SETFL, 0);
  usleep(50'000);
  std::string all;
  while (all.size() < length) {
    char piece[3000];
    const ssize_t count = read(descriptor, piece, sizeof piece);
    if (count <= 0)
      break;
    all.append(piece, static_cast<std::size_t>(count));
  }
  return all;
}

TEST(StandardOutputTest, PrintDataWaitsForANonBlockingReader) {
  const std::string data(300'000, 'x');
  PipedStandardOutput output(O_NONBLOCK);
  std::string seen;
  std::thread reader([&] { seen = ReadSlowly(output.reader(), data.size()); });
  EXPECT_TRUE(PrintData(data));
  reader.join();
  EXPECT_TRUE(seen == data) << seen.size();
}

void DoNothing(int /*signal*/) {}

TEST(StandardOutputTest, PrintDataContinuesAfterASignal) {
  const std::string data(300'000, 'x');
  struct sigaction action = {};
  struct sigaction before = {};
  action.sa_handler = DoNothing;  // without SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  PipedStandardOutput output;
  const pthread_t writer = pthread_self();
  std::string seen;
  std::thread reader([&] {
    for (int i = 0; i < 5; ++i) {
      usleep(20'000);
      pthread_kill(writer, SIGUSR1);
    }
    seen = ReadSlowly(output.reader(), data.size());
  });
  EXPECT_TRUE(PrintData(data));
  reader.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_TRUE(seen == data) << seen.size();
}

TEST(StandardOutputTest, ABrokenPipeIsSilent) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  PipedStandardOutput output;
  output.CloseReader();
  testing::internal::CaptureStderr();
  EXPECT_FALSE(PrintData("x"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  std::signal(SIGPIPE, before);
}

TEST(StandardOutputTest, ReportsOtherErrors) {
  const int before = dup(STDOUT_FILENO);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(dup2(full, STDOUT_FILENO), STDOUT_FILENO);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(PrintData("x"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cardcert: error: cannot write to standard output: No space left on device\n");
  dup2(before, STDOUT_FILENO);
  close(before);
  close(full);
}

// Runs `run` in a child process, for which standard output is moved. Returns its exit status.
template <typename Run>
int InChildWithOutputAside(const Run& run) {
  const pid_t child = fork();
  if (child == 0)
    _exit(SetStandardOutputAside() ? run() : 100);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StandardOutputTest, MovesToAnotherDescriptorOnce) {
  PipedStandardOutput output;
  EXPECT_EQ(InChildWithOutputAside([] {
              const int descriptor = StandardOutput();
              const bool moved = descriptor > STDERR_FILENO && SetStandardOutputAside() &&
                                 StandardOutput() == descriptor && PrintData("data");
              return moved ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ReadSlowly(output.reader(), 4), "data");
}

TEST(StandardOutputTest, ProgramsAndForkedProcessesDoNotGetIt) {
  EXPECT_EQ(InChildWithOutputAside([] {
              const int descriptor = StandardOutput();
              if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0)
                return 1;
              const pid_t grandchild = fork();
              if (grandchild == 0)
                _exit(fcntl(descriptor, F_GETFD) == -1 && StandardOutput() == -1 ? 0 : 1);
              int status = -1;
              waitpid(grandchild, &status, 0);
              return status == 0 && fcntl(descriptor, F_GETFD) != -1 ? 0 : 2;
            }),
            0);
}

TEST(StandardOutputTest, IsGoneIfSomebodyReplacedTheDescriptor) {
  EXPECT_EQ(InChildWithOutputAside([] {
              const int other = open("/dev/zero", O_RDWR | O_CLOEXEC);
              dup2(other, StandardOutput());
              return StandardOutput() == -1 ? 0 : 1;
            }),
            0);
}

}  // namespace
}  // namespace cardcert::cli
