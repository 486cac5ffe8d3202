#include "cli/component_log.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/terminal/console.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

// See logfile.h for the component's levels.
constexpr int kProviderUnusable = 2;
constexpr int kFailed = 3;
constexpr int kTrace = 5;

}  // namespace

ComponentLog::ComponentLog() {
  logfile.SetMaxLevel(kTrace);
  logfile.LogToFunction([this](const std::string& message, int level) { Receive(message, level); });
}

ComponentLog::~ComponentLog() {
  logfile.LogToNothing();
}

bool ComponentLog::Configure(const std::optional<int>& level,
                             const std::optional<std::string>& file) {
  if (file) {
    if (!output_.LogToFile(*file)) {
      PrintError("cannot write the log file " + Quoted(*file) + ": " + std::strerror(errno));
      return false;
    }
    output_.SetMaxLevel(level.value_or(kTrace));
  } else if (level) {
    output_.LogToStandardError();
    output_.SetMaxLevel(*level);
    stderr_level_ = *level;
  }
  return true;
}

void ComponentLog::Receive(const std::string& message, int level) {
  output_.Log(stderr_level_ < 0 ? message : EscapeForTerminal(message), level);
  if (message == "Final passphrase attempt for token")
    pin_warning_ = PinWarning::kFinalTry;
  else if (message == "Previous failed passphrase attempt for token")
    pin_warning_ = PinWarning::kCountLow;
  const bool shown = level <= stderr_level_;
  // Without the reason a user is lost, so it is shown whatever --log-level says.
  if (level <= kProviderUnusable && !shown)
    PrintError(message);
  else if (level == kFailed)
    problems_.push_back({message, shown});
}

std::vector<Problem> ComponentLog::TakeProblems() {
  return std::exchange(problems_, {});
}

PinWarning ComponentLog::TakePinWarning() {
  return std::exchange(pin_warning_, PinWarning::kNone);
}

}  // namespace cardcert::cli
