#include "cli/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

using support::Environment;
using support::kTimeLimit;
using support::WaitUntil;
using support::Words;

namespace {

struct ShellReport {
  char kind;  // 'P': started, with its process; 'S': stopped, 'E': ended, with the signal or status
  int number;
};

void Send(int descriptor, char kind, int number) {
  const ShellReport report = {kind, number};
  if (write(descriptor, &report, sizeof report) != sizeof report)
    _exit(126);
}

constexpr char kForeground = 'f';
constexpr char kBackground = 'b';

// A minimal shell with job control: runs one job in the foreground and continues it on command. It
// never changes the terminal's modes, so that every change that a test sees is the program's.
[[noreturn]] void Shell(const Words& command, const Environment& environment, int reports,
                        int commands) {
  signal(SIGTTOU, SIG_IGN);
  const pid_t shell = getpid();
  const pid_t job = fork();
  if (job == 0) {
    support::DieWithParent(shell);
    setpgid(0, 0);
    tcsetpgrp(STDIN_FILENO, getpid());
    signal(SIGTTOU, SIG_DFL);
    support::Execute(command, environment);
  }
  setpgid(job, job);
  tcsetpgrp(STDIN_FILENO, job);
  Send(reports, 'P', job);
  for (;;) {
    int status = 0;
    waitpid(job, &status, WUNTRACED);
    if (!WIFSTOPPED(status)) {
      Send(reports, 'E', WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
      // The terminal has to stay open until the test has read what is on the screen.
      char end = 0;
      _exit(read(commands, &end, 1) == 0 ? 0 : 126);
    }
    tcsetpgrp(STDIN_FILENO, getpid());
    Send(reports, 'S', WSTOPSIG(status));
    char where = 0;
    if (read(commands, &where, 1) != 1)
      _exit(126);
    if (where == kForeground)
      tcsetpgrp(STDIN_FILENO, job);
    kill(-job, SIGCONT);
  }
}

}  // namespace

PseudoTerminal::PseudoTerminal(const Words& command, const Environment& environment)
    : command_(command) {
  int reports[2] = {-1, -1};
  int commands[2] = {-1, -1};
  if (pipe2(reports, O_CLOEXEC) != 0 || pipe2(commands, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe2 failed");
  const pid_t parent = getpid();
  shell_ = forkpty(&master_, nullptr, nullptr, nullptr);
  if (shell_ < 0)
    throw std::runtime_error("forkpty failed");
  if (shell_ == 0) {
    support::DieWithParent(parent);
    close(commands[1]);
    Shell(command, environment, reports[1], commands[0]);
  }
  close(reports[1]);
  close(commands[0]);
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  fcntl(master_, F_SETFL, O_NONBLOCK);
  fcntl(reports[0], F_SETFL, O_NONBLOCK);
  reports_ = reports[0];
  commands_ = commands[1];
  try {
    program_ = WaitForReport('P', kTimeLimit);
  } catch (...) {
    Kill();
    throw;
  }
}

PseudoTerminal::~PseudoTerminal() {
  Kill();
}

void PseudoTerminal::Kill() {
  if (program_ > 0)
    kill(-program_, SIGKILL);
  kill(shell_, SIGKILL);
  waitpid(shell_, nullptr, 0);
  for (const int descriptor : {commands_, master_, reports_})
    close(descriptor);
}

void PseudoTerminal::Fail(const std::string& what) const {
  throw std::runtime_error(testing::PrintToString(command_) + " " + what + "\nThe screen shows:\n" +
                           screen());
}

bool PseudoTerminal::ReadScreen() {
  char piece[4096];
  const ssize_t length = read(master_, piece, sizeof piece);
  if (length <= 0)
    return false;
  screen_.append(piece, static_cast<std::size_t>(length));
  return true;
}

void PseudoTerminal::ReadLastOutput() {
  pollfd input = {master_, POLLIN, 0};
  while (poll(&input, 1, 100) > 0 && ReadScreen()) {
  }
}

bool PseudoTerminal::ReadReport() {
  ShellReport report = {};
  const ssize_t length = read(reports_, &report, sizeof report);
  if (length < 0 && errno == EAGAIN)
    return false;
  if (length != sizeof report)
    Fail("has lost its shell");
  report_ = {report.kind, report.number};
  return true;
}

int PseudoTerminal::WaitForReport(char kind, std::chrono::milliseconds limit) {
  const bool reported = WaitUntil(
      [this] {
        ReadScreen();  // The program may wait for room on the screen.
        return report_.kind != 0 || ReadReport();
      },
      limit);
  const auto expected = [kind] { return kind == 'P' ? "start" : kind == 'S' ? "stop" : "end"; };
  if (!reported)
    Fail(std::string("did not ") + expected() + " within " + std::to_string(limit.count()) + " ms");
  const Report report = std::exchange(report_, {});
  if (report.kind != kind)
    Fail(std::string("did not ") + expected() + " but " +
         (report.kind == 'S' ? "stopped" : "ended") + " with " + std::to_string(report.number));
  return report.number;
}

void PseudoTerminal::Expect(const std::string& text) {
  std::string::size_type found = std::string::npos;
  const auto is_shown = [&] {
    found = screen_.find(text, seen_);
    return found != std::string::npos;
  };
  WaitUntil([&] {
    const bool is_running = report_.kind == 0 && !ReadReport();
    while (ReadScreen()) {
    }
    return is_shown() || !is_running;
  });
  if (found == std::string::npos) {
    ReadLastOutput();
    if (!is_shown())
      Fail("does not show " + testing::PrintToString(text));
  }
  seen_ = found + text.size();
}

void PseudoTerminal::Enter(const std::string& prompt, const std::string& line) {
  Expect(prompt);
  EXPECT_FALSE(Echoes()) << prompt;
  Type(line + "\n");
}

void PseudoTerminal::Answer(const std::string& question, const std::string& line) {
  Expect(question);
  EXPECT_TRUE(Echoes()) << question;
  Type(line + "\n");
}

void PseudoTerminal::Type(const std::string& keys) {
  if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
    Fail("has lost its keyboard");
}

bool PseudoTerminal::Echoes() const {
  termios modes = {};
  return tcgetattr(master_, &modes) == 0 && (modes.c_lflag & ECHO) != 0;
}

std::string PseudoTerminal::Unread() const {
  const int terminal = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios modes = {};
  if (terminal < 0 || tcgetattr(terminal, &modes) != 0)
    Fail("has lost its terminal");
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON);  // Otherwise only whole lines can be read.
  modes.c_cc[VMIN] = 0;
  modes.c_cc[VTIME] = 0;
  tcsetattr(terminal, TCSANOW, &modes);
  char typed[4096];
  const ssize_t length = read(terminal, typed, sizeof typed);
  close(terminal);
  return std::string(typed, length < 0 ? 0 : static_cast<std::size_t>(length));
}

void PseudoTerminal::Command(char where) {
  if (write(commands_, &where, 1) != 1)
    Fail("has lost its shell");
}

void PseudoTerminal::Continue() {
  Command(kForeground);
}

void PseudoTerminal::ContinueInBackground() {
  Command(kBackground);
}

void PseudoTerminal::StopBackgroundOutput() {
  termios modes = {};
  tcgetattr(master_, &modes);
  modes.c_lflag |= TOSTOP;
  if (tcsetattr(master_, TCSANOW, &modes) != 0)
    Fail("has lost its terminal");
}

int PseudoTerminal::Wait(std::chrono::milliseconds limit) {
  const int status = WaitForReport('E', limit);
  program_ = -1;
  ReadLastOutput();
  return status;
}

void PseudoTerminal::ExpectExit(int status) {
  EXPECT_EQ(Wait(), status) << screen();
  EXPECT_TRUE(Echoes());
}

std::string PseudoTerminal::screen() const {
  std::string lines = screen_;
  lines.erase(std::remove(lines.begin(), lines.end(), '\r'), lines.end());
  return lines;
}
