#include "cli/terminal/signal_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace cardcert::cli {
namespace {

volatile sig_atomic_t write_end = -1;

void WriteToPipe(int signal) {
  const int saved_errno = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // If the pipe is full, it contains a signal already.
  [[maybe_unused]] const ssize_t written = write(write_end, &byte, 1);
  errno = saved_errno;
}

}  // namespace

SignalPipe::SignalPipe(std::initializer_list<int> signals, bool once) {
  if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0)
    return;  // Signals keep their usual effect.
  write_end = ends_[1];
  for (const int signal : signals) {
    struct sigaction action = {};
    struct sigaction previous = {};
    if (sigaction(signal, nullptr, &previous) != 0 || previous.sa_handler == SIG_IGN)
      continue;
    action.sa_handler = WriteToPipe;
    action.sa_flags = once ? static_cast<int>(SA_RESETHAND) : 0;
    sigemptyset(&action.sa_mask);
    if (sigaction(signal, &action, nullptr) == 0)
      previous_.emplace_back(signal, previous);
  }
}

SignalPipe::~SignalPipe() {
  for (const auto& [signal, previous] : previous_)
    sigaction(signal, &previous, nullptr);
  write_end = -1;
  for (const int end : ends_) {
    if (end >= 0)
      close(end);
  }
}

int SignalPipe::Take() {
  unsigned char signal = 0;
  return read(ends_[0], &signal, 1) == 1 ? signal : 0;
}

}  // namespace cardcert::cli
