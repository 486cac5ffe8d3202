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

// While it lives the terminal can be set and written to from the background, too, where SIGTTOU
// would stop the program.
class StopsBlocked {
 public:
  StopsBlocked() {
    sigset_t stop = {};
    sigemptyset(&stop);
    sigaddset(&stop, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &stop, &previous_);
  }
  ~StopsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  StopsBlocked(const StopsBlocked&) = delete;
  StopsBlocked& operator=(const StopsBlocked&) = delete;

 private:
  sigset_t previous_ = {};
};

// The terminal without echo, for as long as it lives.
class NoEcho {
 public:
  explicit NoEcho(int descriptor) : descriptor_(descriptor) {
    if (tcgetattr(descriptor_, &before_) != 0)
      return;
    termios modes = before_;
    modes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    // In the background this brings SIGTTOU instead.
    on_ = tcsetattr(descriptor_, TCSAFLUSH, &modes) == 0;
  }
  ~NoEcho() {
    if (!on_)
      return;
    const StopsBlocked in_the_background_too;  // Nothing may leave the user without echo.
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

// One line from the terminal, byte by byte: there is no buffer to forget a PIN in.
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
    // In the background that is SIGTTOU, each time anew.
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
    // The line's end was not echoed, or was not typed.
    if (!echo || input != Input::kLine) {
      const StopsBlocked in_the_background_too;
      Write("\n", nullptr);
    }
    if (input == Input::kLine)
      return Answer::kLine;
    line->Clear();
    if (input == Input::kEnd || signal == SIGINT)
      return Answer::kCancelled;
    // The terminal is as it was: now let the signal do what it does. After a stop, ask again.
    raise(signal);
  }
}

}  // namespace cardcert::cli
