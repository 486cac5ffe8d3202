#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

namespace support {

namespace {

// An unnamed file, so that nothing is left behind and no pipe fills up.
int OutputFile() {
  const int descriptor = memfd_create("output", MFD_CLOEXEC);
  if (descriptor < 0)
    throw std::runtime_error("memfd_create failed");
  return descriptor;
}

std::string Content(int descriptor) {
  std::string content;
  char piece[4096];
  ssize_t length = 0;
  while ((length = pread(descriptor, piece, sizeof piece, static_cast<off_t>(content.size()))) > 0)
    content.append(piece, static_cast<std::size_t>(length));
  return content;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

Words Concat(Words first, const Words& second, const Words& third) {
  first.insert(first.end(), second.begin(), second.end());
  first.insert(first.end(), third.begin(), third.end());
  return first;
}

void DieWithParent(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent)  // The parent died before the call.
    _exit(126);
}

void Execute(const Words& command, const Environment& environment) {
  for (const auto& [name, value] : environment)
    setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> argv;
  for (const std::string& word : command)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

Process::Process(const Words& command, const Environment& environment,
                 const std::string& standard_input)
    : command_(command), out_(OutputFile()), err_(OutputFile()) {
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0)
    throw std::runtime_error("fork failed");
  if (pid_ != 0)
    return;
  DieWithParent(parent);
  setsid();  // Leaves the terminal, and makes a process group that can be killed as a whole.
  const int in = open(standard_input.empty() ? "/dev/null" : standard_input.c_str(), O_RDONLY);
  dup2(in, STDIN_FILENO);
  dup2(out_, STDOUT_FILENO);
  dup2(err_, STDERR_FILENO);
  Execute(command, environment);
}

Process::~Process() {
  if (pid_ > 0)
    Reap();
  close(out_);
  close(err_);
}

std::string Process::out() const {
  return Content(out_);
}

std::string Process::err() const {
  return Content(err_);
}

bool Process::HasEnded() const {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid_;
}

// Kills what is left of the process group. Its number cannot be reused yet, because the program
// itself has not been waited for.
int Process::Reap() {
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);  // If it has not made its process group yet.
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  return status;
}

bool Process::WaitForOutput(const std::string& text) const {
  const auto is_written = [&] { return Contains(out(), text) || Contains(err(), text); };
  WaitUntil([&] { return is_written() || HasEnded(); });
  return is_written();
}

void Process::Signal(int signal) const {
  kill(pid_, signal);
}

Finished Process::Wait(std::chrono::milliseconds limit) {
  const bool ended = WaitUntil([this] { return HasEnded(); }, limit);
  const int status = Reap();
  Finished finished;
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  finished.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  finished.out = out();
  finished.err = err();
  if (!ended) {
    throw std::runtime_error(command_[0] + " did not end within " + std::to_string(limit.count()) +
                             " ms\nstandard output: " + finished.out +
                             "\nstandard error: " + finished.err);
  }
  return finished;
}

Finished RunProgram(const Words& command, const Environment& environment,
                    const std::string& standard_input) {
  return Process(command, environment, standard_input).Wait();
}

}  // namespace support
