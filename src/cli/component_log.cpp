#include "cli/component_log.h"

#include <unistd.h>

#include <utility>

#include "cli/files/log_file.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

void PrintReason(const ComponentEvent& event) {
  if (event.kind == ComponentEventKind::kGetInfoFailed)
    PrintWarning(event.message);
  else if (event.kind == ComponentEventKind::kOther)
    PrintProgress("  " + event.message);  // More about the error of the line before.
  else
    PrintError(event.message);
}

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
    if (!OpenFile(*file))
      return false;
    output_.SetMaxLevel(level.value_or(kTrace));
  } else if (level) {
    output_.LogToStandardError();
    output_.SetMaxLevel(*level);
    stderr_level_ = *level;
    escapes_ = true;
  }
  return true;
}

bool ComponentLog::OpenFile(const std::string& path) {
  FileProblem problem;
  const std::optional<LogFile> log = LogFile::Prepare(path, &problem);
  if (log)
    file_ = log->Open(&problem);
  if (!file_) {
    PrintLogFileProblem(path, problem);
    return false;
  }
  escapes_ = isatty(file_.get()) == 1;
  output_.LogToDescriptor(file_.get());
  return true;
}

void ComponentLog::Clear() {
  events_.clear();
  problems_.clear();
  pin_warning_ = PinWarning::kNone;
}

PinWarning ComponentLog::TakePinWarning() {
  return std::exchange(pin_warning_, PinWarning::kNone);
}

void ComponentLog::Receive(const std::string& message, int level) {
  WriteToOutput(message, level);
  const bool shown = level <= stderr_level_;
  ComponentEvent event = ParseComponentEvent(message, level);
  if (event.kind == ComponentEventKind::kPinFinalTry)
    pin_warning_ = PinWarning::kFinalTry;
  else if (event.kind == ComponentEventKind::kPinCountLow)
    pin_warning_ = PinWarning::kCountLow;
  // Without the reason the user could do nothing, so it is shown whatever --log-level is.
  if (level <= kProviderUnusable && !shown)
    PrintReason(event);
  if (level == kFailed)
    problems_.push_back({event, shown});
  if (event.kind == ComponentEventKind::kOther)
    return;
  if (listener_)
    listener_(event);
  events_.push_back(std::move(event));
}

void ComponentLog::WriteToOutput(const std::string& message, int level) {
  // The number may belong to a file of the provider now.
  if (file_ && file_.get() < 0) {
    output_.LogToNothing();
    file_ = HeldFile();
    PrintWarning("the provider closed the log file; the rest of the log is lost");
  }
  output_.Log(escapes_ ? EscapeForTerminal(message) : message, level);
}

}  // namespace cardcert::cli
