#include "cli/terminal/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

void PrintLine(std::string_view text) {
  const std::string line = EscapeForTerminal(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string WithPrefix(const char* prefix, std::string_view message) {
  return prefix + std::string(message);
}

}  // namespace

void PrintError(std::string_view message) {
  PrintLine(ErrorText(message));
}

void PrintWarning(std::string_view message) {
  PrintLine(WarningText(message));
}

void PrintHint(std::string_view message) {
  PrintLine(WithPrefix("cardcert: hint: ", message));
}

void PrintProgress(std::string_view message) {
  PrintLine(WithPrefix("cardcert: ", message));
}

std::string ErrorText(std::string_view message) {
  return WithPrefix("cardcert: error: ", message);
}

std::string WarningText(std::string_view message) {
  return WithPrefix("cardcert: warning: ", message);
}

bool PrintData(std::string_view data) {
  if (std::fwrite(data.data(), 1, data.size(), stdout) == data.size() && std::fflush(stdout) == 0)
    return true;
  if (errno != EPIPE)
    PrintError(std::string("cannot write to standard output: ") + std::strerror(errno));
  return false;
}

std::string Quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

void ReserveStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0)
      continue;
    // open() returns the lowest free number, which is this one. Standard input is opened for
    // writing and the others for reading, so that using them still fails.
    if (open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0)
      return;
  }
}

}  // namespace cardcert::cli
