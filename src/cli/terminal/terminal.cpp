#include "cli/terminal/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "cli/terminal/signal_pipe.h"
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

// Turns the echo of the terminal off, and on again when destroyed.
class NoEcho {
 public:
  explicit NoEcho(int descriptor) : descriptor_(descriptor) {
    if (tcgetattr(descriptor_, &before_) != 0)
      return;
    termios modes = before_;
    modes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    // Fails with SIGTTOU in the background.
    on_ = tcsetattr(descriptor_, TCSAFLUSH, &modes) == 0;
  }
  ~NoEcho() {
    if (!on_)
      return;
    const SigttouBlocker blocker;  // The user must never be left without echo.
    while (tcsetattr(descriptor_, TCSAFLUSH, &before_) != 0 && errno == EINTR) {
    }
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

  bool on() const { return on_; }

 private:
  int descriptor_;
  bool on_ = false;
  termios before_ = {};
};

enum class Input { kLine, kEnd, kSignal };

// Reads one line byte by byte, so that there is no other buffer with the PIN.
Input ReadLine(int descriptor, SignalPipe* signals, int* signal, Secret* line) {
  for (;;) {
    pollfd inputs[] = {{descriptor, POLLIN, 0}, {signals->descriptor(), POLLIN, 0}};
    if (poll(inputs, 2, -1) < 0 && errno != EINTR)
      return Input::kEnd;
    if ((*signal = signals->Take()) != 0)
      return Input::kSignal;
    if (inputs[0].revents == 0)
      continue;
    unsigned char byte = 0;
    const ssize_t result = read(descriptor, &byte, 1);
    if (result < 0 && errno == EINTR)
      continue;
    if (result <= 0)
      return Input::kEnd;
    if (byte == '\n')
      return Input::kLine;
    line->Append(byte);
    explicit_bzero(&byte, sizeof byte);
  }
}

}  // namespace

std::unique_ptr<Terminal> Terminal::Open() {
  const int descriptor = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
  return std::unique_ptr<Terminal>(descriptor < 0 ? nullptr : new Terminal(descriptor));
}

Terminal::~Terminal() {
  close(descriptor_);
}

void Terminal::ShowLine(const std::string& line) {
  Write(EscapeForTerminal(line) + "\n", nullptr);
}

int Terminal::Write(const std::string& text, SignalPipe* signals) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = write(descriptor_, text.data() + written, text.size() - written);
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

Terminal::Answer Terminal::Ask(const std::string& prompt, bool echo, Secret* line) {
  for (;;) {
    line->Clear();
    int signal = 0;
    Input input = Input::kEnd;
    {
      SignalPipe signals({SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGTTIN, SIGTTOU});
      std::unique_ptr<NoEcho> no_echo;
      if (!echo)
        no_echo = std::make_unique<NoEcho>(descriptor_);
      const bool ready = echo || no_echo->on();
      signal = ready ? Write(EscapeForTerminal(prompt), &signals) : signals.Take();
      if (signal != 0)
        input = Input::kSignal;
      else if (ready)
        input = ReadLine(descriptor_, &signals, &signal, line);
      no_echo.reset();
    }
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
    raise(signal);
  }
}

}  // namespace cardcert::cli
