#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace support {

namespace {

// An unnamed file: leaves nothing behind and never fills up like a pipe.
int OutputFile() {
  const int descriptor = memfd_create("output", MFD_CLOEXEC);
  if (descriptor < 0)
    throw std::runtime_error("memfd_create");
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

}  // namespace

void Execute(const std::vector<std::string>& command, const Environment& environment) {
  for (const auto& [name, value] : environment)
    setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> argv;
  for (const std::string& word : command)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

Process::Process(const std::vector<std::string>& command, const Environment& environment,
                 const std::string& standard_input)
    : out_(OutputFile()), err_(OutputFile()) {
  pid_ = fork();
  if (pid_ != 0)
    return;
  setsid();  // Without a controlling terminal.
  const int in = open(standard_input.empty() ? "/dev/null" : standard_input.c_str(), O_RDONLY);
  dup2(in, STDIN_FILENO);
  dup2(out_, STDOUT_FILENO);
  dup2(err_, STDERR_FILENO);
  Execute(command, environment);
}

Process::~Process() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(out_);
  close(err_);
}

std::string Process::out() const {
  return Content(out_);
}

std::string Process::err() const {
  return Content(err_);
}

bool Process::WaitForOutput(const std::string& text) const {
  for (int i = 0; i < 1000; ++i) {
    if (out().find(text) != std::string::npos || err().find(text) != std::string::npos)
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

void Process::Signal(int signal) const {
  kill(pid_, signal);
}

Finished Process::Wait() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  Finished finished;
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  finished.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  finished.out = out();
  finished.err = err();
  return finished;
}

Finished RunProgram(const std::vector<std::string>& command, const Environment& environment,
                    const std::string& standard_input) {
  return Process(command, environment, standard_input).Wait();
}

}  // namespace support
