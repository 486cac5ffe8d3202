// What happened in a test, in order: provider calls, log lines, PIN callbacks, uses of
// certificates, loading and unloading.
#pragma once

#include <string>
#include <vector>

namespace scripted {

// The provider, the host and the loader all write to the same trace, so that it shows, for example,
// the order of a provider call and a log line.
class Trace {
 public:
  static Trace& Instance();

  // Adds one line. Control characters and a trailing blank are written as \xHH.
  void Add(const std::string& line);

  // Removes `folder` from every line added from now on, so that traces are the same on every
  // machine.
  void OmitFolder(const std::string& folder);

  // Removes and returns all lines, each ended by a newline.
  std::string Take();
  void Clear() { lines_.clear(); }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
  std::vector<std::string> folders_;
};

// Returns the lines of `text` without indentation and empty lines, each ended by a newline. Turns
// an expected trace, written as an indented raw string, into the form that Take() returns.
std::string Unindented(const std::string& text);

}  // namespace scripted
