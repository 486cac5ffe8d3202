// Where the component's log lines go while the program runs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/logfile.h"

namespace cardcert::cli {

// What the component says of a PIN's tries just before it asks for the PIN.
enum class PinWarning { kNone, kCountLow, kFinalTry };

// A message of the component's about something that failed.
struct Problem {
  std::string message;
  bool shown;  // on standard error, by --log-level: not to be repeated, but it may need more words
};

// Connects the global log for as long as it lives. The user sees what was asked for with
// --log-level and --log-file; without those, the reasons why a provider cannot be used. What goes
// to standard error cannot steer a terminal; a file gets it as Logfile writes it. The program
// itself overhears all lines, since some facts reach it in no other way.
class ComponentLog {
 public:
  ComponentLog();
  ~ComponentLog();
  ComponentLog(const ComponentLog&) = delete;
  ComponentLog& operator=(const ComponentLog&) = delete;

  // Follows --log-level and --log-file. False, with a complaint, when the file cannot be written.
  bool Configure(const std::optional<int>& level, const std::optional<std::string>& file);

  // What failed since the last call, in order.
  std::vector<Problem> TakeProblems();

  // What was said of tries since the last call.
  PinWarning TakePinWarning();

 private:
  void Receive(const std::string& message, int level);

  Logfile output_;         // says nothing until Configure()
  int stderr_level_ = -1;  // up to which lines go to standard error; -1: none do
  std::vector<Problem> problems_;
  PinWarning pin_warning_ = PinWarning::kNone;
};

}  // namespace cardcert::cli
