// Child processes, run by a test.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace support {

// How a process ended, and what it wrote.
struct Finished {
  int status = -1;  // The exit status, or -1 if a signal ended the process.
  int signal = 0;   // That signal.
  std::string out;
  std::string err;
};

// Variables that are added to the environment of the test.
using Environment = std::map<std::string, std::string>;

// A running program without a controlling terminal. Its output goes to unnamed files, so that it
// never blocks. The destructor kills the program if it has not been waited for.
class Process {
 public:
  // Starts the program `command[0]`. Its standard input is the file `standard_input`, or empty if
  // that is "".
  Process(const std::vector<std::string>& command, const Environment& environment,
          const std::string& standard_input = "");
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  // What the program has written until now.
  std::string out() const;
  std::string err() const;
  // Waits until standard output or standard error contains `text`. Returns false after 20 seconds.
  bool WaitForOutput(const std::string& text) const;
  void Signal(int signal) const;
  // Waits until the program ends.
  Finished Wait();

 private:
  int out_;
  int err_;
  pid_t pid_ = -1;
};

// Runs a program and waits until it ends.
Finished RunProgram(const std::vector<std::string>& command, const Environment& environment = {},
                    const std::string& standard_input = "");

// Executes a program in place of this process, between fork() and exec(). Ends with status 127 if
// that fails.
[[noreturn]] void Execute(const std::vector<std::string>& command, const Environment& environment);

}  // namespace support
