#include "cli/terminal/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "cli/terminal/signal_pipe.h"
#include "cli/terminal/signals_at_start.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

// Blocks SIGTTOU, which would stop the program when it changes or writes to the terminal from the
// background.
class SigttouBlocker {
 public:
  SigttouBlocker() {
    sigset_t stop = {};
    sigemptyset(&stop);
    sigaddset(&stop, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &stop, &previous_);
  }
  ~SigttouBlocker() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SigttouBlocker(const SigttouBlocker&) = delete;
  SigttouBlocker& operator=(const SigttouBlocker&) = delete;

 private:
  sigset_t previous_ = {};
};

HeldFile OpenTerminal() {
  return HeldFile(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
}

}  // namespace

std::unique_ptr<Terminal> Terminal::Open() {
  HeldFile file = OpenTerminal();
  return std::unique_ptr<Terminal>(file ? new Terminal(std::move(file)) : nullptr);
}

Terminal::Terminal(HeldFile file) : file_(std::move(file)) {}

Terminal::~Terminal() = default;

void Terminal::ShowLine(const std::string& line) {
  Write(EscapeForTerminal(line) + "\n", nullptr);
}

void Terminal::EndQuestions() {
  typing_.reset();
}

int Terminal::Descriptor() {
  if (file_.get() < 0)
    file_ = OpenTerminal();
  return file_.get();
}

int Terminal::Write(const std::string& text, SignalPipe* signals) {
  const int descriptor = Descriptor();
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = write(descriptor, text.data() + written, text.size() - written);
    if (result > 0) {
      written += static_cast<std::size_t>(result);
      continue;
    }
    if (result == 0 || errno != EINTR)
      break;
    // In the background it was SIGTTOU, and would be again.
    if (const int signal = signals == nullptr ? 0 : signals->Take())
      return signal;
  }
  return 0;
}

Terminal::Input Terminal::AskOnce(const std::string& prompt, bool echo, int* signal, Secret* line) {
  if (typing_ == nullptr)
    typing_ = std::make_unique<TypingGuard>(Descriptor());
  SignalPipe signals({SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGTTIN, SIGTTOU});
  const bool ready = echo || typing_->Hide(Descriptor());
  *signal = ready ? Write(EscapeForTerminal(prompt), &signals) : signals.Take();
  if (*signal != 0)
    return Input::kSignal;
  return ready ? ReadLine(&signals, signal, line) : Input::kEnd;
}

Terminal::Input Terminal::ReadLine(SignalPipe* signals, int* signal, Secret* line) {
  const int descriptor = Descriptor();
  for (;;) {
    signals->Rearm();
    pollfd inputs[] = {{descriptor, POLLIN, 0}, {signals->descriptor(), POLLIN, 0}};
    if (poll(inputs, 2, -1) < 0 && errno != EINTR)
      return Input::kEnd;
    if ((*signal = signals->Take()) != 0)
      return Input::kSignal;
    if (inputs[0].revents == 0)
      continue;
    const ssize_t result = line->ReadByte(descriptor);
    if (result < 0 && errno == EINTR)
      continue;
    if (result <= 0)
      return Input::kEnd;
    if (line->byte() == '\n')
      return Input::kLine;
    line->Append(line->byte());
  }
}

Terminal::Answer Terminal::Ask(const std::string& prompt, bool echo, Secret* line) {
  if (echo)
    EndQuestions();  // The echo may still be off.
  for (;;) {
    line->Clear();
    int signal = 0;
    const Input input = AskOnce(prompt, echo, &signal, line);
    if (echo || input != Input::kLine)
      EndQuestions();
    // The line break was not echoed, or not typed.
    if (!echo || input != Input::kLine) {
      const SigttouBlocker blocker;
      Write("\n", nullptr);
    }
    if (input == Input::kLine)
      return Answer::kLine;
    line->Clear();
    if (input == Input::kEnd || signal == SIGINT)
      return Answer::kCancelled;
    // The terminal is restored. Let the signal take effect; after a stop, ask again.
    SignalsAtStart::Get().Raise(signal);
  }
}

}  // namespace cardcert::cli
