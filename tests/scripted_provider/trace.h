// What happened, in order: provider calls, log lines, callbacks, certificates, loading.
#pragma once

#include <string>
#include <vector>

namespace scripted {

// One sequence for the whole process, so that the order between a provider call and a log line
// shows. Every witness (the provider, the host, the loader) adds to it.
class Trace {
 public:
  static Trace& Instance();

  // One line. Control characters and a blank at the end stand as \xHH, so that a line stays one
  // line and what it ends in can be seen. Folders named by Abbreviate() are left out.
  void Add(const std::string& line);

  // Leaves `folder` out of every line to come, so that traces read alike on every machine.
  void Abbreviate(const std::string& folder);

  // All lines since the last Take() or Clear(), each ended by a line break.
  std::string Take();
  void Clear() { lines_.clear(); }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
  std::vector<std::string> folders_;
};

// The lines of `text` without their indentation and without empty ones, each ended by a line break:
// how an expected trace, written as an indented raw string, compares with Take().
std::string Unindented(const std::string& text);

}  // namespace scripted
