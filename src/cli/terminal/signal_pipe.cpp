#include "cli/terminal/signal_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "cli/output/signal_blocker.h"
#include "cli/terminal/signals_at_start.h"

namespace cardcert::cli {
namespace {

const HeldFile* write_end = nullptr;
volatile sig_atomic_t lost_signal = 0;  // one that could not be written

void WriteToPipe(int signal) {
  const int saved_errno = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // If the pipe is full, it contains a signal already.
  if (write_end != nullptr && write(write_end->get(), &byte, 1) < 0 && errno == EBADF)
    lost_signal = signal;
  errno = saved_errno;
}

}  // namespace

SignalPipe::SignalPipe(std::initializer_list<int> signals, bool once) {
  OpenPipe();
  write_end = &write_end_;
  lost_signal = 0;
  action_.sa_handler = WriteToPipe;
  action_.sa_flags = once ? static_cast<int>(SA_RESETHAND) : 0;
  sigemptyset(&action_.sa_mask);
  for (const int signal : signals) {
    Caught caught = {signal, {}};
    if (!SignalsAtStart::Get().IsIgnored(signal) &&
        sigaction(signal, nullptr, &caught.previous) == 0)
      caught_.push_back(caught);
  }
  Rearm();
}

SignalPipe::~SignalPipe() {
  for (const auto& [signal, previous] : caught_) {
    struct sigaction restored = previous;
    // A provider has ignored it.
    if (restored.sa_handler == SIG_IGN)
      restored.sa_handler = SIG_DFL;
    sigaction(signal, &restored, nullptr);
  }
  write_end = nullptr;
}

void SignalPipe::Rearm() {
  if (read_end_.get() < 0 || write_end_.get() < 0)
    OpenPipe();
  if (!read_end_)
    return;  // Signals keep their usual effect.
  if (const int signal = std::exchange(lost_signal, 0))
    WriteToPipe(signal);
  for (const Caught& caught : caught_) {
    sigaction(caught.signal, &action_, nullptr);
    SignalsAtStart::Get().Unblock(caught.signal);
  }
}

int SignalPipe::Take() {
  unsigned char signal = 0;
  return read(read_end_.get(), &signal, 1) == 1 ? signal : 0;
}

void SignalPipe::OpenPipe() {
  const SignalBlocker blocker;  // The handler must not see a half of it.
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
    ends[0] = ends[1] = -1;
  read_end_ = HeldFile(ends[0]);
  write_end_ = HeldFile(ends[1]);
}

}  // namespace cardcert::cli
