// Other programs, run by a test.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

struct Finished {
  int status = -1;  // exit status; -1: ended by a signal
  int signal = 0;   // which
  std::string out;
  std::string err;
};

using Environment = std::map<std::string, std::string>;

// A program under way with its output in files; its standard input is a file or, for "", empty.
// It has no terminal.
class Process {
 public:
  Process(const std::vector<std::string>& command, const Environment& environment,
          const std::string& standard_input = "");
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  std::string out() const;
  std::string err() const;
  // Waits until one of its outputs holds `text`; false after 20 seconds.
  bool WaitForOutput(const std::string& text) const;
  void Signal(int signal) const;
  Finished Wait();

 private:
  int out_;
  int err_;
  pid_t pid_ = -1;
};

Finished RunProgram(const std::vector<std::string>& command, const Environment& environment = {},
                    const std::string& standard_input = "");

// For a child between fork and exec: never returns.
[[noreturn]] void Execute(const std::vector<std::string>& command, const Environment& environment);
