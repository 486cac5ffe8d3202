// Keeps PINs out of core files.
#pragma once

namespace cardcert::cli {

// As long as one exists, the process cannot be dumped: the kernel writes no core file, not even to
// a pipe, and only root can read the memory through /proc or a debugger. The limit of the size of
// core files is 0 as well, in case a provider makes the process dumpable again. The last one puts
// back what was there before the first.
//
// Every Secret has one. A caller that passes a PIN on keeps one until the copy is cleared, too.
class CoreDumpBlocker {
 public:
  CoreDumpBlocker();
  ~CoreDumpBlocker();
  CoreDumpBlocker(const CoreDumpBlocker&) = delete;
  CoreDumpBlocker& operator=(const CoreDumpBlocker&) = delete;
};

}  // namespace cardcert::cli
