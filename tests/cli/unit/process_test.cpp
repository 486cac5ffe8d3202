// The helpers that run programs for other tests: they never wait forever, and they leave no
// process behind.
#include "support/process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <stdexcept>

#include "cli/pseudo_terminal.h"

namespace {

using support::Environment;
using support::Process;
using support::WaitUntil;
using support::Words;

constexpr std::chrono::milliseconds kShort(50);

// Returns false for a zombie, which may stay until init reaps it.
bool IsRunning(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string stat;
  std::getline(file, stat);
  return !stat.empty() && stat[stat.rfind(')') + 2] != 'Z';
}

bool Ends(pid_t process) {
  return WaitUntil([process] { return !IsRunning(process); });
}

TEST(ProcessTest, WaitFailsAndKillsAfterTheLimit) {
  Process process({"sleep", "600"}, {});
  const pid_t pid = process.pid();
  EXPECT_THROW(process.Wait(kShort), std::runtime_error);
  EXPECT_FALSE(IsRunning(pid));
}

TEST(ProcessTest, WaitForOutputFailsWhenTheProgramEnds) {
  Process process({"echo", "one"}, {});
  EXPECT_TRUE(process.WaitForOutput("one"));
  EXPECT_FALSE(process.WaitForOutput("two"));
}

TEST(ProcessTest, KillsTheProcessGroup) {
  auto shell =
      std::make_unique<Process>(Words{"sh", "-c", "sleep 600 & echo $!; wait"}, Environment{});
  ASSERT_TRUE(shell->WaitForOutput("\n"));
  const pid_t child = std::stoi(shell->out());
  EXPECT_TRUE(IsRunning(child));
  shell.reset();
  EXPECT_TRUE(Ends(child));
}

TEST(ProcessTest, DiesWithTheTestProcess) {
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  const pid_t test = fork();
  if (test == 0) {
    const Process process({"sleep", "600"}, {});
    const pid_t pid = process.pid();
    _exit(write(ends[1], &pid, sizeof pid) == sizeof pid ? 0 : 1);  // Skips the destructor.
  }
  pid_t pid = -1;
  ASSERT_EQ(read(ends[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
  waitpid(test, nullptr, 0);
  EXPECT_TRUE(Ends(pid));
  close(ends[0]);
  close(ends[1]);
}

TEST(PseudoTerminalTest, WaitFailsAfterTheLimit) {
  PseudoTerminal terminal({"sleep", "600"}, {});
  EXPECT_THROW(terminal.Wait(kShort), std::runtime_error);
  EXPECT_THROW(terminal.WaitForStop(kShort), std::runtime_error);
}

TEST(PseudoTerminalTest, FailsWhenTheProgramEndsInsteadOfStopping) {
  PseudoTerminal terminal({"true"}, {});
  EXPECT_THROW(terminal.WaitForStop(), std::runtime_error);
}

TEST(PseudoTerminalTest, ExpectFailsWhenTheProgramEnds) {
  PseudoTerminal terminal({"echo", "one"}, {});
  terminal.Expect("one");
  EXPECT_THROW(terminal.Expect("two"), std::runtime_error);
}

TEST(PseudoTerminalTest, KillsTheJob) {
  auto terminal = std::make_unique<PseudoTerminal>(
      Words{"sh", "-c", "trap '' HUP; sleep 600 & echo $!; wait"}, Environment{});
  terminal->Expect("\n");
  const pid_t shell = terminal->program();
  const pid_t child = std::stoi(terminal->screen());
  terminal.reset();
  EXPECT_TRUE(Ends(shell));
  EXPECT_TRUE(Ends(child));
}

}  // namespace
