#include "cli/terminal/standard_output.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "cli/files/held_file.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

// Providers that run as daemons, too, may close the low descriptors in a loop. This number is below
// the usual limit of 1024 open files.
constexpr int kHighDescriptor = 1000;

bool is_aside = false;
HeldFile aside;

HeldFile CopyOfStandardOutput() {
  HeldFile copy(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, kHighDescriptor));
  if (!copy)  // The limit of this process is lower.
    copy = HeldFile(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return copy;
}

// Otherwise a process that a provider leaves behind would keep a pipe open, and its reader waiting.
void CloseInChild() {
  aside = HeldFile();
}

}  // namespace

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

bool SetStandardOutputAside() {
  if (is_aside)
    return true;
  HeldFile copy = CopyOfStandardOutput();
  if (!copy || RetryOnSignal([] { return dup2(STDERR_FILENO, STDOUT_FILENO); }) != STDOUT_FILENO) {
    PrintError(std::string("cannot reserve standard output for data: ") + std::strerror(errno));
    return false;
  }
  aside = std::move(copy);
  is_aside = true;
  pthread_atfork(nullptr, nullptr, CloseInChild);
  return true;
}

int StandardOutput() {
  return is_aside ? aside.get() : STDOUT_FILENO;
}

}  // namespace cardcert::cli
