#include "cli/pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience(20);

struct ShellReport {
  char kind;
  int number;
};

void Send(int descriptor, char kind, int number) {
  const ShellReport report = {kind, number};
  if (write(descriptor, &report, sizeof report) != sizeof report)
    _exit(126);
}

// Where a job goes on.
constexpr char kForeground = 'f';
constexpr char kBackground = 'b';

// The least of a shell with job control: one job in the foreground, continued on command. It never
// touches the terminal's modes, so that what a test sees of them is the program's doing.
[[noreturn]] void Shell(const std::vector<std::string>& command,
                        const support::Environment& environment, int reports, int commands) {
  signal(SIGTTOU, SIG_IGN);
  const pid_t job = fork();
  if (job == 0) {
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
      // The screen stays until the test has read it.
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

PseudoTerminal::PseudoTerminal(const std::vector<std::string>& command,
                               const support::Environment& environment) {
  int reports[2] = {-1, -1};
  int commands[2] = {-1, -1};
  if (pipe2(reports, O_CLOEXEC) != 0 || pipe2(commands, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe");
  shell_ = forkpty(&master_, nullptr, nullptr, nullptr);
  if (shell_ < 0)
    throw std::runtime_error("forkpty");
  if (shell_ == 0) {
    close(commands[1]);
    Shell(command, environment, reports[1], commands[0]);
  }
  close(reports[1]);
  close(commands[0]);
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  reports_ = reports[0];
  commands_ = commands[1];
  char kind = 0;
  int number = 0;
  if (!Report(&kind, &number) || kind != 'P')
    throw std::runtime_error("the program did not start");
  program_ = number;
}

PseudoTerminal::~PseudoTerminal() {
  if (program_ > 0)
    kill(program_, SIGKILL);
  close(commands_);
  close(master_);
  close(reports_);
  waitpid(shell_, nullptr, 0);
}

bool PseudoTerminal::ReadMore(int milliseconds) {
  pollfd input = {master_, POLLIN, 0};
  if (poll(&input, 1, milliseconds) <= 0)
    return false;
  char piece[4096];
  const ssize_t length = read(master_, piece, sizeof piece);
  if (length <= 0)
    return false;
  screen_.append(piece, static_cast<std::size_t>(length));
  return true;
}

bool PseudoTerminal::Shows(const std::string& text) {
  const auto until = Clock::now() + kPatience;
  for (;;) {
    const std::string::size_type found = screen_.find(text, seen_);
    if (found != std::string::npos) {
      seen_ = found + text.size();
      return true;
    }
    if (Clock::now() > until)
      return false;
    ReadMore(100);
  }
}

void PseudoTerminal::Type(const std::string& keys) {
  if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
    throw std::runtime_error("the keyboard is gone");
}

bool PseudoTerminal::Echoes() const {
  termios modes = {};
  return tcgetattr(master_, &modes) == 0 && (modes.c_lflag & ECHO) != 0;
}

bool PseudoTerminal::WaitForEcho(bool on) const {
  const auto until = Clock::now() + kPatience;
  while (Echoes() != on) {
    if (Clock::now() > until)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

bool PseudoTerminal::Report(char* kind, int* number) {
  ShellReport report = {};
  if (read(reports_, &report, sizeof report) != sizeof report)
    return false;
  *kind = report.kind;
  *number = report.number;
  return true;
}

bool PseudoTerminal::WaitForStop() {
  char kind = 0;
  int number = 0;
  return Report(&kind, &number) && kind == 'S';
}

void PseudoTerminal::Continue() {
  if (write(commands_, &kForeground, 1) != 1)
    throw std::runtime_error("the shell is gone");
}

void PseudoTerminal::ContinueInBackground() {
  if (write(commands_, &kBackground, 1) != 1)
    throw std::runtime_error("the shell is gone");
}

void PseudoTerminal::StopBackgroundOutput() {
  termios modes = {};
  tcgetattr(master_, &modes);
  modes.c_lflag |= TOSTOP;
  if (tcsetattr(master_, TCSANOW, &modes) != 0)
    throw std::runtime_error("tcsetattr");
}

int PseudoTerminal::Wait() {
  char kind = 0;
  int number = 0;
  if (!Report(&kind, &number) || kind != 'E')
    throw std::runtime_error("the program did not end");
  program_ = -1;
  while (ReadMore(100)) {
  }
  return number;
}
