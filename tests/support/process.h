// Child processes, run by a test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace support {

// How long a test waits for another program before it fails. Long enough for a sanitized build on
// a busy machine, and well below the limit that CTest sets for a whole test.
constexpr std::chrono::seconds kTimeLimit(60);

using Words = std::vector<std::string>;
// Variables that are added to the environment of the test.
using Environment = std::map<std::string, std::string>;

// The words of all lists, one after the other.
Words Concat(Words first, const Words& second, const Words& third = {});

// How a process ended, and what it wrote.
struct Finished {
  int status = -1;  // The exit status, or -1 if a signal ended the process.
  int signal = 0;   // That signal.
  std::string out;
  std::string err;
};

// A running program without a terminal. Its output goes to unnamed files, so that it never blocks.
// The program and all
// members of its process group are killed at the latest when this object is destroyed, and the
// program itself also when the test process ends in any other way.
class Process {
 public:
  // Standard input is the file `standard_input`, or empty if that is "".
  Process(const Words& command, const Environment& environment,
          const std::string& standard_input = "");
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  std::string out() const;
  std::string err() const;
  // Waits until standard output or standard error contains `text`. Returns false after kTimeLimit
  // or when the program has ended without writing it.
  bool WaitForOutput(const std::string& text) const;
  void Signal(int signal) const;
  // Waits for the program to end. After `limit` kills the program and throws std::runtime_error.
  Finished Wait(std::chrono::milliseconds limit = kTimeLimit);

 private:
  bool HasEnded() const;
  int Reap();

  Words command_;
  int out_;
  int err_;
  pid_t pid_ = -1;
};

// Runs a program and waits for it like Process::Wait().
Finished RunProgram(const Words& command, const Environment& environment = {},
                    const std::string& standard_input = "");

// Called in a child after fork(): makes the child die with its parent.
void DieWithParent(pid_t parent);

// Called in a child after fork(): executes the program. Ends with status 127 if that fails.
[[noreturn]] void Execute(const Words& command, const Environment& environment);

// Calls `done` every few milliseconds until it returns true. Returns false if it has not done so
// after `limit`.
bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = kTimeLimit);

}  // namespace support
