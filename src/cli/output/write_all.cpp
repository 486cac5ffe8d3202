#include "cli/output/write_all.h"

#include <poll.h>
#include <unistd.h>

#include "cli/files/held_file.h"

namespace cardcert::cli {

bool WriteAll(int descriptor, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written =
        RetryOnSignal([&] { return write(descriptor, data.data(), data.size()); });
    if (written < 0 && errno == EAGAIN) {  // Another process made it non-blocking.
      pollfd output = {descriptor, POLLOUT, 0};
      if (RetryOnSignal([&] { return poll(&output, 1, -1); }) < 0)
        return false;
      continue;
    }
    if (written < 0)
      return false;
    data.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace cardcert::cli
