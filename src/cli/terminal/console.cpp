#include "cli/terminal/console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/files/file_problem.h"
#include "cli/output/write_all.h"
#include "cli/terminal/standard_output.h"
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
  const int descriptor = StandardOutput();
  if (descriptor < 0) {
    PrintError("cannot write to standard output: " + FileProblem::OfErrno().reason);
    return false;
  }
  std::fflush(stdout);  // What was written through stdio comes first.
  if (WriteAll(descriptor, data))
    return true;
  if (errno != EPIPE)
    PrintError(std::string("cannot write to standard output: ") + std::strerror(errno));
  return false;
}

std::string Quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

}  // namespace cardcert::cli
