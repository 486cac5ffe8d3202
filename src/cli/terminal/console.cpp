#include "cli/terminal/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/terminal/text.h"

void OccupyClosedDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is this one. Open the wrong way round, so that using it still fails.
    if (fcntl(descriptor, F_GETFD) < 0 &&
        open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0)
      return;
  }
}

void Complain(std::string_view message) {
  const std::string line = "cardcert: " + EscapeForTerminal(message) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

bool Print(std::string_view data) {
  if (std::fwrite(data.data(), 1, data.size(), stdout) == data.size() && std::fflush(stdout) == 0)
    return true;
  if (errno != EPIPE)
    Complain(std::string("cannot write to standard output: ") + std::strerror(errno));
  return false;
}

std::string Quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}
