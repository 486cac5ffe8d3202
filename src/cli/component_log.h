// Where the component's log goes while a command runs.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/component_events.h"
#include "cli/files/held_file.h"
#include "host/logfile.h"

namespace cardcert::cli {

// How many tries of a PIN are left, as far as the token tells.
enum class PinWarning { kNone, kCountLow, kFinalTry };

// A failure (level 3) that the component has logged.
struct Problem {
  ComponentEvent event;
  bool shown;  // --log-level has written the line to standard error already
};

// Receives every line of the global log as long as it lives. The user sees what --log-level and
// --log-file ask for, and always the reason why a provider cannot be used (level 2). Lines for
// standard error or a terminal are escaped; a file gets them as Logfile writes them.
class ComponentLog {
 public:
  ComponentLog();
  ~ComponentLog();
  ComponentLog(const ComponentLog&) = delete;
  ComponentLog& operator=(const ComponentLog&) = delete;

  // Applies --log-level and --log-file. Prints an error and returns false if the file cannot be
  // written.
  bool Configure(const std::optional<int>& level, const std::optional<std::string>& file);

  // Forgets the events, the problems and the PIN warning. To be called before an operation whose
  // events are to be looked at.
  void Clear();

  // The events of a known kind since the last Clear(), in order.
  const std::vector<ComponentEvent>& events() const { return events_; }

  // The failures since the last Clear(), in order, of unknown kinds too.
  const std::vector<Problem>& problems() const { return problems_; }

  // Called for each event of a known kind, at the moment at which it is logged. May be empty.
  void SetListener(std::function<void(const ComponentEvent&)> listener) {
    listener_ = std::move(listener);
  }

  // Returns what the token reported about the PIN that is asked for next, and forgets it.
  PinWarning TakePinWarning();

 private:
  bool OpenFile(const std::string& path);
  void Receive(const std::string& message, int level);
  void WriteToOutput(const std::string& message, int level);

  HeldFile file_;          // of --log-file; outlives output_, which writes to it
  Logfile output_;         // logs nothing until Configure()
  int stderr_level_ = -1;  // the highest level that is written to standard error; -1: none
  bool escapes_ = false;   // what goes to output_
  std::vector<ComponentEvent> events_;
  std::function<void(const ComponentEvent&)> listener_;
  std::vector<Problem> problems_;
  PinWarning pin_warning_ = PinWarning::kNone;
};

}  // namespace cardcert::cli
